# Menu configuration: a starter menu.json, its publication, and a refused publication that leaves
# the published version in force.
menu_win="$localappdata_win"'\Orvanta\Brenlowpack\Ravelin\menu.json'
published="$localappdata/Orvanta/Brenlowpack/Ravelin/published"

section "Write a starter menu.json and check who may modify it"
ctl config init "$menu_win"
ctl config check "$menu_win"

section "Publish it; the next menu in Explorer uses it without a restart"
ctl config status "$menu_win"
ctl config publish "$menu_win"
ctl config status "$menu_win"
ls -l "$published"

section "A broken save is refused and the published version stays in force"
cp "$localappdata/Orvanta/Brenlowpack/Ravelin/menu.json" /tmp/cmr-demo-menu.json
printf '{ "profiles": [ { "match": { "context": ["folder-item"] }, "items": [ { "source": "user", "title": "Edit" } ] } ] }\n' \
  > "$localappdata/Orvanta/Brenlowpack/Ravelin/menu.json"
ctl config publish "$menu_win"
ctl config status "$menu_win"
mv /tmp/cmr-demo-menu.json "$localappdata/Orvanta/Brenlowpack/Ravelin/menu.json"

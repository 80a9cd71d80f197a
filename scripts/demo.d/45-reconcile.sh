# The repair run that the installer and the logon start: it stands aside while the feature is off
# in Settings, and otherwise republishes both menus, enables, and brings the Hook back into the
# stand-in Explorer of the Explorer part, with the installed Content and Schema beside it.
settings="$localappdata/Orvanta/Brenlowpack/Settings/High Level Settings.json"
install="$WINEPREFIX/drive_c/demo-install"
mkdir -p "$install"
cp -r "$root/dist/Content" "$root/dist/Schema" "$install/"
demo_exe="$exe"
exe="$install/ContextMenuReplacement.Controller.exe"

section "Reconcile: off in Settings, so nothing to do"
ctl reconcile

section "Reconcile: switched on in Settings"
mkdir -p "$(dirname "$settings")"
printf '%s\n' '{"apps":[{"app_id":"context-menu-replacement","status":"enabled","settings":{"menu.profiles":[{"match":{"context":["desktop-background"]},"items":[{"source":"modern"}]}]}}]}' \
  > "$settings"
ctl reconcile
ctl uninstall >/dev/null
rm -f "$settings"
exe="$demo_exe"

# The custom menu model: publish the shipped baseline, then ask which layout and tree a
# right-click on each kind of target gets.
schema="Z:$root/dist/Schema/custom-menu.schema.json"
baseline="Z:$root/dist/Content/Menus/create-organize.baseline.json"

section "Custom menu model: nothing is published yet"
ctl custom-model effective desktop

section "Validate the shipped baseline (writes nothing), then publish it"
ctl custom-model validate "$schema" "$baseline"
ctl custom-model publish "$schema" "$baseline"
ctl custom-model publish "$schema" "$baseline" --json
ls "$localappdata/Orvanta/Brenlowpack/Ravelin/published/"

section "Which layout and tree each shipped target gets"
for target in desktop folder-background folder-item drive file-item \
              taskbar-background taskbar-clock taskbar-start taskbar-app; do
  ctl custom-model effective "$target"
done

section "A file extension, a file class and a namespace (no fallback in this report)"
ctl custom-model effective file:.txt --json
ctl custom-model effective class:image
ctl custom-model effective 'namespace:{20d04fe0-3aea-1069-a2d8-08002b30309d}'

section "Mistakes are refused and change nothing"
ctl custom-model publish "$schema"
ctl custom-model publish "$schema" "Z:$root/README.md"
ctl custom-model effective bogus
ctl custom-model preview desktop

# The user's overlay lives in the settings folder; the resets find it there.
settings="$localappdata/Orvanta/Brenlowpack/Settings"
overlay_win='C:\users\'"$user"'\AppData\Local\Orvanta\Brenlowpack\Settings\Context menu layout overrides.json'
mkdir -p "$settings"
cat > "$settings/Context menu layout overrides.json" <<'JSON'
{
  "document_kind": "overlay",
  "schema_version": 2,
  "baseline_version": "win11-shell-2026.11",
  "insertions": [
    {"layout_id": "folder-background-default", "parent_id": "new",
     "node": {"type": "command", "id": "my-notes", "command_id": "user:{6f1c2a9e-3b7d-4c1e-9a55-2d8e0b7c4f10}",
              "title": "Open notes", "executable": "C:\\Windows\\notepad.exe", "arguments": ["notes.txt"]}}
  ],
  "node_overrides": [
    {"layout_id": "desktop-default", "node_id": "personalize", "visibility": "hidden"},
    {"layout_id": "drive-default", "node_id": "format", "title_override": "Format drive..."}
  ],
  "command_defaults": [
    {"command_id": "product:quick-pins", "quick_pins": {"list": "Work"}}
  ]
}
JSON

section "The user's overlay: validate it (writes nothing), then publish it"
ctl custom-model validate-user "$schema" "$baseline" "$overlay_win"
ctl custom-model publish-user "$schema" "$baseline" "$overlay_win" --json
ctl custom-model effective desktop
ctl custom-model effective drive

section "Reset one target: what would change, then the reset itself"
ctl custom-model prepare-reset "$schema" "$baseline" drive
ctl custom-model reset "$schema" "$baseline" taskbar-clock
ctl custom-model reset "$schema" "$baseline" drive
cat "$settings/Context menu layout overrides.json"

section "Reset everything: the overlay goes and the baseline is published again"
ctl custom-model reset "$schema" "$baseline"
ctl custom-model reset "$schema" "$baseline"

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

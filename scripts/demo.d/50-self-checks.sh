# The self-check suites over the shipped fixtures, run as an operator would on an installed
# machine: from the installation folder, with its own relative paths. They write nothing.
section "Self-checks of the model and placement rules on the shipped fixtures"
(cd "$root/dist" &&
  ctl model-contracts 'Schema\custom-menu.schema.json' 'Content\Contracts\model' \
    'Content\Menus\create-organize.baseline.json' &&
  ctl placement-contracts 'Schema\custom-menu.schema.json' 'Content\Contracts\placement')

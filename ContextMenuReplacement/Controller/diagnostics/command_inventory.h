#pragma once
// `inventory [--json]`: the first-party command table and a probe of each command's class in
// this process.
//
// Table format: Content\Inventory\first-party-commands.json beside the controller, UTF-8:
//   {"commands":[{"identity":"product:<name>",       the command's persistent identity
//                 "clsid":"{...}",                   the class that implements the command
//                 "canonicalName":"{...}",           what the object's GetCanonicalName reports
//                 "title":"...",                     the title the command picker shows
//                 "families":["folder-item", ...]}]} target families the command applies to
//   Every member is required; both GUIDs are written in braces.
//
// Console texts:
//   --json   the commands array, one line: [{"identity","clsid","canonicalName","title",
//            "families"}]; COM is not touched.
//   text     "First-party command inventory (<n> commands):" then per command
//            "  <identity> '<title>' <clsid>", "    Contexts: a, b",
//            "    Activation: ok." or "    Activation: CoCreateInstance failed with 0x%08lX:
//            <text>.", "    Site support: ok." or "    Site support: IObjectWithSite is missing,
//            0x%08lX: <text>.", "    Canonical name: ok." or "    Canonical name: IExplorerCommand
//            is missing, ...", "    Canonical name: GetCanonicalName failed with 0x%08lX: <text>."
//            or "    Canonical name: '<reported>' differs from '<expected>'." Exit 0 when every
//            probe passed, 1 otherwise.
//   table faults (exit 1) "The command inventory '<path>' is not valid JSON: <text> (offset
//            <n>).", "Command <i> of the command inventory '<path>' has no string '<key>'.",
//            "... has '<text>' as '<key>', which is not a CLSID in braces.", "... has no
//            'families' array of strings.", "The command inventory '<path>' has no 'commands'
//            array."

#include <string>
#include <string_view>
#include <vector>

#include "common/status.h"

namespace cmr {

struct InventoryCommand {
  std::wstring identity;
  std::wstring clsid;
  std::wstring canonicalName;
  std::wstring title;
  std::vector<std::wstring> families;
};

// Pure: reads the table's text; `path` only names the file in messages.
[[nodiscard]] Result<std::vector<InventoryCommand>> ParseCommandInventory(std::string_view text,
                                                                          const std::wstring& path);
// Pure: the one-line JSON of the table.
[[nodiscard]] std::wstring CommandInventoryJson(const std::vector<InventoryCommand>& commands);

[[nodiscard]] std::wstring CommandInventoryPath();

[[nodiscard]] int RunInventoryVerb(bool json);

}  // namespace cmr

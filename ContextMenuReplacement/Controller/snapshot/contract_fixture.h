#pragma once
// One self-check fixture: a JSON file that states its inputs and the outcome the program's own
// code must produce for them. The checks run the real model code (identities, documents,
// schema, inheritance, overlay merge, placement, matching) and never write anything.
//
// A fixture is an object with "cases" (and an optional "about" for the reader). Two shapes:
//
//   {"probe": "<name>", "cases": [[<input>, <expected>], ...]}
//     One function applied to each input; its answer is a text (a list answer is compared
//     with an array of texts). Probes:
//       identity        text -> "windows", "com-canonical", "com-catalog", "product", "user",
//                       "ephemeral", "invalid", or "provider-wide" (the whole-provider form)
//       identity-order  array of identities -> the array in its sorted order
//       reference-key   extension-rule or node object -> its reference key
//       legacy-id       a predecessor release's id -> today's id
//       header          document -> "<kind> schema <n> declared|assumed style <style>", or
//                       the refusal
//       target          target text -> "<family> [namespace x] [extension x] [class x]
//                       selection <arity>", or the refusal
//       match           {"layouts": [match objects], "target": text, "class": text,
//                       "resolve": bool} -> "layout <index> score <n>", "none" or "ambiguous"
//       file-class      {"perceived", "mime", "registered": {value name: text}} -> the class,
//                       then " after reading A, B" when the registration was read
//       draft-id        text -> "valid" or "invalid"
//
//   {"baseline": <document or shipped file name>, "overlay": <document>, "expect": {...},
//    "cases": [{"baseline"?, "overlay"?, "expect"}, ...]}
//     The documents go through validation, the overlay merge or placement model, flattening,
//     parsing and compilation exactly as publish-user would take them. A case inherits the
//     fixture's "baseline", "overlay" and "expect" unless it gives its own. "expect" holds
//     "refusal" (the exact message), or any of: "layouts" (published ids in order), "targets"
//     ([{"target", "class"?, "resolve"?, "layout": id or null, "tree"?: lines as
//     custom-model effective prints them}]), "definitions" (compiled identities in order),
//     "policies", "rules" (one line each, see the fixtures), "restamped" (bool).
//
// Inside any array, {"$repeat": n, "as": "i", "each": <value>} stands for n copies of the value
// with "{i}" in its strings replaced by 0 .. n-1 (zero-padded to "width" digits when given), so
// a fixture can reach a limit.

#include <rapidjson/document.h>

#include <string>
#include <utility>
#include <vector>

namespace cmr {

struct ContractInputs {
  const rapidjson::Document* schema = nullptr;
  // Shipped baselines a fixture may name by file name: (file name, document).
  std::vector<std::pair<std::wstring, const rapidjson::Document*>> baselines;
};

// Expands every "$repeat" of `fixture` in place.
void ExpandRepeats(rapidjson::Document& fixture);

// "" when every case holds; otherwise why the first failing case does not.
[[nodiscard]] std::wstring CheckContractFixture(const rapidjson::Value& fixture,
                                                const ContractInputs& inputs);

}  // namespace cmr

#pragma once
// The schema-3 placement model: instead of overrides and insertions, the overlay says where
// commands are placed. It may replace whole baseline layouts ("layouts"), attach ordered lists
// of placement edits to them ("layout_edits": insert, remove, move, each placed at the end or
// before/after a sibling anchor, under the root or a submenu), add custom command definitions
// and state command policies (visibility and title per command, globally or for one scope).
//
// A layout's edits are applied while its inheritance is resolved, after its inherited and own
// rows are in place, in authored order; children then inherit the edited rows and add their
// own edits after the parent's. Placement draft ids are checked by IsValidDraftId
// (common/data_paths.h).

#include <rapidjson/document.h>

#include "common/status.h"

namespace cmr {

// Merges a vetted schema-3 overlay into `merged` (on entry: the schema-valid baseline) and
// flattens it: definitions, policies, layout replacements, edit lists, inheritance with the
// edits, fallback ranks, abstract layouts dropped. The first refusal ends the merge.
[[nodiscard]] Status MergePlacementOverlay(rapidjson::Document& merged,
                                           const rapidjson::Value& overlay);

// Applies one layout's "edits" to its rows and removes the list. A resolution step for
// ResolveInheritance.
[[nodiscard]] Status ApplyPlacementEdits(rapidjson::Value& layout,
                                         rapidjson::Document::AllocatorType& allocator);

}  // namespace cmr

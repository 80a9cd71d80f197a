#pragma once
// The user's overlay merged onto the shipped baseline, on the JSON DOM.
//
// The user never edits the baseline: the overlay names baseline layouts and nodes by id and
// says what to change. Before anything is merged the overlay is vetted against the baseline it
// is meant for (VetOverlay): same schema version, the predecessor release's stamps migrated,
// same menu style, same baseline version. Then MergeOverlay builds the merged document in
// place of the baseline, flattened and ready for ParseModelDocument:
//   schema 1 and 2: overlay layouts appended, inheritance resolved, insertions, fallback
//     ranks, shared command settings ("command_defaults"), node overrides (cascading to the
//     inherited copies through "_ancestors" and "_from"), overlay extension rules appended
//     with "_from_overlay", abstract layouts dropped;
//   schema 3: the placement model (placement_model.h).
// The first refusal ends the merge; the document is then partly merged and must not be used.

#include <rapidjson/document.h>

#include <string>
#include <string_view>

#include "common/status.h"
#include "model/model_document.h"

namespace cmr {

// Stamps of the predecessor release. An overlay saved by slice 2 used its prefixed node ids
// and is migrated; the other two differ only in the label.
inline constexpr std::string_view kPredecessorMigratedStamp = "win11-shell-2026.08-slice2";
inline constexpr std::string_view kPredecessorRestampedStamps[] = {"win11-shell-2026.08-slice3",
                                                                   "win11-cm-2026.08"};

// The pre-merge checks on the overlay's header, in order: equal schema versions, predecessor
// migration (only onto the "create-organize" style, which succeeded that release), menu style,
// baseline version. A migration rewrites `overlay` in place (legacy ids normalised, the
// baseline's "baseline_version" stamped) and sets `restamped`, so the caller can save the
// re-stamped text back over the user's file.
[[nodiscard]] Status VetOverlay(const DocumentHeader& baseline, rapidjson::Document& overlay,
                                bool& restamped);

// Merges the vetted `overlay` into `merged` (on entry: the schema-valid baseline). On success
// `merged` holds every published layout flattened; parse it with ParseModelDocument.
[[nodiscard]] Status MergeOverlay(rapidjson::Document& merged, const rapidjson::Value& overlay);

}  // namespace cmr

#pragma once
// The transaction around the user's overlay: publication with the overlay merged, validation
// without publication, and the two resets, each of which leaves on disk either the new state
// or the exact old one, never a mixture.
//
// Every file step goes through FileOperations, so a test can fail any one of them. The steps:
//   publish with overlay: read schema, baseline, overlay; [write back a re-stamped overlay];
//     publish (create folder, read control, write snapshot, write control).
//   full reset: inspect and read the overlay; read schema and baseline (compile only); delete
//     the overlay; publish the baseline; on failure restore the overlay's bytes (or delete
//     any overlay when there was none) and republish the previous state.
//   candidate reset: inspect and read the overlay; stage the candidate beside it
//     (".candidate-<pid>"), compile baseline + staged candidate, delete the staged file (in
//     every case); write the candidate over the overlay; publish with it; on failure the
//     same rollback as the full reset.
// A publication and both resets run as one OverlayTransaction: under the custom model's
// publication lock, after removing what killed runs staged beside the overlay. The staged
// names and that clean-up rule are in snapshot/overlay_staging.h.

#include <rapidjson/document.h>

#include <optional>
#include <string>

#include "common/file_operations.h"
#include "model/model_types.h"
#include "snapshot/publish_pipeline.h"

namespace cmr {

struct ModelSources {
  std::wstring schemaPath;
  std::wstring baselinePath;
  std::wstring overlayPath;  // empty: the baseline alone
};

// Validates both documents against `schema`, vets the overlay, merges it (or, with no overlay,
// flattens the baseline alone) and parses the result into `model`: the steps between reading
// the files and compiling the snapshot, which write nothing. `merged` holds the baseline on
// entry; `overlay` is null for the baseline alone. `restamped` says the overlay was migrated
// from the predecessor release and `*overlay` now holds the re-stamped document.
[[nodiscard]] Status MergeModelDocuments(const rapidjson::Document& schema,
                                         rapidjson::Document& merged, rapidjson::Document* overlay,
                                         ModelDocument& model, bool& restamped);

// Reads, validates, vets, merges, flattens, parses and compiles; with `publish` set also
// writes a re-stamped overlay back and publishes. With it clear nothing is written and no
// version is taken (validate-user).
[[nodiscard]] ModelPipelineResult PublishWithOverlay(const ModelSources& sources, bool publish,
                                                     FileOperations& files);

// Removes the overlay (no candidate) or replaces it by `candidate`, then republishes, with the
// rollback described above. `overlayExisted` tells the caller whether there was one.
[[nodiscard]] ModelPipelineResult ResetOverlay(const ModelSources& sources,
                                               const std::optional<std::string>& candidate,
                                               FileOperations& files,
                                               bool* overlayExisted = nullptr);

// An overlay document as it is saved: UTF-8, indented by two spaces, ending in a line feed.
[[nodiscard]] std::string PrettyOverlayText(const rapidjson::Value& document);

}  // namespace cmr

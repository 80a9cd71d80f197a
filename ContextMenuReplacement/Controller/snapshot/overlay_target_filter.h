#pragma once
// The target-scoped reset: from the user's overlay, the customisations that reference one
// target are removed and the rest is kept as it was.
//
// A customisation references the target when it is aimed at a layout that serves it: an
// overlay layout (or schema-3 layout replacement) whose match scores for the target, an
// insertion, node override or schema-3 edit list naming such a layout or one of the layouts
// it inherits from, and an extension rule whose family, namespace, extension and file class
// all admit the target.

#include <rapidjson/document.h>

#include <optional>
#include <string>

#include "common/status.h"
#include "snapshot/target_matching.h"

namespace cmr {

// Removes from `overlay` every entry that references `target`; `baseline` supplies the
// layouts the overlay names. Returns the number of entries removed. Fails when the overlay is
// not a JSON object.
[[nodiscard]] Result<size_t> FilterOverlayForTarget(rapidjson::Document& overlay,
                                                    const rapidjson::Value& baseline,
                                                    const MenuTarget& target);

}  // namespace cmr

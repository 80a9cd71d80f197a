#pragma once
// `status`: whether the feature is really in effect, which is not the same as whether the
// registry writes succeeded. It combines the classic-mode reading, the recorded state, the
// boot-restore entry, the published configuration version, the Hook's own status lines and
// the verdict of the Hook's suppression probe. `status --json` is one line for the product's
// other components (the tray and Settings poll it).

#include <cstdint>
#include <string>

#include "lifecycle/suppression_strategy.h"
#include "state/lifecycle_state.h"

namespace cmr {

struct StatusFacts {
  ClassicModeReading reading;
  LifecycleState state;
  bool bootRestoreArmed = false;
  uint32_t publishedConfigVersion = 0;  // 0 when none was published
};

// The eleven keys in their fixed order, no blanks, no line feed.
[[nodiscard]] std::wstring StatusJson(const StatusFacts& facts);

// `json`: prints StatusJson and returns 0. Otherwise prints the text report and returns the
// result of the "status" command sent to the Hooks (0 delivered, 1 no initialised Hook).
int RunStatusVerb(bool json);

}  // namespace cmr

#pragma once
// The restart-loop guard of `enable`: an Explorer that keeps restarting while the feature is on
// is the signature of the hook destabilising it, and re-injecting would make a loop the user
// cannot get out of. The guard counts the Explorer starts it sees across enable attempts in a
// ten-minute window kept in the lifecycle state.

#include <cstdint>

#include "state/lifecycle_state.h"

namespace cmr {

// 600 seconds in FILETIME ticks.
inline constexpr uint64_t kRestartWindowTicks = 6'000'000'000ull;
inline constexpr uint32_t kRestartsRefused = 10;

// Updates the guard fields of `state` for one enable attempt. `currentStart` is the creation
// FILETIME of the first Explorer found (0 none or unreadable), `now` the current FILETIME.
// Returns true when the attempt must be refused (the caller then writes nothing back);
// `force` lets it through.
[[nodiscard]] bool CheckRestartLoop(LifecycleState& state, uint64_t currentStart, uint64_t now,
                                    bool force);

}  // namespace cmr

#include "lifecycle/restart_loop_guard.h"

namespace cmr {

bool CheckRestartLoop(LifecycleState& state, uint64_t currentStart, uint64_t now, bool force) {
  // Unsigned on purpose: a clock set back makes the window look ancient, which opens a new one.
  const bool windowExpired =
      state.restartWindowStart != 0 && now - state.restartWindowStart > kRestartWindowTicks;
  const bool restartSeen =
      currentStart != 0 && state.lastExplorerStart != 0 && currentStart != state.lastExplorerStart;
  if (restartSeen) {
    if (state.restartWindowStart == 0 || windowExpired) {
      state.restartWindowStart = now;
      state.explorerRestarts = 1;
    } else {
      ++state.explorerRestarts;
    }
  } else if (windowExpired) {
    state.restartWindowStart = 0;
    state.explorerRestarts = 0;
  }
  state.lastExplorerStart = currentStart;
  return state.explorerRestarts >= kRestartsRefused && !force;
}

}  // namespace cmr

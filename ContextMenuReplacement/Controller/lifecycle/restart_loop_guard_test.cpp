#include "lifecycle/restart_loop_guard.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

constexpr uint64_t kNow = 0x01DC5C0000000000ull;
constexpr uint64_t kOld = 0x01DC500000000000ull;  // an Explorer start long before
constexpr uint64_t kNew = 0x01DC5BFF00000000ull;  // the Explorer running now

TEST(RestartLoopGuard, OneRowPerRule) {
  const uint64_t inWindow = kNow - kRestartWindowTicks;  // exactly 600 s: still open
  const uint64_t pastWindow = inWindow - 1;              // one tick more: expired
  const struct {
    const char* rule;
    uint32_t restarts;
    uint64_t windowStart, lastStart, currentStart;
    bool force;
    uint32_t restartsAfter;
    uint64_t windowAfter;
    bool refused;
  } cases[] = {
      {"first attempt: no restart seen", 0, 0, 0, kNew, false, 0, 0, false},
      {"same Explorer: no restart", 3, inWindow, kNew, kNew, false, 3, inWindow, false},
      {"no Explorer now: no restart", 3, inWindow, kOld, 0, false, 3, inWindow, false},
      {"restart opens a window", 0, 0, kOld, kNew, false, 1, kNow, false},
      {"restart counts within 600 s", 8, inWindow, kOld, kNew, false, 9, inWindow, false},
      {"tenth restart refused", 9, inWindow, kOld, kNew, false, 10, inWindow, true},
      {"tenth restart forced", 9, inWindow, kOld, kNew, true, 10, inWindow, false},
      {"restart after 600 s opens a new window", 9, pastWindow, kOld, kNew, false, 1, kNow, false},
      {"quiet window older than 600 s resets", 12, pastWindow, kNew, kNew, false, 0, 0, false},
      {"quiet window of 600 s still refuses", 12, inWindow, kNew, kNew, false, 12, inWindow, true},
  };
  for (const auto& c : cases) {
    LifecycleState state{true, true,       true,          1,          false, L"",
                         L"",  c.restarts, c.windowStart, c.lastStart};
    SCOPED_TRACE(c.rule);
    EXPECT_EQ(CheckRestartLoop(state, c.currentStart, kNow, c.force), c.refused);
    // Only the guard's three counters change.
    EXPECT_EQ(state, (LifecycleState{true, true, true, 1, false, L"", L"", c.restartsAfter,
                                     c.windowAfter, c.currentStart}));
  }
}

}  // namespace
}  // namespace cmr

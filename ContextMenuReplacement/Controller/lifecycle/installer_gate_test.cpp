#include "lifecycle/installer_gate.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

constexpr uint64_t kStart = 0x01DC5C0000000000ull;

TEST(InstallerGate, OneRowPerOutcome) {
  const struct {
    const char* rule;
    InstallerFacts facts;
    bool busy;
  } rows[] = {
      {"no installer recorded", {0, kStart, ERROR_SUCCESS, kStart, true}, false},
      {"no creation time recorded", {42, std::nullopt, ERROR_ACCESS_DENIED, {}, false}, false},
      {"access denied", {42, kStart, ERROR_ACCESS_DENIED, {}, false}, true},
      {"process gone", {42, kStart, ERROR_INVALID_PARAMETER, {}, false}, false},
      {"times unreadable", {42, kStart, ERROR_SUCCESS, std::nullopt, true}, true},
      {"same process, running", {42, kStart, ERROR_SUCCESS, kStart, true}, true},
      {"same process, finished", {42, kStart, ERROR_SUCCESS, kStart, false}, false},
      {"reused id, one tick later", {42, kStart, ERROR_SUCCESS, kStart + 1, true}, false},
      {"reused id, one tick earlier", {42, kStart, ERROR_SUCCESS, kStart - 1, true}, false},
  };
  for (const auto& row : rows) EXPECT_EQ(InstallerBusy(row.facts), row.busy) << row.rule;
}

}  // namespace
}  // namespace cmr

#include "diagnostics/provider_strikes.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

constexpr uint64_t kDay = kStrikeWindow / 7;

TEST(ProviderStrikes, WindowCountsStrikesUpToSevenDaysBeforeTheNewest) {
  const uint64_t newest = 1000 * kDay;
  struct Row {
    std::vector<uint64_t> strikes;
    std::vector<bool> expired;
    bool blocked;
  } rows[] = {
      {{}, {}, false},
      {{newest - kStrikeWindow, newest - 1, newest}, {false, false, false}, true},
      {{newest - kStrikeWindow - 1, newest - 1, newest}, {true, false, false}, false},
      // Order does not matter: the newest is found, not assumed last.
      {{newest, newest - kStrikeWindow, newest - kDay}, {false, false, false}, true},
      {{newest, newest}, {false, false}, false},
  };
  for (const Row& row : rows) {
    const StrikeVerdict verdict = JudgeStrikes(row.strikes);
    EXPECT_EQ(verdict.expired, row.expired);
    EXPECT_EQ(verdict.blocked, row.blocked);
  }
}

TEST(ProviderStrikes, DecodesWholeLittleEndianFileTimesOnly) {
  const std::string bytes(
      "\x01\x02\0\0\0\0\0\x80"
      "\x05\0\0\0\0\0\0\0"
      "\x07\x07",
      18);
  EXPECT_EQ(DecodeStrikes(bytes), (std::vector<uint64_t>{0x8000000000000201ull, 5}));
  EXPECT_TRUE(DecodeStrikes(std::string(7, '\1')).empty());
}

TEST(ProviderStrikes, ClsidTextNeedsBracesSoProgIdsDoNotPass) {
  EXPECT_TRUE(IsClsidText(L"{00021401-0000-0000-C000-000000000046}"));
  EXPECT_FALSE(IsClsidText(L"00021401-0000-0000-C000-000000000046"));
  EXPECT_FALSE(IsClsidText(L"{00021401-0000-0000-C000-00000000004G}"));
  EXPECT_FALSE(IsClsidText(L"{00021401-0000-0000-C000-0000000000461}"));
  EXPECT_FALSE(IsClsidText(L"lnkfile"));
}

}  // namespace
}  // namespace cmr

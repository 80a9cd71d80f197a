#include "common/string_pool.h"

#include <gtest/gtest.h>

#include <string>

namespace cmr {
namespace {

// Equal strings share their first offset, case counts, each ends with a zero, the empty string
// is (0, 0), and all of it stays exact while the pool grows.
TEST(StringPool, EqualStringsShareTheirFirstOffsetAcrossGrowth) {
  StringPool pool;
  EXPECT_EQ(pool.Intern(L"Open"), (StringRef{0, 4}));
  EXPECT_EQ(pool.Intern(L"open"), (StringRef{5, 4}));
  EXPECT_EQ(pool.Intern(L""), (StringRef{0, 0}));
  EXPECT_EQ(pool.units(),
            (std::vector<char16_t>{u'O', u'p', u'e', u'n', 0, u'o', u'p', u'e', u'n', 0}));
  std::vector<StringRef> first;
  for (int i = 0; i < 5000; ++i) first.push_back(pool.Intern(L"item-" + std::to_wstring(i)));
  EXPECT_EQ(pool.Intern(L"Open"), (StringRef{0, 4}));
  for (int i = 4999; i >= 0; --i) {
    EXPECT_EQ(pool.Intern(L"item-" + std::to_wstring(i)), first[static_cast<size_t>(i)]);
  }
  const StringRef last = first.back();
  EXPECT_EQ(std::u16string(pool.units().data() + last.offset, last.length + 1),
            std::u16string(u"item-4999\0", 10));
}

}  // namespace
}  // namespace cmr

#include "config/config_snapshot.h"

#include <gtest/gtest.h>

#include <cstring>

// The starter's published files are compared byte for byte in config_verbs_e2e_test.cpp.

namespace cmr {
namespace {

// Each reader rule at its bound and one past it. The pool "T", "xy.exe" is 9 units, so the
// image ends in zero padding that a check reading one unit too far would take for a terminator.
TEST(ConfigSnapshot, ReaderRulesAtTheBoundAndOnePast) {
  MenuConfiguration config;
  config.profiles.push_back({kContextFolderItem, 0, 1});
  ItemRecord item;
  item.source = ItemSource::user;
  item.title = config.pool.Intern(L"T");
  item.executable = config.pool.Intern(L"xy.exe");
  item.argumentCount = 1;
  config.items.push_back(item);
  config.arguments.push_back(config.pool.Intern(L"T"));
  const std::string good = FlattenConfiguration(config, 3);
  // Profiles at 48, the item at 64, the argument at 112, the pool at 120.
  const struct {
    const char* rule;
    size_t at;
    uint32_t bound, past;
  } rows[] = {
      {"profile's item range against the item region", 56, 1, 2},
      {"item's argumentCount against the argument region", 88, 1, 2},
      {"item's source", 64, 3, 4},
      {"executable's reference: its terminator is the pool's last unit", 80, 6, 7},
      {"title's length", 72, 1, 2},
      {"argument's length", 116, 1, 2},
      {"the version the control file names", 8, 3, 4},
      {"profilesOffset", 20, 48, 56},
      {"profile region against itemsOffset", 16, 1, 2},
      {"item region against argumentsOffset", 24, 1, 2},
      {"argumentsOffset against the item region", 36, 108, 107},
      {"argument region against poolOffset", 32, 1, 2},
      {"pool against totalBytes", 44, 24, 26},
      {"poolBytes even", 44, 18, 19},
      {"totalBytes against the file size", 12, 144, 145},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.rule);
    std::string image = good;
    std::memcpy(image.data() + row.at, &row.bound, 4);
    EXPECT_EQ(CheckSnapshotImage(image, 3).message(), L"");
    std::memcpy(image.data() + row.at, &row.past, 4);
    EXPECT_NE(CheckSnapshotImage(image, 3).message(), L"");
  }
}

}  // namespace
}  // namespace cmr

#include "config/config_snapshot.h"

#include <gtest/gtest.h>

#include <cstring>

#include "common/byte_image.h"
#include "common/json_text.h"
#include "config/menu_document.h"

// The starter's published files are decoded field by field in config_verbs_e2e_test.cpp.

namespace cmr {
namespace {

std::vector<uint32_t> Words(const std::string& image, size_t from, size_t count) {
  ByteImageReader in(image);
  std::vector<uint32_t> words;
  for (size_t i = 0; i < count; ++i) words.push_back(in.U32(from + 4 * i));
  return words;
}

TEST(ConfigSnapshot, WorkedSizes) {
  const std::string none = FlattenConfiguration(MenuConfiguration{}, 0);
  EXPECT_EQ(none.size(), 48u);
  EXPECT_EQ(Words(none, 0, 12),
            (std::vector<uint32_t>{0x424E43D5, 18, 0, 48, 0, 48, 0, 48, 0, 48, 48, 0}));
  EXPECT_EQ(none.substr(0, 4), "\xD5\x43\x4E\x42");

  MenuConfiguration one;
  one.profiles.push_back({kContextFolderItem, 0, 1});
  one.items.push_back({ItemSource::separator, {}, {}, 0, 0, {}});
  const std::string image = FlattenConfiguration(one, 5);
  ASSERT_EQ(image.size(), 112u);
  EXPECT_EQ(Words(image, 0, 12),
            (std::vector<uint32_t>{0x424E43D5, 18, 5, 112, 1, 48, 1, 64, 0, 112, 112, 0}));
  EXPECT_EQ(Words(image, 48, 3), (std::vector<uint32_t>{0x08, 0, 1}));
  // Padding after the profile row and after the item row is zero.
  EXPECT_EQ(image.substr(60, 4), std::string(4, '\0'));
  EXPECT_EQ(Words(image, 64, 1), std::vector<uint32_t>{3});
  EXPECT_EQ(image.substr(68, 44), std::string(44, '\0'));
}

// Items use the pool (its sharing is the pool's own test); no arguments point at the end.
TEST(ConfigSnapshot, ItemsShareThePoolAndEmptyArgumentRunsPointAtTheEnd) {
  rapidjson::Document document;
  JsonParseFailure failure;
  ASSERT_TRUE(ParseJsonText(
      R"({"profiles":[{"match":{"context":["folder-item"]},"items":[
          {"source":"user","title":"Edit","executable":"a.exe","arguments":["Edit"]},
          {"source":"user","title":"Edit","executable":"b.exe"}]}]})",
      false, document, failure));
  MenuConfiguration config;
  MessageList errors, warnings;
  ASSERT_TRUE(ParseMenuDocument(document, config, errors, warnings));
  EXPECT_EQ(config.arguments[0], config.items[1].title);
  EXPECT_EQ(std::make_pair(config.items[1].firstArgument, config.items[1].argumentCount),
            std::make_pair(1u, 0u));
}

// What no menu.json can set: the edges of the control block's fields.
TEST(ConfigSnapshot, ControlBlockEdges) {
  MenuConfiguration config;
  config.enabled = false;
  config.opacityPercent = 0;
  config.appearance.fontFamily = std::wstring(40, L'F');
  config.appearance.backgroundImagePath = L"C:\\x.png";
  config.appearance.snapshotBlurEnabled = false;
  const std::string block = EncodeControlBlock(config, 9);
  ASSERT_EQ(block.size(), 720u);
  EXPECT_EQ(Words(block, 8, 4), (std::vector<uint32_t>{9, 0, 6, 78}));
  // 31 units of the 40 and a terminator, then the image path and zero padding.
  std::u16string units(31, u'F');
  units.resize(32);
  units += u"C:\\x.png";
  units.resize(292);
  EXPECT_EQ(block.substr(92, 584), std::string(reinterpret_cast<const char*>(units.data()), 584));
  EXPECT_EQ(Words(block, 688, 1), std::vector<uint32_t>{1});
}

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
  ASSERT_EQ(CheckSnapshotImage(good, 3), L"");
  // Profiles at 48, the item at 64, the argument at 112, the pool at 120.
  const struct {
    size_t at;
    uint32_t bound, past;
  } rows[] = {
      {56, 1, 2},    // the profile's itemCount against the item region
      {52, 0, 1},    // the profile's firstItem
      {88, 1, 2},    // the item's argumentCount against the argument region
      {64, 3, 4},    // the item's source
      {80, 6, 7},    // the executable's length: its terminator is the pool's last unit
      {76, 2, 3},    // the executable's offset
      {72, 1, 2},    // the title's length
      {116, 1, 2},   // the argument's length
      {8, 3, 4},     // the version the control file names
      {20, 48, 56},  // profilesOffset
  };
  for (const auto& row : rows) {
    std::string image = good;
    std::memcpy(image.data() + row.at, &row.bound, 4);
    EXPECT_EQ(CheckSnapshotImage(image, 3), L"") << row.at;
    std::memcpy(image.data() + row.at, &row.past, 4);
    EXPECT_NE(CheckSnapshotImage(image, 3), L"") << row.at;
  }
}

}  // namespace
}  // namespace cmr

#include "config/config_snapshot.h"

#include <gtest/gtest.h>

#include "common/byte_image.h"
#include "common/json_text.h"
#include "config/menu_document.h"

namespace cmr {
namespace {

std::vector<uint32_t> Words(const std::string& image, size_t from, size_t count) {
  ByteImageReader in(image);
  std::vector<uint32_t> words;
  for (size_t i = 0; i < count; ++i) words.push_back(in.U32(from + 4 * i));
  return words;
}

std::u16string PoolText(const std::string& image, uint32_t poolOffset, uint32_t offset,
                        uint32_t length) {
  ByteImageReader in(image);
  std::u16string text;
  for (uint32_t i = 0; i < length; ++i) text += in.Unit(poolOffset + 2 * (offset + i));
  EXPECT_EQ(in.Unit(poolOffset + 2 * (offset + length)), 0);
  return text;
}

TEST(ConfigSnapshot, WorkedSizes) {
  MenuConfiguration empty;
  const std::string none = FlattenConfiguration(empty, 0);
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
  EXPECT_EQ(CheckSnapshotImage(image, 5), L"");
  EXPECT_NE(CheckSnapshotImage(image, 6), L"");
}

TEST(ConfigSnapshot, StarterDocumentDecodedFieldByField) {
  rapidjson::Document document;
  JsonParseFailure failure;
  ASSERT_TRUE(ParseJsonText(StarterDocumentText(), true, document, failure));
  MenuConfiguration config;
  MessageList errors, warnings;
  ASSERT_TRUE(ParseMenuDocument(document, config, errors, warnings));
  const std::string image = FlattenConfiguration(config, 1);

  // 2 profiles (24) -> items at 72; 8 items (352) -> arguments at 424; 4 arguments -> pool 456.
  using namespace std::string_literals;
  const std::u16string pool =
      u"Open PowerShell here\0powershell.exe\0-NoExit\0-Command\0"
      u"Set-Location -LiteralPath $args[0]\0{targetDir}\0"s;
  ASSERT_EQ(pool.size(), 100u);
  EXPECT_EQ(PoolText(image, 456, 0, 99), pool.substr(0, 99));
  EXPECT_EQ(Words(image, 0, 12),
            (std::vector<uint32_t>{0x424E43D5, 18, 1, 656, 2, 48, 8, 72, 4, 424, 456, 200}));
  EXPECT_EQ(image.size(), 656u);
  EXPECT_EQ(Words(image, 48, 6), (std::vector<uint32_t>{0x0E, 0, 5, 0x10, 5, 3}));
  const uint32_t sources[] = {1, 3, 2, 3, 0, 1, 3, 0};
  for (uint32_t i = 0; i < 8; ++i) {
    const std::vector<uint32_t> row = Words(image, 72 + 44 * i, 11);
    EXPECT_EQ(row[0], sources[i]) << i;
    if (sources[i] != 2) {
      EXPECT_EQ(std::vector<uint32_t>(row.begin() + 1, row.begin() + 5),
                std::vector<uint32_t>(4, 0))
          << i;
      EXPECT_EQ(row[6], 0u) << i;
    }
    EXPECT_EQ(std::vector<uint32_t>(row.begin() + 7, row.end()), std::vector<uint32_t>(4, 0)) << i;
  }
  // The user command: title, executable, arguments 0..3.
  EXPECT_EQ(Words(image, 72 + 44 * 2, 7), (std::vector<uint32_t>{2, 0, 20, 21, 14, 0, 4}));
  EXPECT_EQ(Words(image, 424, 8), (std::vector<uint32_t>{36, 7, 44, 8, 53, 34, 88, 11}));
  EXPECT_EQ(PoolText(image, 456, 0, 20), u"Open PowerShell here");
  EXPECT_EQ(PoolText(image, 456, 88, 11), u"{targetDir}");
  EXPECT_EQ(CheckSnapshotImage(image, 1), L"");
}

TEST(ConfigSnapshot, EqualTitlesShareOnePoolEntry) {
  rapidjson::Document document;
  JsonParseFailure failure;
  ASSERT_TRUE(ParseJsonText(
      R"({"profiles":[{"match":{"context":["folder-item"]},"items":[
          {"source":"user","title":"Edit","executable":"a.exe","arguments":["Edit"]},
          {"source":"user","title":"Edit","executable":"b.exe"},
          {"source":"user","title":"edit","executable":"a.exe"}]}]})",
      false, document, failure));
  MenuConfiguration config;
  MessageList errors, warnings;
  ASSERT_TRUE(ParseMenuDocument(document, config, errors, warnings));
  EXPECT_EQ(config.items[0].title, config.items[1].title);
  EXPECT_EQ(config.arguments[0], config.items[0].title);
  EXPECT_EQ(config.items[2].executable, config.items[0].executable);
  EXPECT_NE(config.items[2].title, config.items[0].title);  // case-sensitive
  // "Edit", "a.exe", "b.exe", "edit" with their terminators.
  EXPECT_EQ(config.pool.units().size(), 5u + 6u + 6u + 5u);
  // The item without arguments points at the current end of the arguments region.
  EXPECT_EQ(config.items[1].firstArgument, 1u);
  EXPECT_EQ(config.items[1].argumentCount, 0u);
}

TEST(ConfigSnapshot, ControlBlockFields) {
  MenuConfiguration config;
  config.enabled = false;
  config.bypassMask = 5;
  config.opacityPercent = 0;
  config.appearance.fontFamily = std::wstring(40, L'F');
  config.appearance.backgroundImagePath = L"C:\\x.png";
  config.appearance.snapshotBlurEnabled = false;
  config.appearance.surfaceOptOutMask = 0x21;
  const std::string block = EncodeControlBlock(config, 9);
  ASSERT_EQ(block.size(), 720u);
  EXPECT_EQ(Words(block, 0, 23),
            (std::vector<uint32_t>{0x424E43D5, 18,  9, 0, 5, 78, 400, 12, 16,  8, 8, 0,
                                   0,          100, 0, 0, 0, 0,  0,   0,  135, 1, 1}));
  // 31 units of the 40 and a terminator, then zero padding to 64 bytes.
  EXPECT_EQ(PoolText(block, 92, 0, 31), std::u16string(31, u'F'));
  EXPECT_EQ(PoolText(block, 156, 0, 8), u"C:\\x.png");
  EXPECT_EQ(block.substr(156 + 18, 520 - 18), std::string(520 - 18, '\0'));
  EXPECT_EQ(Words(block, 676, 11),
            (std::vector<uint32_t>{1, 30, 65, 1, 200, 0x21, 0, 0, 0, 0, 460}));
}

TEST(ConfigSnapshot, ReaderChecksCatchDamage) {
  MenuConfiguration config;
  config.profiles.push_back({kContextFolderItem, 0, 1});
  ItemRecord item;
  item.source = ItemSource::user;
  item.title = config.pool.Intern(L"T");
  item.executable = config.pool.Intern(L"x.exe");
  config.items.push_back(item);
  const std::string good = FlattenConfiguration(config, 3);
  ASSERT_EQ(CheckSnapshotImage(good, 3), L"");
  EXPECT_NE(CheckSnapshotImage(good.substr(0, good.size() - 8), 3), L"");
  std::string badProfile = good;
  badProfile[56] = 2;  // itemCount 2 of 1 item
  EXPECT_NE(CheckSnapshotImage(badProfile, 3), L"");
  std::string badString = good;
  badString[64 + 16] = 50;  // executable length past the pool
  EXPECT_NE(CheckSnapshotImage(badString, 3), L"");
  std::string badMagic = good;
  badMagic[0] = 0;
  EXPECT_NE(CheckSnapshotImage(badMagic, 3), L"");
}

}  // namespace
}  // namespace cmr

#include "config/settings_file.h"

#include <fmt/xchar.h>
#include <gtest/gtest.h>

#include "common/json_text.h"
#include "tests/support/golden_file.h"
#include "tests/support/shipped_schemas.h"
#include "tests/support/staged_install.h"

// Values and defaults reach control.bin, compared whole, in config_verbs_e2e_test.cpp.

namespace cmr {
namespace {

// A settings file whose entry holds `settings` (members of the settings object, without braces).
std::string SettingsText(const std::string& settings,
                         const std::string& status = R"("status":"enabled",)",
                         const std::string& otherApps = "") {
  return R"({"apps":[)" + otherApps + R"({"app_id":"context-menu-replacement",)" + status +
         R"("settings":{)" + settings + R"(}}]})";
}

struct Read {
  bool ok = false;
  MenuConfiguration config;
  MessageList errors;
};

Read Globals(const std::string& text) {
  Read r;
  rapidjson::Document document;
  JsonParseFailure failure;
  EXPECT_TRUE(ParseJsonText(text, true, document, failure)) << text;
  r.config.appearance = SettingsFileAppearance();
  r.ok = ReadSettingsGlobals(document, r.config, r.errors);
  // Every row also holds the shipped schema of the entry's keys to the reader's verdict.
  const rapidjson::Value& apps = document["apps"];
  EXPECT_EQ(ShippedSchemaAccepts(L"high-level-settings.schema.json",
                                 apps[apps.Size() - 1]["settings"], "globals"),
            r.errors.empty())
      << text;
  return r;
}

TEST(SettingsFile, EachRangeAtItsBoundsAndOnePast) {
  const auto ranges = GoldenRows(L"settings_ranges.tsv");
  ASSERT_EQ(ranges.size(), 13u);
  for (const auto& r : ranges) {
    SCOPED_TRACE(r[0]);
    const int minimum = std::stoi(r[1]), maximum = std::stoi(r[2]);
    const auto read = [&](const std::string& value) {
      return Globals(SettingsText(fmt::format(R"("{}":{})", r[0], value))).errors;
    };
    const MessageList refused{fmt::format(L"'{}' must be a whole number from {} to {}.",
                                          FromUtf8(r[0]), minimum, maximum)};
    EXPECT_EQ(read(std::to_string(minimum)), MessageList{});
    EXPECT_EQ(read(std::to_string(maximum)), MessageList{});
    EXPECT_EQ(read(std::to_string(minimum - 1)), refused);
    EXPECT_EQ(read(std::to_string(maximum + 1)), refused);
    EXPECT_EQ(read(std::to_string(minimum) + ".5"), refused);
  }
}

TEST(SettingsFile, WordsColoursNamesAndSwitchesAreCheckedExactly) {
  // The first bad number stops the read: neither the later number nor the boolean is examined.
  // The dialog settings are read before anything can stop the read.
  const Read first = Globals(SettingsText(
      R"("appearance.fontSizeDip":7,"appearance.iconSizeDip":99,"appearance.showHotkeys":3,)"
      R"("dialogs.mode":"allowlist","dialogs.allowedProcessNames":["a.exe",1,"B.exe"],)"
      R"("dialogs.excludedProcessNames":["c.exe"])"));
  EXPECT_FALSE(first.ok);
  EXPECT_EQ(first.errors,
            MessageList{L"'appearance.fontSizeDip' must be a whole number from 8 to 32."});
  EXPECT_TRUE(first.config.enabled);
  EXPECT_EQ(first.config.dialogs.mode, L"allowlist");
  EXPECT_EQ(first.config.dialogs.allowedProcessNames,
            (std::vector<std::wstring>{L"a.exe", L"B.exe"}));
  EXPECT_EQ(first.config.dialogs.excludedProcessNames, std::vector<std::wstring>{L"c.exe"});

  const Read words = Globals(SettingsText(
      R"("appearance.customHeaderColor":"#1E1E1","appearance.customHotkeyColor":"1E1E1E",)"
      R"("appearance.backgroundMode":"Dark",)"
      R"("appearance.backgroundImageFill":"fill",)"
      R"("appearance.fontFamily":"ABCDEFGHIJKLMNOPQRSTUVWXYZ012345",)"
      R"("taskbar.replaceBackgroundMenu":false,"taskbar.replaceClockMenu":true,)"
      R"("taskbar.replaceAppMenu":false,"taskbar.replaceStartMenu":"no")"));
  EXPECT_TRUE(words.ok);
  EXPECT_EQ(words.errors,
            (MessageList{
                L"'appearance.fontFamily' is longer than the 31 characters a font name may have.",
                L"'appearance.backgroundImageFill' must be one of stretch, cover, tile, center.",
                L"'appearance.backgroundMode' must be one of system, light, dark, custom.",
                L"'appearance.customHeaderColor' must be a hex color string like #1E1E1E.",
                L"'appearance.customHotkeyColor' must be a hex color string like #1E1E1E.",
                L"'taskbar.replaceStartMenu' must be true or false."}));

  // Only the exact word counts: an organizer "Disabled" keeps its menus.
  // Dialog settings never add an error: a value of the wrong type reads as its default.
  const Read exact = Globals(SettingsText(
      R"("appearance.fontFamily":"ABCDEFGHIJKLMNOPQRSTUVWXYZ01234","dialogs.mode":3,)"
      R"("dialogs.allowedProcessNames":"a.exe","dialogs.excludedProcessNames":{})",
      R"("status":"Enabled",)", R"({"app_id":"window-organizer","status":"Disabled"},)"));
  EXPECT_EQ(exact.errors, MessageList{});
  EXPECT_EQ(exact.config.appearance.surfaceOptOutMask, 0u);
  EXPECT_EQ(exact.config.dialogs.mode, L"all-except");
  EXPECT_TRUE(exact.config.dialogs.allowedProcessNames.empty());
  EXPECT_TRUE(exact.config.dialogs.excludedProcessNames.empty());
  EXPECT_FALSE(Globals(SettingsText("", R"("status":true,)")).config.enabled);
}

TEST(SettingsFile, EntryAndFileMessages) {
  const auto rows = GoldenRows(L"settings_entry_messages.tsv");
  ASSERT_EQ(rows.size(), 5u);
  for (const auto& row : rows) {
    SCOPED_TRACE(row[0]);
    MenuConfiguration config;
    MessageList errors, warnings;
    EXPECT_FALSE(ReadSettingsText(row[0], config, errors, warnings));
    EXPECT_EQ(errors, MessageList{FromUtf8(row[1])});
    rapidjson::Document document;
    EXPECT_FALSE(!document.Parse(row[0].c_str()).HasParseError() &&
                 ShippedSchemaAccepts(L"high-level-settings.schema.json", document));
    // Off unless the entry was found and says so, whatever else failed.
    EXPECT_EQ(config.enabled, row[0].find(R"("status":"enabled")") != std::string::npos);
  }
}

// The settings file that ships beside the exe is what the on/off and dialog readers fall back
// to; it must read cleanly and spell out exactly the documented defaults. A missing file is
// refused and leaves the feature off.
TEST(SettingsFile, ShippedDefaultsReadCleanlyAndAMissingFileIsRefused) {
  MenuConfiguration config;
  MessageList messages;
  const std::wstring shipped = StagedFile(L"Content\\Configurations\\High Level Settings.json");
  EXPECT_TRUE(ReadSettingsFile(shipped, config, messages, messages));
  rapidjson::Document document;
  document.Parse(ReadWholeFile(shipped).value().c_str());
  EXPECT_TRUE(ShippedSchemaAccepts(L"high-level-settings.schema.json", document));
  EXPECT_EQ(messages, MessageList{});
  EXPECT_TRUE(config.appearance == SettingsFileAppearance());
  EXPECT_EQ(std::make_tuple(config.enabled, config.bypassMask, config.opacityPercent,
                            config.profiles.size(), config.items.size()),
            std::make_tuple(false, 6u, 78u, size_t{2}, size_t{6}));
  config.enabled = true;
  EXPECT_FALSE(ReadSettingsFile(L"C:\\no\\such.json", config, messages, messages));
  EXPECT_EQ(messages, MessageList{L"'C:\\no\\such.json' does not exist."});
  EXPECT_FALSE(config.enabled);
}

}  // namespace
}  // namespace cmr

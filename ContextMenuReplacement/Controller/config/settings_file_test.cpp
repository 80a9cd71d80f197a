#include "config/settings_file.h"

#include <fmt/xchar.h>
#include <gtest/gtest.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/json_text.h"
#include "tests/support/staged_install.h"

// The values a settings file sets, and its own defaults, are decoded from the published control.bin
// in config_verbs_e2e_test.cpp.

namespace cmr {
namespace {

// A settings file whose entry holds `settings` (members of the settings object, without braces).
std::string SettingsText(const std::string& settings, const std::string& otherApps = "") {
  return R"({"apps":[)" + otherApps +
         R"({"app_id":"context-menu-replacement","status":"enabled","settings":{)" + settings +
         R"(}}]})";
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
  return r;
}

// Every ranged number at both bounds (accepted) and one past each (refused).
TEST(SettingsFile, EachRangeAtItsBoundsAndOnePast) {
  const struct {
    const char* key;
    int minimum, maximum;
  } ranges[] = {
      {"appearance.fontSizeDip", 8, 32},
      {"appearance.iconSizeDip", 8, 48},
      {"appearance.menuHorizontalPaddingDip", 0, 32},
      {"appearance.menuVerticalPaddingDip", 0, 32},
      {"appearance.itemHorizontalMarginDip", 0, 24},
      {"appearance.itemVerticalMarginDip", 0, 24},
      {"appearance.separatorIntensityPercent", 0, 100},
      {"appearance.animationDurationMs", 0, 1000},
      {"appearance.hoverOpacityPercent", 0, 100},
      {"appearance.menuMinimumWidthDip", 0, 600},
      {"appearance.menuMaximumWidthDip", 0, 1200},
      {"appearance.backgroundImageOpacityPercent", 0, 100},
      {"appearance.backgroundOpacityPercent", 0, 100},
  };
  for (const auto& r : ranges) {
    const auto read = [&](const std::string& value) {
      return Globals(SettingsText(fmt::format(R"("{}":{})", r.key, value))).errors;
    };
    const MessageList refused{fmt::format(L"'{}' must be a whole number from {} to {}.",
                                          FromUtf8(r.key), r.minimum, r.maximum)};
    EXPECT_EQ(read(std::to_string(r.minimum)), MessageList{}) << r.key;
    EXPECT_EQ(read(std::to_string(r.maximum)), MessageList{}) << r.key;
    EXPECT_EQ(read(std::to_string(r.minimum - 1)), refused) << r.key;
    EXPECT_EQ(read(std::to_string(r.maximum + 1)), refused) << r.key;
    EXPECT_EQ(read(std::to_string(r.minimum) + ".5"), refused) << r.key;
  }
}

TEST(SettingsFile, RangedNumbersStopTheReadAtTheFirstFailure) {
  const Read r = Globals(SettingsText(
      R"("appearance.fontSizeDip":7,"appearance.iconSizeDip":99,"appearance.showHotkeys":3)"));
  EXPECT_FALSE(r.ok);
  // Neither the later number nor the bad boolean was examined.
  EXPECT_EQ(r.errors,
            MessageList{L"'appearance.fontSizeDip' must be a whole number from 8 to 32."});
}

TEST(SettingsFile, ColoursNamesAndWordsAreCheckedExactly) {
  const Read r = Globals(SettingsText(
      R"("appearance.customHeaderColor":"#1E1E1","appearance.customHotkeyColor":"1E1E1E",)"
      R"("appearance.fontWeight":"bold","appearance.backgroundMode":"Dark",)"
      R"("appearance.backgroundImageFill":"fill",)"
      R"("appearance.fontFamily":"ABCDEFGHIJKLMNOPQRSTUVWXYZ012345")"));
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.errors,
            (MessageList{
                L"'appearance.fontFamily' is longer than the 31 characters a font name may have.",
                L"'appearance.backgroundImageFill' must be one of stretch, cover, tile, center.",
                L"'appearance.fontWeight' is not a supported weight.",
                L"'appearance.backgroundMode' must be one of system, light, dark, custom.",
                L"'appearance.customHeaderColor' must be a hex color string like #1E1E1E.",
                L"'appearance.customHotkeyColor' must be a hex color string like #1E1E1E."}));
  const Read name31 =
      Globals(SettingsText(R"("appearance.fontFamily":"ABCDEFGHIJKLMNOPQRSTUVWXYZ01234")"));
  EXPECT_TRUE(name31.errors.empty());
  EXPECT_EQ(name31.config.appearance.fontFamily, L"ABCDEFGHIJKLMNOPQRSTUVWXYZ01234");
}

TEST(SettingsFile, StatusAndTaskbarEntries) {
  for (const char* status : {R"("status":"Enabled",)", R"("status":true,)", ""}) {
    const std::string text = std::string(R"({"apps":[{"app_id":"context-menu-replacement",)") +
                             status + R"("settings":{}}]})";
    EXPECT_FALSE(Globals(text).config.enabled) << status;
  }
  const Read r = Globals(
      SettingsText(R"("taskbar.replaceBackgroundMenu":false,"taskbar.replaceClockMenu":true,)"
                   R"("taskbar.replaceAppMenu":false,"taskbar.replaceStartMenu":"no")"));
  EXPECT_EQ(r.errors, MessageList{L"'taskbar.replaceStartMenu' must be true or false."});
  EXPECT_EQ(r.config.appearance.surfaceOptOutMask, 0x01u | 0x10u);
  EXPECT_EQ(Globals(SettingsText("", R"({"app_id":"window-organizer","status":"Disabled"},)"))
                .config.appearance.surfaceOptOutMask,
            0u);
}

TEST(SettingsFile, EntryAndFileMessages) {
  const struct {
    std::string text;
    std::wstring error;
  } entries[] = {
      {"{\"apps\": [", L"JSON parse error in the settings file at offset 10: Invalid value."},
      {R"({"apps":{}})", L"The settings file has no 'apps' array."},
      {R"({"apps":[{"app_id":"other"}]})",
       L"No 'context-menu-replacement' entry in the settings file. It is added by settings "
       L"migration; open the Settings app once to create it."},
      {R"({"apps":[{"app_id":"context-menu-replacement","settings":[]}]})",
       L"The 'context-menu-replacement' entry has no settings object."},
      {SettingsText(""), L"The 'context-menu-replacement' settings have no 'menu.profiles'."},
  };
  for (const auto& c : entries) {
    MenuConfiguration config;
    MessageList errors, warnings;
    EXPECT_FALSE(ReadSettingsText(c.text, config, errors, warnings));
    EXPECT_EQ(errors, MessageList{c.error});
    // Off unless the entry was found and says so, whatever else failed.
    EXPECT_EQ(config.enabled, c.text.find(R"("status":"enabled")") != std::string::npos) << c.text;
  }
  MenuConfiguration config;
  MessageList errors, warnings;
  EXPECT_FALSE(ReadSettingsFile(L"C:\\no\\such.json", config, errors, warnings));
  EXPECT_EQ(errors, MessageList{L"'C:\\no\\such.json' does not exist."});
  EXPECT_FALSE(config.enabled);
}

// The dialog settings are read before anything can stop the read, and never add an error: a
// value of the wrong type reads as its default.
TEST(SettingsFile, DialogSettingsNeverFailTheRead) {
  const Read stopped = Globals(SettingsText(
      R"("appearance.fontSizeDip":7,"dialogs.mode":"allowlist",)"
      R"("dialogs.allowedProcessNames":["a.exe",1,"B.exe"],"dialogs.excludedProcessNames":["c.exe"])"));
  EXPECT_EQ(stopped.errors,
            MessageList{L"'appearance.fontSizeDip' must be a whole number from 8 to 32."});
  EXPECT_TRUE(stopped.config.enabled);
  EXPECT_EQ(stopped.config.dialogs.mode, L"allowlist");
  EXPECT_EQ(stopped.config.dialogs.allowedProcessNames,
            (std::vector<std::wstring>{L"a.exe", L"B.exe"}));
  EXPECT_EQ(stopped.config.dialogs.excludedProcessNames, std::vector<std::wstring>{L"c.exe"});
  const Read wrong = Globals(SettingsText(
      R"("dialogs.mode":3,"dialogs.allowedProcessNames":"a.exe","dialogs.excludedProcessNames":{})"));
  EXPECT_EQ(wrong.errors, MessageList{});
  EXPECT_EQ(wrong.config.dialogs.mode, L"all-except");
  EXPECT_TRUE(wrong.config.dialogs.allowedProcessNames.empty());
  EXPECT_TRUE(wrong.config.dialogs.excludedProcessNames.empty());
}

// The settings file that ships beside the exe is what the on/off and dialog readers fall back
// to; it must read cleanly and spell out exactly the documented defaults.
TEST(SettingsFile, ShippedDefaultsReadCleanly) {
  const std::wstring shipped =
      JoinPath(StagedInstallFolder(), L"Content\\Configurations\\High Level Settings.json");
  MenuConfiguration config;
  MessageList errors, warnings;
  EXPECT_TRUE(ReadSettingsFile(shipped, config, errors, warnings));
  EXPECT_EQ(errors, MessageList{});
  EXPECT_EQ(warnings, MessageList{});
  EXPECT_FALSE(config.enabled);
  EXPECT_EQ(config.bypassMask, 6u);
  EXPECT_EQ(config.opacityPercent, 78u);
  EXPECT_TRUE(config.appearance == SettingsFileAppearance());
  EXPECT_EQ(config.profiles.size(), 2u);
  EXPECT_EQ(config.items.size(), 6u);
}

}  // namespace
}  // namespace cmr

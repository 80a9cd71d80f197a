#include "config/settings_file.h"

#include <gtest/gtest.h>

#include "cli/data_paths.h"
#include "common/file_io.h"
#include "common/json_text.h"

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

TEST(SettingsFile, RangedNumbersStopTheReadAtTheFirstFailure) {
  const Read r = Globals(SettingsText(
      R"("appearance.fontSizeDip":7,"appearance.iconSizeDip":99,"appearance.showHotkeys":3)"));
  EXPECT_FALSE(r.ok);
  // Neither the later number nor the bad boolean was examined.
  EXPECT_EQ(r.errors,
            MessageList{L"'appearance.fontSizeDip' must be a whole number from 8 to 32."});

  EXPECT_TRUE(Globals(SettingsText(R"("appearance.animationDurationMs":1000)")).errors.empty());
  EXPECT_EQ(
      Globals(SettingsText(R"("appearance.animationDurationMs":1001)")).errors,
      MessageList{L"'appearance.animationDurationMs' must be a whole number from 0 to 1000."});
  const Read late = Globals(SettingsText(
      R"("appearance.showHotkeys":3,"appearance.menuMaximumWidthDip":1201,"appearance.fontWeight":"x")"));
  EXPECT_FALSE(late.ok);
  EXPECT_EQ(
      late.errors,
      (MessageList{L"'appearance.showHotkeys' must be true or false.",
                   L"'appearance.menuMaximumWidthDip' must be a whole number from 0 to 1200."}));
}

TEST(SettingsFile, DefaultsAndValues) {
  const Read defaults = Globals(SettingsText(""));
  ASSERT_TRUE(defaults.ok && defaults.errors.empty());
  EXPECT_TRUE(defaults.config.enabled);
  EXPECT_EQ(defaults.config.appearance.menuVerticalPaddingDip, 3u);
  EXPECT_EQ(defaults.config.appearance.itemHorizontalMarginDip, 8u);
  EXPECT_EQ(defaults.config.appearance.itemVerticalMarginDip, 7u);

  const Read r = Globals(SettingsText(
      R"("general.nativeMenuBypass":"alt","appearance.backgroundOpacityPercent":40,)"
      R"("appearance.fontWeight":"Semibold","appearance.backgroundMode":"dark",)"
      R"("appearance.backgroundImageFill":"tile","appearance.snapshotBlurEnabled":false,)"
      R"("appearance.customHeaderColor":"#1e1e1e","appearance.customHotkeyColor":"#0A0B0C")"));
  ASSERT_TRUE(r.errors.empty());
  EXPECT_EQ(r.config.bypassMask, 1u);
  EXPECT_EQ(r.config.opacityPercent, 40u);
  EXPECT_EQ(r.config.appearance.fontWeight, 600u);
  EXPECT_EQ(r.config.appearance.backgroundMode, 2u);
  EXPECT_EQ(r.config.appearance.backgroundImageFill, 2u);
  EXPECT_FALSE(r.config.appearance.snapshotBlurEnabled);
  EXPECT_EQ(r.config.appearance.customHeaderColor, 0x1E1E1Eu);
  // COLORREF: red in the low byte.
  EXPECT_EQ(r.config.appearance.customHotkeyColor, 0x0C0B0Au);
}

TEST(SettingsFile, StatusDecidesEnabled) {
  for (const char* status : {R"("status":"Enabled",)", R"("status":true,)", ""}) {
    const std::string text = std::string(R"({"apps":[{"app_id":"context-menu-replacement",)") +
                             status + R"("settings":{}}]})";
    EXPECT_FALSE(Globals(text).config.enabled) << status;
  }
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

TEST(SettingsFile, TaskbarOptOutMask) {
  const Read r = Globals(
      SettingsText(R"("taskbar.replaceBackgroundMenu":false,"taskbar.replaceClockMenu":true,)"
                   R"("taskbar.replaceAppMenu":false,"taskbar.replaceStartMenu":"no")",
                   R"({"app_id":"window-organizer","status":"disabled"},)"));
  EXPECT_EQ(r.errors, MessageList{L"'taskbar.replaceStartMenu' must be true or false."});
  EXPECT_EQ(r.config.appearance.surfaceOptOutMask, 0x01u | 0x10u | 0x20u);
  EXPECT_EQ(Globals(SettingsText("", R"({"app_id":"window-organizer","status":"Disabled"},)"))
                .config.appearance.surfaceOptOutMask,
            0u);
}

TEST(SettingsFile, EntryLookupMessages) {
  EXPECT_EQ(Globals(R"({"apps":{}})").errors,
            MessageList{L"The settings file has no 'apps' array."});
  EXPECT_EQ(Globals(R"({"apps":[{"app_id":"other"}]})").errors,
            MessageList{L"No 'context-menu-replacement' entry in the settings file. It is added "
                        L"by settings migration; open the Settings app once to create it."});
  EXPECT_EQ(Globals(R"({"apps":[{"app_id":"context-menu-replacement","settings":[]}]})").errors,
            MessageList{L"The 'context-menu-replacement' entry has no settings object."});
}

TEST(SettingsFile, FileReadsTheMenuWithMenuJsonRules) {
  wchar_t temp[MAX_PATH + 1] = {};
  ::GetTempPathW(MAX_PATH, temp);
  const std::wstring path = JoinPath(temp, L"cmr-settings-test.json");
  MessageList errors;
  MessageList warnings;
  MenuConfiguration config;
  (void)DeleteFileIfPresent(path);
  EXPECT_FALSE(ReadSettingsFile(path, config, errors, warnings));
  EXPECT_EQ(errors, MessageList{L"'" + path + L"' does not exist."});

  errors.clear();
  ASSERT_TRUE(WriteWholeFile(path, "{\"apps\": [", errors));
  EXPECT_FALSE(ReadSettingsFile(path, config, errors, warnings));
  EXPECT_EQ(errors, MessageList{L"JSON parse error in the settings file at offset 10: Invalid "
                                L"value."});

  errors.clear();
  ASSERT_TRUE(WriteWholeFile(path, SettingsText(""), errors));
  EXPECT_FALSE(ReadSettingsFile(path, config, errors, warnings));
  EXPECT_EQ(errors,
            MessageList{L"The 'context-menu-replacement' settings have no 'menu.profiles'."});

  errors.clear();
  ASSERT_TRUE(WriteWholeFile(
      path, SettingsText(R"("menu.profiles":[{"match":{"context":["folder-item"]},"items":[7]}])"),
      errors));
  EXPECT_FALSE(ReadSettingsFile(path, config, errors, warnings));
  EXPECT_EQ(errors, MessageList{L"profiles[0].items[0] must be an object."});
  EXPECT_EQ(config.profiles.size(), 1u);
  (void)DeleteFileIfPresent(path);
}

// The settings file that ships beside the exe is what the on/off and dialog readers fall back
// to; it must read cleanly and spell out exactly the documented defaults.
TEST(SettingsFile, ShippedDefaultsReadCleanly) {
  const std::wstring shipped = JoinPath(JoinPath(ParentFolder(ExecutableFolder()), L"stage"),
                                        L"Content\\Configurations\\High Level Settings.json");
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

#include "config/settings_file.h"

#include <fmt/xchar.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/json_members.h"
#include "common/json_text.h"
#include "config/menu_document.h"

namespace cmr {

namespace {

std::wstring Wide(const char* key) {
  return FromUtf8(key);
}

// The element of `apps` with this app_id, or null.
const rapidjson::Value* FindApp(const rapidjson::Value& apps, std::string_view appId) {
  for (const rapidjson::Value& app : apps.GetArray()) {
    if (JsonStringIs(JsonMember(app, "app_id"), appId)) return &app;
  }
  return nullptr;
}

// The entry's settings object, or null with its message.
const rapidjson::Value* FindSettings(const rapidjson::Value& root, MessageList& errors) {
  const rapidjson::Value* apps = JsonMember(root, "apps");
  if (!apps || !apps->IsArray()) {
    errors.push_back(L"The settings file has no 'apps' array.");
    return nullptr;
  }
  const rapidjson::Value* entry = FindApp(*apps, kSettingsAppId);
  if (!entry) {
    errors.push_back(fmt::format(
        L"No '{}' entry in the settings file. It is added by settings migration; open the "
        L"Settings app once to create it.",
        Wide(kSettingsAppId)));
    return nullptr;
  }
  const rapidjson::Value* settings = JsonMember(*entry, "settings");
  if (!settings || !settings->IsObject()) {
    errors.push_back(L"The 'context-menu-replacement' entry has no settings object.");
    return nullptr;
  }
  return settings;
}

bool ReadBool(const rapidjson::Value& settings, const char* key, bool& out, MessageList& errors) {
  const rapidjson::Value* value = JsonMember(settings, key);
  if (!value) return true;
  if (!value->IsBool()) {
    errors.push_back(fmt::format(L"'{}' must be true or false.", Wide(key)));
    return false;
  }
  out = value->GetBool();
  return true;
}

// A string of at most `maxUnits` UTF-16 units; absent leaves `out` as it is.
void ReadBoundedText(const rapidjson::Value& settings, const char* key, size_t maxUnits,
                     const wchar_t* what, std::wstring& out, MessageList& errors) {
  const rapidjson::Value* value = JsonMember(settings, key);
  if (!value) return;
  if (!value->IsString()) {
    errors.push_back(fmt::format(L"'{}' must be a string.", Wide(key)));
    return;
  }
  std::wstring text = JsonWide(*value);
  if (text.size() > maxUnits) {
    errors.push_back(fmt::format(L"'{}' is longer than the {} characters {} may have.", Wide(key),
                                 maxUnits, what));
    return;
  }
  out = std::move(text);
}

struct Choice {
  const char* word;
  uint32_t value;
};

// One of a fixed set of words (exact); absent leaves `out` as it is.
template <size_t N>
void ReadChoice(const rapidjson::Value& settings, const char* key, const Choice (&choices)[N],
                const std::wstring& unknownMessage, uint32_t& out, MessageList& errors) {
  const rapidjson::Value* value = JsonMember(settings, key);
  if (!value) return;
  if (!value->IsString()) {
    errors.push_back(fmt::format(L"'{}' must be a string.", Wide(key)));
    return;
  }
  for (const Choice& choice : choices) {
    if (JsonStringIs(value, choice.word)) {
      out = choice.value;
      return;
    }
  }
  errors.push_back(unknownMessage);
}

// The dialog settings never stop a read: a value of the wrong type reads as its default and a
// list keeps only its strings, so a stray value here cannot hold back a menu publication.
void ReadDialogSettings(const rapidjson::Value& settings, DialogSettings& dialogs) {
  if (const rapidjson::Value* mode = JsonMember(settings, "dialogs.mode");
      mode && mode->IsString()) {
    dialogs.mode = JsonWide(*mode);
  }
  const struct {
    const char* key;
    std::vector<std::wstring> DialogSettings::*list;
  } lists[] = {{"dialogs.allowedProcessNames", &DialogSettings::allowedProcessNames},
               {"dialogs.excludedProcessNames", &DialogSettings::excludedProcessNames}};
  for (const auto& l : lists) {
    const rapidjson::Value* names = JsonMember(settings, l.key);
    if (!names || !names->IsArray()) continue;
    for (const rapidjson::Value& name : names->GetArray()) {
      if (name.IsString()) (dialogs.*(l.list)).push_back(JsonWide(name));
    }
  }
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

struct RangedKey {
  const char* key;
  uint32_t AppearanceGlobals::*field;
  uint32_t minimum;
  uint32_t maximum;
};

// Reads each key in order; the first one out of range ends the whole read.
template <size_t N>
bool ReadRangedKeys(const rapidjson::Value& settings, const RangedKey (&keys)[N],
                    AppearanceGlobals& appearance, MessageList& errors) {
  for (const RangedKey& k : keys) {
    if (!ReadRangedNumber(settings, k.key, appearance.*(k.field), k.minimum, k.maximum,
                          appearance.*(k.field), errors)) {
      return false;
    }
  }
  return true;
}

// The feature stays off until this feature's entry says otherwise: a file that cannot be read,
// or has no entry, never switches anything on.
void ResetToSettingsDefaults(MenuConfiguration& configuration) {
  MenuConfiguration fresh;
  fresh.enabled = false;
  fresh.appearance = SettingsFileAppearance();
  std::swap(configuration, fresh);
}

}  // namespace

AppearanceGlobals SettingsFileAppearance() {
  AppearanceGlobals appearance;
  appearance.menuVerticalPaddingDip = 3;
  appearance.itemHorizontalMarginDip = 8;
  appearance.itemVerticalMarginDip = 7;
  return appearance;
}

bool ReadRangedNumber(const rapidjson::Value& settings, const char* key, uint32_t fallback,
                      uint32_t minimum, uint32_t maximum, uint32_t& out, MessageList& errors) {
  out = fallback;
  const rapidjson::Value* value = JsonMember(settings, key);
  if (!value) return true;
  if (value->IsUint() && value->GetUint() >= minimum && value->GetUint() <= maximum) {
    out = value->GetUint();
    return true;
  }
  errors.push_back(
      fmt::format(L"'{}' must be a whole number from {} to {}.", Wide(key), minimum, maximum));
  return false;
}

bool ReadColour(const rapidjson::Value& settings, const char* key, uint32_t& out,
                MessageList& errors) {
  out = 0;
  const rapidjson::Value* value = JsonMember(settings, key);
  if (!value) return true;
  int digits[6] = {};
  bool ok = value->IsString() && value->GetStringLength() == 7 && value->GetString()[0] == '#';
  for (int i = 0; ok && i < 6; ++i) {
    digits[i] = HexDigit(value->GetString()[1 + i]);
    ok = digits[i] >= 0;
  }
  if (!ok) {
    errors.push_back(fmt::format(L"'{}' must be a hex color string like #1E1E1E.", Wide(key)));
    return false;
  }
  const uint32_t red = digits[0] * 16 + digits[1];
  const uint32_t green = digits[2] * 16 + digits[3];
  const uint32_t blue = digits[4] * 16 + digits[5];
  out = red | (green << 8) | (blue << 16);
  return true;
}

bool FeatureEnabledInSettings() {
  MenuConfiguration configuration;
  MessageList errors, warnings;
  // A file that cannot be read leaves `enabled` false, which is the answer then.
  (void)ReadSettingsFile(SettingsFileWithShippedFallback(), configuration, errors, warnings);
  return configuration.enabled;
}

namespace {

// The appearance keys, into `a`; false when a ranged number is out of range.
bool ReadAppearance(const rapidjson::Value& settings, AppearanceGlobals& a, MessageList& errors) {
  // Deliberately strict: the first number out of range fails the read, so a half-understood
  // file never reaches the Hook.
  static constexpr RangedKey kLayoutKeys[] = {
      {"appearance.fontSizeDip", &AppearanceGlobals::fontSizeDip, 8, 32},
      {"appearance.iconSizeDip", &AppearanceGlobals::iconSizeDip, 8, 48},
      {"appearance.menuHorizontalPaddingDip", &AppearanceGlobals::menuHorizontalPaddingDip, 0, 32},
      {"appearance.menuVerticalPaddingDip", &AppearanceGlobals::menuVerticalPaddingDip, 0, 32},
      {"appearance.itemHorizontalMarginDip", &AppearanceGlobals::itemHorizontalMarginDip, 0, 24},
      {"appearance.itemVerticalMarginDip", &AppearanceGlobals::itemVerticalMarginDip, 0, 24},
      {"appearance.separatorIntensityPercent", &AppearanceGlobals::separatorIntensityPercent, 0,
       100},
      {"appearance.animationDurationMs", &AppearanceGlobals::animationDurationMs, 0, 1000},
  };
  if (!ReadRangedKeys(settings, kLayoutKeys, a, errors)) return false;

  // A bad value of these is in `errors` and the read goes on to report the rest; only the
  // ranged numbers stop it.
  (void)ReadBool(settings, "appearance.showAccessKeys", a.showAccessKeys, errors);
  (void)ReadBool(settings, "appearance.showBandLabels", a.showBandLabels, errors);
  (void)ReadBool(settings, "appearance.snapshotBlurEnabled", a.snapshotBlurEnabled, errors);
  (void)ReadBool(settings, "appearance.showHotkeys", a.showHotkeys, errors);
  (void)ReadBool(settings, "appearance.showSeparators", a.showSeparators, errors);

  ReadBoundedText(settings, "appearance.fontFamily", kFontFamilyMaxLength, L"a font name",
                  a.fontFamily, errors);
  ReadBoundedText(settings, "appearance.backgroundImagePath", kImagePathMaxLength, L"a path",
                  a.backgroundImagePath, errors);
  static constexpr Choice kFills[] = {{"stretch", 0}, {"cover", 1}, {"tile", 2}, {"center", 3}};
  ReadChoice(settings, "appearance.backgroundImageFill", kFills,
             L"'appearance.backgroundImageFill' must be one of stretch, cover, tile, center.",
             a.backgroundImageFill, errors);

  static constexpr RangedKey kSurfaceKeys[] = {
      {"appearance.hoverOpacityPercent", &AppearanceGlobals::hoverOpacityPercent, 0, 100},
      {"appearance.menuMinimumWidthDip", &AppearanceGlobals::menuMinimumWidthDip, 0, 600},
      {"appearance.menuMaximumWidthDip", &AppearanceGlobals::menuMaximumWidthDip, 0, 1200},
      {"appearance.backgroundImageOpacityPercent",
       &AppearanceGlobals::backgroundImageOpacityPercent, 0, 100},
  };
  if (!ReadRangedKeys(settings, kSurfaceKeys, a, errors)) return false;

  static constexpr Choice kWeights[] = {
      {"Light", 300}, {"Regular", 400}, {"Medium", 500}, {"Semibold", 600}, {"Bold", 700}};
  ReadChoice(settings, "appearance.fontWeight", kWeights,
             L"'appearance.fontWeight' is not a supported weight.", a.fontWeight, errors);
  static constexpr Choice kModes[] = {{"system", 0}, {"light", 1}, {"dark", 2}, {"custom", 3}};
  ReadChoice(settings, "appearance.backgroundMode", kModes,
             L"'appearance.backgroundMode' must be one of system, light, dark, custom.",
             a.backgroundMode, errors);

  // As above: a bad colour or switch is in `errors`, and the rest are still read.
  (void)ReadColour(settings, "appearance.customBackgroundColor", a.customBackgroundColor, errors);
  (void)ReadBool(settings, "appearance.customForegroundEnabled", a.customForegroundEnabled, errors);
  (void)ReadColour(settings, "appearance.customForegroundColor", a.customForegroundColor, errors);
  (void)ReadBool(settings, "appearance.customHeaderEnabled", a.customHeaderEnabled, errors);
  (void)ReadColour(settings, "appearance.customHeaderColor", a.customHeaderColor, errors);
  (void)ReadBool(settings, "appearance.customHotkeyEnabled", a.customHotkeyEnabled, errors);
  (void)ReadColour(settings, "appearance.customHotkeyColor", a.customHotkeyColor, errors);

  return true;
}

// The surfaces the user handed back to Windows, as the opt-out mask.
uint32_t ReadSurfaceOptOut(const rapidjson::Value& root, const rapidjson::Value& settings,
                           MessageList& errors) {
  // A surface is handed back to Windows only when its switch is present and false.
  static constexpr const char* kSurfaces[] = {
      "taskbar.replaceBackgroundMenu", "taskbar.replaceClockMenu", "taskbar.replaceStartMenu",
      "taskbar.replacePinnedAppMenu", "taskbar.replaceAppMenu"};
  uint32_t optOut = 0;
  for (size_t bit = 0; bit < std::size(kSurfaces); ++bit) {
    bool replaced = true;
    if (ReadBool(settings, kSurfaces[bit], replaced, errors) && !replaced) optOut |= 1u << bit;
  }
  // The window organizer shares the taskbar menus; when it is off its surface is not ours.
  const rapidjson::Value* organizer = FindApp(*JsonMember(root, "apps"), "window-organizer");
  if (organizer && JsonStringIs(JsonMember(*organizer, "status"), "disabled"))
    optOut |= kOptOutWindowOrganizer;
  return optOut;
}

}  // namespace

bool ReadSettingsGlobals(const rapidjson::Value& root, MenuConfiguration& configuration,
                         MessageList& errors) {
  const rapidjson::Value* settings = FindSettings(root, errors);
  if (!settings) return false;
  const rapidjson::Value* entry = FindApp(*JsonMember(root, "apps"), kSettingsAppId);
  configuration.enabled = JsonStringIs(JsonMember(*entry, "status"), "enabled");
  ReadDialogSettings(*settings, configuration.dialogs);

  if (const rapidjson::Value* bypass = JsonMember(*settings, "general.nativeMenuBypass")) {
    if (!bypass->IsString()) {
      errors.push_back(L"'general.nativeMenuBypass' must be a string such as \"Ctrl+Shift\".");
    } else if (!ParseModifierMask(JsonWide(*bypass), configuration.bypassMask)) {
      errors.push_back(fmt::format(
          L"'general.nativeMenuBypass' value '{}' is not understood. Use Ctrl, Shift, Alt or "
          L"None, combined with '+'.",
          JsonWide(*bypass)));
    }
  }
  // Out of range is in `errors`; the opacity, unlike the appearance numbers, does not stop the
  // read.
  (void)ReadRangedNumber(*settings, "appearance.backgroundOpacityPercent", kDefaultOpacityPercent,
                         0, 100, configuration.opacityPercent, errors);

  if (!ReadAppearance(*settings, configuration.appearance, errors)) return false;
  configuration.appearance.surfaceOptOutMask = ReadSurfaceOptOut(root, *settings, errors);
  return true;
}

bool ReadSettingsMenu(const rapidjson::Value& root, MenuConfiguration& configuration,
                      MessageList& errors, MessageList& warnings) {
  const rapidjson::Value* settings = FindSettings(root, errors);
  if (!settings) return false;
  const rapidjson::Value* profiles = JsonMember(*settings, "menu.profiles");
  if (!profiles) {
    errors.push_back(L"The 'context-menu-replacement' settings have no 'menu.profiles'.");
    return false;
  }
  return ParseMenuProfiles(profiles, configuration, errors, warnings);
}

bool ReadSettingsText(std::string_view text, MenuConfiguration& configuration, MessageList& errors,
                      MessageList& warnings) {
  ResetToSettingsDefaults(configuration);
  rapidjson::Document document;
  JsonParseFailure failure;
  if (!ParseJsonText(text, true, document, failure)) {
    errors.push_back(fmt::format(L"JSON parse error in the settings file at offset {}: {}",
                                 failure.offset, failure.description));
    return false;
  }
  const size_t errorsBefore = errors.size();
  if (!ReadSettingsGlobals(document, configuration, errors)) return false;
  // The menu's faults are in `errors`; the globals stand whatever the menu says.
  (void)ReadSettingsMenu(document, configuration, errors, warnings);
  return errors.size() == errorsBefore;
}

bool ReadSettingsFile(const std::wstring& path, MenuConfiguration& configuration,
                      MessageList& errors, MessageList& warnings) {
  ResetToSettingsDefaults(configuration);
  const Result<std::optional<std::string>> read = ReadFileIfPresent(path);
  if (!read) {
    errors.push_back(fmt::format(L"Could not read '{}'.", path));
    return false;
  }
  if (!read.value()) {
    errors.push_back(fmt::format(L"'{}' does not exist.", path));
    return false;
  }
  return ReadSettingsText(*read.value(), configuration, errors, warnings);
}

}  // namespace cmr

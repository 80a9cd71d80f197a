#pragma once
// The in-memory menu configuration: what menu.json or the settings file says, in the row form
// that the snapshot flattener copies out unchanged.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "common/string_pool.h"

namespace cmr {

// Bits of a profile's context mask. Bit 0 is never used: the Hook treats a zero mask as "no
// profile", so no context may map to it.
enum ContextBit : uint32_t {
  kContextDesktopBackground = 0x02,
  kContextFolderBackground = 0x04,
  kContextFolderItem = 0x08,
  kContextOtherItem = 0x10,
};

// Windows hot-key modifier values, so the Hook can compare them with GetKeyState results as-is.
enum ModifierBit : uint32_t { kModifierAlt = 0x1, kModifierControl = 0x2, kModifierShift = 0x4 };

enum class ItemSource : uint32_t { classic = 0, modern = 1, user = 2, separator = 3 };

inline constexpr uint32_t kMaxUserArguments = 32;

struct ProfileRecord {
  uint32_t contextMask = 0;
  uint32_t firstItem = 0;
  uint32_t itemCount = 0;
};

struct ItemRecord {
  ItemSource source = ItemSource::classic;
  StringRef title;
  StringRef executable;
  uint32_t firstArgument = 0;
  uint32_t argumentCount = 0;
  // The binary GUID as CLSIDFromString produces it; all zero for "every modern entry".
  std::array<unsigned char, 16> command{};
};

// Display settings the Hook reads from control.bin. The initial values are the fixed ones of a
// publication from menu.json; the settings file starts from SettingsFileAppearance().
struct AppearanceGlobals {
  uint32_t fontWeight = 400;
  uint32_t fontSizeDip = 12;
  uint32_t iconSizeDip = 16;
  uint32_t menuHorizontalPaddingDip = 8;
  uint32_t menuVerticalPaddingDip = 8;
  uint32_t itemHorizontalMarginDip = 0;
  uint32_t itemVerticalMarginDip = 0;
  uint32_t separatorIntensityPercent = 100;
  bool showAccessKeys = false;
  uint32_t backgroundMode = 0;         // system 0, light 1, dark 2, custom 3
  uint32_t customBackgroundColor = 0;  // COLORREF
  uint32_t customForegroundColor = 0;
  bool customForegroundEnabled = false;
  bool showBandLabels = false;
  uint32_t animationDurationMs = 135;
  bool showHotkeys = true;
  bool showSeparators = true;
  std::wstring fontFamily;
  std::wstring backgroundImagePath;
  uint32_t backgroundImageFill = 1;  // stretch 0, cover 1, tile 2, center 3
  uint32_t backgroundImageOpacityPercent = 30;
  uint32_t hoverOpacityPercent = 65;
  bool snapshotBlurEnabled = true;
  uint32_t menuMinimumWidthDip = 200;
  uint32_t surfaceOptOutMask = 0;
  uint32_t customHeaderColor = 0;
  bool customHeaderEnabled = false;
  uint32_t customHotkeyColor = 0;
  bool customHotkeyEnabled = false;
  uint32_t menuMaximumWidthDip = 460;

  friend bool operator==(const AppearanceGlobals&, const AppearanceGlobals&) = default;
};

// The background opacity of a menu that does not set one.
inline constexpr uint32_t kDefaultOpacityPercent = 78;
// The two text globals are fixed-width fields of control.bin, terminator included, so the
// longest text each holds is one unit less.
inline constexpr size_t kFontFamilyUnits = 32;
inline constexpr size_t kImagePathUnits = 260;
inline constexpr size_t kFontFamilyMaxLength = kFontFamilyUnits - 1;
inline constexpr size_t kImagePathMaxLength = kImagePathUnits - 1;
// Surface opt-out bit of a switched-off window organizer.
inline constexpr uint32_t kOptOutWindowOrganizer = 0x20;

// Which programs may have their file dialogs enrolled. Only the settings file carries these,
// and they are never published: the dialog enrolment reads them when a dialog appears.
struct DialogSettings {
  std::wstring mode = L"all-except";  // "off", "allowlist", anything else: all except the deny list
  std::vector<std::wstring> allowedProcessNames;
  std::vector<std::wstring> excludedProcessNames;
};

struct MenuConfiguration {
  bool enabled = true;
  uint32_t bypassMask = kModifierControl | kModifierShift;
  uint32_t opacityPercent = kDefaultOpacityPercent;
  AppearanceGlobals appearance;
  DialogSettings dialogs;

  // A profile's items are contiguous: each item is appended as it is accepted.
  std::vector<ProfileRecord> profiles;
  std::vector<ItemRecord> items;
  std::vector<StringRef> arguments;
  StringPool pool;
  uint32_t userCommandCount = 0;
};

}  // namespace cmr

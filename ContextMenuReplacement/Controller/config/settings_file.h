#pragma once
// The product family's shared settings file ("High Level Settings.json"): this feature's entry,
// its flat dotted settings keys as display globals, and its menu model.

#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "common/status.h"
#include "common/text.h"
#include "config/menu_configuration.h"

namespace cmr {

inline constexpr char kSettingsAppId[] = "context-menu-replacement";

// The display globals a settings file starts from (they differ from menu.json's fixed values).
[[nodiscard]] AppearanceGlobals SettingsFileAppearance();

// Sets `out` to `fallback`, then to the key's value when it is a whole number from `minimum`
// to `maximum`. Returns false, with "'key' must be a whole number from min to max.", when the
// key is present and anything else.
[[nodiscard]] bool ReadRangedNumber(const rapidjson::Value& settings, const char* key,
                                    uint32_t fallback, uint32_t minimum, uint32_t maximum,
                                    uint32_t& out, MessageList& errors);

// "#RRGGBB" (either case) as a COLORREF (red in the low byte); an absent key is 0. On failure
// `out` is 0 and the message is appended.
[[nodiscard]] bool ReadColour(const rapidjson::Value& settings, const char* key, uint32_t& out,
                              MessageList& errors);

// Whether the user's settings file, or the shipped defaults when the user has none, switches this
// feature on (its entry's `status` is exactly "enabled"), read as every other setting is read. A
// file that cannot be read, or has no entry for this feature, switches nothing on.
[[nodiscard]] bool FeatureEnabledInSettings();

// Fills the enabled flag, dialog settings, bypass mask, opacity and display globals of
// `configuration` from the parsed file; the enabled flag and the dialog settings are read before
// anything can stop the read. A missing entry, or a ranged number out of range, stops the read at
// once and returns false; other bad keys are reported and the read goes on to the end (true). The
// globals are valid only when no error was added.
[[nodiscard]] bool ReadSettingsGlobals(const rapidjson::Value& root,
                                       MenuConfiguration& configuration, MessageList& errors);

// Parses the entry's "menu.profiles" with the menu.json rules into `configuration`.
[[nodiscard]] bool ReadSettingsMenu(const rapidjson::Value& root, MenuConfiguration& configuration,
                                    MessageList& errors, MessageList& warnings);

// Parses the settings file's text and does both of the above (the menu only when the globals
// were read to the end). `configuration` is reset to the settings defaults first. Returns true
// when no error was added.
[[nodiscard]] bool ReadSettingsText(std::string_view text, MenuConfiguration& configuration,
                                    MessageList& errors, MessageList& warnings);
// Reads the file and does both of the above (the menu only when the globals were read to the
// end). `configuration` is reset to the settings defaults first, with the feature off, so a file
// that is missing or has no entry reads as off. Returns true when no error was added.
[[nodiscard]] bool ReadSettingsFile(const std::wstring& path, MenuConfiguration& configuration,
                                    MessageList& errors, MessageList& warnings);

}  // namespace cmr

#pragma once
// menu.json: the hand-editable menu document, its parser into MenuConfiguration, and the
// commented starter document that `config init` writes.

#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "common/status.h"
#include "common/text.h"
#include "config/menu_configuration.h"

namespace cmr {

// The modifier grammar shared by menu.json and the settings file: words split at "+" and spaces,
// compared case-insensitively (ctrl/control, shift, alt, none). Returns false for any other word;
// `mask` is then untouched.
[[nodiscard]] bool ParseModifierMask(std::wstring_view text, uint32_t& mask);

// Reads a menu document (the DOM of menu.json) into `configuration`, which already holds its
// defaults. Appends every error and warning in document order and keeps going where it can; only a
// non-object top level and a missing 'profiles' array stop it. Returns true exactly when no error
// was added.
[[nodiscard]] bool ParseMenuDocument(const rapidjson::Value& document,
                                     MenuConfiguration& configuration, MessageList& errors,
                                     MessageList& warnings);
// The 'profiles' array alone, with the same rules and "profiles[i]" message paths: the settings
// file's "menu.profiles" is read with it, so no menu.json global can leak in.
[[nodiscard]] bool ParseMenuProfiles(const rapidjson::Value* profiles,
                                     MenuConfiguration& configuration, MessageList& errors,
                                     MessageList& warnings);

// The starter menu.json, byte for byte.
[[nodiscard]] std::string_view StarterDocumentText() noexcept;

// Writes the starter document as a new file. An existing file, including one that appears
// while this runs, is never touched: the failure then is the refusal to overwrite it.
[[nodiscard]] Status WriteStarterDocument(const std::wstring& path);

}  // namespace cmr

#pragma once
// User command icons. A user command names an icon source file ("icon_path": an .exe, .dll or
// .ico); the Hook draws from a plain ".ico" file so that it never loads the user's modules
// into Explorer. Publication extracts the source's first icon once and caches it in the
// "user-icons" folder of the data directory, named after the source path, and the published
// definition and rows point at the cached file.

#include <string>
#include <string_view>

#include "model/model_types.h"

namespace cmr {

// ...\Ravelin\user-icons\<16 hex digits of the source path's FNV-1a hash>.ico
[[nodiscard]] std::wstring UserIconCachePath(std::wstring_view iconSource);

// Extracts the first icon of `iconSource` (the first icon group of an .exe or .dll, with all
// its images, or the first image of an .ico) and writes it as an ".ico" file to `target`
// (atomically). Returns false when the source holds no icon or the file cannot be written.
[[nodiscard]] bool ExtractFirstIcon(const std::wstring& iconSource, const std::wstring& target);

// Fills `cachedIcon` of every user command definition and user command row with an
// "icon_path", extracting each source once per call. Schema-3 models extract nothing. A
// source that yields no icon leaves the field empty; the row then names its source as
// authored.
void CacheUserCommandIcons(ModelDocument& model);

}  // namespace cmr

#pragma once
// The broad class of a right-clicked file ("text", "image", "compressed", ...), as layouts and
// extension rules match it. Cheap properties captured with the selection come first; the file
// type's registration is read only when they are missing.

#include <functional>
#include <string>
#include <string_view>

namespace cmr {

// Returns the string registered for the file's type under a value name ("PerceivedType" or
// "Content Type"), or "" when there is none.
using RegistrationLookup = std::function<std::wstring(std::wstring_view valueName)>;

// Trims space, tab, carriage return and line feed at both ends and lower-cases every unit.
[[nodiscard]] std::wstring NormaliseClassText(std::wstring_view text);

// The class string, never empty ("other" when nothing is known). A captured perceived type
// answers without calling `lookup`; otherwise it is called at most once per value name.
[[nodiscard]] std::wstring ClassifyFile(std::wstring_view capturedPerceivedType,
                                        std::wstring_view capturedMimeType,
                                        const RegistrationLookup& lookup);

}  // namespace cmr

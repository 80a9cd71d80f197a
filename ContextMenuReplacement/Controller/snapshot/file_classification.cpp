#include "snapshot/file_classification.h"

#include "common/text.h"

namespace cmr {

std::wstring NormaliseClassText(std::wstring_view text) {
  constexpr std::wstring_view kBlank = L" \t\r\n";
  const size_t first = text.find_first_not_of(kBlank);
  if (first == std::wstring_view::npos) return {};
  const size_t last = text.find_last_not_of(kBlank);
  std::wstring result(text.substr(first, last - first + 1));
  for (wchar_t& unit : result) unit = FoldCase(unit);
  return result;
}

std::wstring ClassifyFile(std::wstring_view capturedPerceivedType,
                          std::wstring_view capturedMimeType, const RegistrationLookup& lookup) {
  if (std::wstring perceived = NormaliseClassText(capturedPerceivedType); !perceived.empty()) {
    return perceived;
  }
  // A registered perceived type beats any MIME type, captured or registered.
  if (std::wstring registered = NormaliseClassText(lookup(L"PerceivedType")); !registered.empty()) {
    return registered;
  }
  std::wstring mime = NormaliseClassText(capturedMimeType);
  if (mime.empty()) mime = NormaliseClassText(lookup(L"Content Type"));
  const size_t slash = mime.find(L'/');
  if (slash != std::wstring::npos && slash != 0) return mime.substr(0, slash);
  return L"other";
}

}  // namespace cmr

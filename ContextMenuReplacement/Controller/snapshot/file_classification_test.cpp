#include "snapshot/file_classification.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

namespace cmr {
namespace {

TEST(FileClassification, CapturedFirstThenRegistryPerceivedTypeThenMimeTypes) {
  using Names = std::vector<std::wstring>;
  const struct {
    const wchar_t* perceived;
    const wchar_t* mime;
    std::map<std::wstring, std::wstring> registered;
    const wchar_t* expected;
    Names asked;  // the registry is read only for what the capture lacks
  } cases[] = {
      {L" Text\r\n", L"audio/mpeg", {{L"PerceivedType", L"image"}}, L"text", {}},
      {L"",
       L"application/x-zip-compressed",
       {{L"PerceivedType", L" Compressed "}, {L"Content Type", L"audio/mpeg"}},
       L"compressed",
       {L"PerceivedType"}},
      {L"  ",
       L"application/x-zip-compressed",
       {{L"Content Type", L"audio/mpeg"}},
       L"application",
       {L"PerceivedType"}},
      {L"", L"", {{L"Content Type", L"Audio/MPEG"}}, L"audio", {L"PerceivedType", L"Content Type"}},
      {L"", L"", {}, L"other", {L"PerceivedType", L"Content Type"}},
      {L"", L"/x", {}, L"other", {L"PerceivedType"}},
      {L"", L"text", {}, L"other", {L"PerceivedType"}},
  };
  for (const auto& c : cases) {
    Names asked;
    const auto lookup = [&](std::wstring_view name) {
      asked.emplace_back(name);
      const auto found = c.registered.find(std::wstring(name));
      return found == c.registered.end() ? std::wstring() : found->second;
    };
    EXPECT_EQ(ClassifyFile(c.perceived, c.mime, lookup), c.expected) << c.perceived << c.mime;
    EXPECT_EQ(asked, c.asked) << c.perceived << c.mime;
  }
  EXPECT_EQ(NormaliseClassText(L"\t Rich Text \n"), L"rich text");
}

}  // namespace
}  // namespace cmr

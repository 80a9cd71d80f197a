#include "snapshot/file_classification.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

namespace cmr {
namespace {

// A registration that records every value name it is asked for.
struct FakeRegistration {
  std::map<std::wstring, std::wstring> values;
  std::vector<std::wstring> asked;

  RegistrationLookup Lookup() {
    return [this](std::wstring_view name) {
      asked.emplace_back(name);
      const auto found = values.find(std::wstring(name));
      return found == values.end() ? std::wstring() : found->second;
    };
  }
};

TEST(FileClassification, CapturedPerceivedTypeAnswersWithoutTheRegistry) {
  FakeRegistration registration{{{L"PerceivedType", L"image"}}, {}};
  EXPECT_EQ(ClassifyFile(L" Text\r\n", L"audio/mpeg", registration.Lookup()), L"text");
  EXPECT_TRUE(registration.asked.empty());
}

TEST(FileClassification, RegisteredPerceivedTypeBeatsEveryMimeType) {
  FakeRegistration zip{{{L"PerceivedType", L" Compressed "}, {L"Content Type", L"audio/mpeg"}}, {}};
  EXPECT_EQ(ClassifyFile(L"", L"application/x-zip-compressed", zip.Lookup()), L"compressed");
  EXPECT_EQ(zip.asked, std::vector<std::wstring>{L"PerceivedType"});
}

TEST(FileClassification, MimeTypesCapturedBeforeRegistered) {
  FakeRegistration registered{{{L"Content Type", L"audio/mpeg"}}, {}};
  EXPECT_EQ(ClassifyFile(L"  ", L"application/x-zip-compressed", registered.Lookup()),
            L"application");
  EXPECT_EQ(registered.asked, std::vector<std::wstring>{L"PerceivedType"});

  FakeRegistration onlyRegistered{{{L"Content Type", L"Audio/MPEG"}}, {}};
  EXPECT_EQ(ClassifyFile(L"", L"", onlyRegistered.Lookup()), L"audio");
  EXPECT_EQ(onlyRegistered.asked, (std::vector<std::wstring>{L"PerceivedType", L"Content Type"}));
}

TEST(FileClassification, UnclassifiedIsOther) {
  FakeRegistration nothing;
  EXPECT_EQ(ClassifyFile(L"", L"", nothing.Lookup()), L"other");
  EXPECT_EQ(ClassifyFile(L"", L"/x", nothing.Lookup()), L"other");
  EXPECT_EQ(ClassifyFile(L"", L"text", nothing.Lookup()), L"other");
  EXPECT_EQ(NormaliseClassText(L"\t Rich Text \n"), L"rich text");
}

}  // namespace
}  // namespace cmr

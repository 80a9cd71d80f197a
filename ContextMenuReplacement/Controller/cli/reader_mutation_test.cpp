// A seeded mutation run over the documents people and installers edit (the starter menu.json,
// the shipped settings file and the shipped baseline) through the real readers. A crash ends
// the test executable; every refusal must say why; everything accepted must flatten into an
// image its own reader accepts.

#include <gtest/gtest.h>

#include <cstdio>
#include <iterator>
#include <random>
#include <sstream>
#include <string>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/json_text.h"
#include "config/config_snapshot.h"
#include "config/menu_document.h"
#include "config/settings_file.h"
#include "snapshot/publish_pipeline.h"
#include "tests/support/staged_install.h"

namespace cmr {
namespace {

// Edits that reach the parser's refusals and the readers behind it: any byte, the bytes and
// tokens hostile input is made of, deletions, truncation, and copies of a stretch of the
// document elsewhere (repeated keys, members in the wrong place, deeper nesting).
std::string Mutate(std::string text, std::mt19937& random) {
  static const std::string kBytes =
      std::string("{}[]\",:\\0-.e/") + std::string(1, '\0') + "\xFF\xED\xC3\x80\x1B\n";
  static const std::vector<std::string> kTokens = [] {
    std::istringstream words(
        "\\u0000 \\udc00 \\ud800 \xEF\xBB\xBF 18446744073709551616 1e999 -1 4294967296 "
        "\"source\":\"user\", \"id\":\"x\", null [[[[[[[[[[[[[[[[ }}]]");
    return std::vector<std::string>(std::istream_iterator<std::string>(words), {});
  }();
  const int edits = 1 + static_cast<int>(random() % 4);
  for (int e = 0; e < edits && !text.empty(); ++e) {
    const size_t at = random() % text.size();
    switch (random() % 7) {
      case 0: text[at] = static_cast<char>(random()); break;
      case 1: text.insert(at, 1, kBytes[random() % kBytes.size()]); break;
      case 2: text.erase(at, 1 + random() % 24); break;
      case 3: text.insert(at, kTokens[random() % kTokens.size()]); break;
      case 4: text.insert(at, text.substr(random() % text.size(), 1 + random() % 200)); break;
      case 5: text.insert(at, std::string(1 + random() % 300, "[{"[random() % 2])); break;
      default: text.resize(at); break;
    }
  }
  return text;
}

// Each returns whether the text was accepted; a refusal without a message fails the test, and
// what is accepted must flatten into an image its own reader accepts.
bool Accepted(bool read, const MessageList& errors, const MenuConfiguration& configuration) {
  EXPECT_TRUE(read || (!errors.empty() && !errors[0].empty()));
  if (read) {
    EXPECT_EQ(CheckSnapshotImage(FlattenConfiguration(configuration, 7), 7), L"");
  }
  return read;
}

bool ReadMenu(const std::string& text) {
  rapidjson::Document document;
  JsonParseFailure failure;
  MenuConfiguration configuration;
  MessageList errors, warnings;
  if (!ParseJsonText(text, true, document, failure))
    return Accepted(false, {failure.description}, configuration);
  return Accepted(ParseMenuDocument(document, configuration, errors, warnings), errors,
                  configuration);
}

bool ReadSettings(const std::string& text) {
  MenuConfiguration configuration;
  MessageList errors, warnings;
  return Accepted(ReadSettingsText(text, configuration, errors, warnings), errors, configuration);
}

bool ReadBaseline(const std::string& text) {
  static const std::wstring schema = StagedFile(L"Schema\\custom-menu.schema.json");
  static const std::wstring file = JoinPath(ParentFolder(ExecutableFolder()), L"mutated.json");
  EXPECT_TRUE(AtomicWriteFile(file, text).ok());
  CompiledCustomModel compiled;
  const ModelPipelineResult result = CompileBaseline(schema, file, compiled);
  EXPECT_TRUE(result.errors.empty() || !result.errors[0].empty());
  return result.errors.empty();
}

std::string Staged(const wchar_t* relative) {
  const Result<std::string> bytes = ReadWholeFile(StagedFile(relative));
  EXPECT_TRUE(bytes.ok()) << bytes.message();
  return bytes.ok() ? bytes.value() : std::string();
}

TEST(ReaderMutation, NoMutatedDocumentCrashesAReaderAndEveryRefusalSaysWhy) {
  const struct {
    const char* name;
    std::string text;
    bool (*read)(const std::string&);
    int inputs;
  } sources[] = {
      {"starter menu.json", std::string(StarterDocumentText()), ReadMenu, 3000},
      {"settings file", Staged(L"Content\\Configurations\\High Level Settings.json"), ReadSettings,
       3000},
      {"shipped baseline", Staged(L"Content\\Menus\\create-organize.baseline.json"), ReadBaseline,
       600},
  };
  std::mt19937 random(20261123);
  for (const auto& source : sources) {
    SCOPED_TRACE(source.name);
    ASSERT_TRUE(source.read(source.text));
    int accepted = 0;
    for (int i = 0; i < source.inputs; ++i) accepted += source.read(Mutate(source.text, random));
    // The figures for the record; a crash would have ended the run before this line.
    std::printf("mutation run, %s: %d inputs, %d accepted, %d refused, 0 crashes\n", source.name,
                source.inputs, accepted, source.inputs - accepted);
  }
}

}  // namespace
}  // namespace cmr

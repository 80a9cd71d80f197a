// A seeded mutation run over the documents people and installers edit (the starter menu.json,
// the shipped settings file, the shipped baseline and the shipped schema) through the real
// readers. A crash ends the test executable; every refusal must say why; everything accepted
// must flatten into an image its own reader accepts.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
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
  static const std::string kBytes("{}[]\",:\\0-.e/\0\xFF\xED\xC3\x80\x1B\n", 20);  // with the NUL
  static const std::vector<std::string> kTokens = [] {
    std::istringstream words(
        "\\u0000 \\udc00 \\ud800 \xEF\xBB\xBF 18446744073709551616 1e999 -1 4294967296 "
        "\"source\":\"user\", \"id\":\"x\", null [[[[[[[[[[[[[[[[ }}]] {\"$ref\":\"#\"} "
        "\"$ref\":\"#/definitions/node\", \"items\":5, \"pattern\":\"[\", false "
        "\"additionalProperties\":{\"$ref\":\"#\"}, \"items\":{\"$ref\":\"#/definitions/n\"},");
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

enum class Reader { menu, settings, baseline, schema };

// Reads `text` as the program reads that document and returns whether it was accepted; a
// refusal must say why, and what is accepted must flatten into an image its own reader accepts.
bool Accepts(Reader reader, const std::string& text) {
  MenuConfiguration configuration;
  MessageList errors, warnings;
  bool read = false;
  if (reader == Reader::menu) {
    rapidjson::Document document;
    JsonParseFailure failure;
    const bool parsed = ParseJsonText(text, true, document, failure);
    if (!parsed) errors.push_back(failure.description);
    read = parsed && ParseMenuDocument(document, configuration, errors, warnings);
  } else if (reader == Reader::settings) {
    read = ReadSettingsText(text, configuration, errors, warnings);
  } else {
    static const std::wstring schema = StagedFile(L"Schema\\custom-menu.schema.json");
    static const std::wstring baseline =
        StagedFile(L"Content\\Menus\\create-organize.baseline.json");
    static const std::wstring file = JoinPath(ParentFolder(ExecutableFolder()), L"mutated.json");
    EXPECT_TRUE(AtomicWriteFile(file, text).ok());
    CompiledCustomModel compiled;
    errors = (reader == Reader::schema ? CompileBaseline(file, baseline, compiled, false)
                                       : CompileBaseline(schema, file, compiled, false))
                 .errors;
    read = errors.empty();
  }
  EXPECT_TRUE(read || (!errors.empty() && !errors[0].empty()));
  if (read && (reader == Reader::menu || reader == Reader::settings)) {
    EXPECT_EQ(CheckSnapshotImage(FlattenConfiguration(configuration, 7), 7).message(), L"");
  }
  return read;
}

std::string Staged(const wchar_t* relative) {
  const Result<std::string> bytes = ReadWholeFile(StagedFile(relative));
  return bytes.ok() ? bytes.value() : std::string();  // empty: refused by the first check
}

TEST(ReaderMutation, NoMutatedDocumentCrashesAReaderAndEveryRefusalSaysWhy) {
  std::string chain = R"({"$ref":"#/definitions/d0","definitions":{)";
  for (int i = 0; i < 31; ++i)
    chain += fmt::format(R"("d{}":{{"$ref":"#/definitions/d{}"}},)", i, i + 1);
  chain += R"("d31":{}}})";
  const struct {
    const char* name;
    std::string text;
    Reader reader;
    int inputs;
  } sources[] = {
      {"starter menu.json", std::string(StarterDocumentText()), Reader::menu, 3000},
      {"settings file", Staged(L"Content\\Configurations\\High Level Settings.json"),
       Reader::settings, 3000},
      {"shipped baseline", Staged(L"Content\\Menus\\create-organize.baseline.json"),
       Reader::baseline, 600},
      {"shipped schema", Staged(L"Schema\\custom-menu.schema.json"), Reader::schema, 600},
      {"a doubling schema",
       R"({"$ref":"#/definitions/n","definitions":{"m":{"items":{"$ref":"#/definitions/n"}},)"
       R"("n":{"allOf":[{"$ref":"#/definitions/m"},{"$ref":"#/definitions/m"}]}}})",
       Reader::schema, 300},
      {"a 32-link chain", chain, Reader::schema, 300},
  };
  std::mt19937 random(20261123);
  for (const auto& [name, text, reader, inputs] : sources) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(Accepts(reader, text));
    int accepted = 0;
    std::chrono::steady_clock::duration longest{};
    for (int i = 0; i < inputs; ++i) {
      const std::string mutated = Mutate(text, random);
      const auto start = std::chrono::steady_clock::now();
      accepted += Accepts(reader, mutated);
      longest = std::max(longest, std::chrono::steady_clock::now() - start);
    }
    // The figures for the record; a crash would have ended the run before this line.
    std::printf(
        "mutation run, %s: %d inputs, %d accepted, %d refused, 0 crashes, longest %lld ms\n", name,
        inputs, accepted, inputs - accepted,
        static_cast<long long>(
            std::chrono::duration_cast<std::chrono::milliseconds>(longest).count()));
  }
}

}  // namespace
}  // namespace cmr

#include "common/schema_workload.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "common/file_io.h"
#include "common/json_text.h"
#include "tests/support/staged_install.h"

namespace cmr {
namespace {

rapidjson::Document Parsed(const std::string& text) {
  rapidjson::Document document;
  JsonParseFailure failure;
  EXPECT_TRUE(ParseJsonText(text, false, document, failure)) << text.substr(0, 80);
  return document;
}

// Each array level applies "n" to its elements twice, so a value at depth k starts 3 * 2^k
// validators: 14 levels stay under the limit, 20 pass it at the 15th.
TEST(SchemaWorkload, ASchemaThatDoublesPerLevelIsRefusedWhereItPassesTheLimit) {
  const std::string doubling =
      R"({"$ref":"#/definitions/n","definitions":{"m":{"items":{"$ref":"#/definitions/n"}},)"
      R"("n":{"allOf":[{"$ref":"#/definitions/m"},{"$ref":"#/definitions/m"}]}}})";
  std::string fifteen = "'#";
  for (int i = 0; i < 15; ++i) fifteen += "/0";
  const std::pair<int, std::wstring> rows[] = {
      {14, L""},
      {20,
       L"The schema would run more than 100000 schema validators over the document; the limit "
       L"is passed at " +
           FromUtf8(fifteen) + L"'."},
  };
  const rapidjson::Document schema = Parsed(doubling);
  for (const auto& [depth, expected] : rows) {
    const rapidjson::Document document =
        Parsed(std::string(depth, '[') + "1" + std::string(depth, ']'));
    EXPECT_EQ(CheckSchemaWorkload(schema, document).message(), expected) << depth;
  }
  EXPECT_EQ(SchemaValidatorCount(schema, Parsed("[[[1]]]")), 3u * (1 + 2 + 4 + 8));
  // The shipped pair, for the record of how far below the limit it stays.
  const rapidjson::Document shipped =
      Parsed(ReadWholeFile(StagedFile(L"Schema\\custom-menu.schema.json")).value());
  const size_t count = SchemaValidatorCount(
      shipped,
      Parsed(ReadWholeFile(StagedFile(L"Content\\Menus\\create-organize.baseline.json")).value()));
  std::printf("shipped schema over the shipped baseline: %zu validators\n", count);
  EXPECT_LT(count * 10, kMaxSchemaValidators);
}

}  // namespace
}  // namespace cmr

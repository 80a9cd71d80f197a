#include "common/schema_shape.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/json_text.h"
#include "tests/support/golden_file.h"

namespace cmr {
namespace {

// Each of these schemas once let every document through as valid, or took the validator's
// construction far past a second; each is refused naming where, and the sound ones pass.
TEST(SchemaShape, MalformedSchemasAreRefusedNamingTheKeyword) {
  std::string objects = "{\"definitions\":{";
  for (size_t i = 0; i < kMaxSchemaObjects; ++i) objects += "\"d" + std::to_string(i) + "\":{},";
  objects.back() = '}';
  objects += '}';
  std::string patterns;  // 8 of 3998 states, 31984 in all
  for (int i = 0; i < 8; ++i) patterns += "{\"pattern\":\"a{1999}\"},";
  // Rows kept as data: each schema text and the message it gives (none for the sound one). An
  // enum's content is data, reached as a schema only through a reference; but every enum entry is
  // built as a schema too, and its patterns compiled.
  std::vector<std::pair<std::string, std::wstring>> rows = {
      {"{\"enum\":[" + patterns + "{\"pattern\":\"a{1999}\"}]}",
       L"The schema's patterns expand to more than 32768 states; the limit is exceeded at "
       L"'#/enum/8/pattern'."},
      {objects,
       L"The schema holds more than 4096 objects; the limit is exceeded at '#/definitions/d4094'."},
  };
  for (const auto& row : GoldenRows(L"schema_shapes.tsv"))
    rows.emplace_back(row[0], FromUtf8(row[1]));
  ASSERT_EQ(rows.size(), 19u);

  for (const auto& [text, expected] : rows) {
    rapidjson::Document schema;
    JsonParseFailure failure;
    ASSERT_TRUE(ParseJsonText(text, false, schema, failure)) << text.substr(0, 80);
    EXPECT_EQ(CheckSchemaShape(schema).message(), expected) << text.substr(0, 80);
  }
}

TEST(SchemaShape, PatternStatesBoundWhatTheEngineCopiesOut) {
  const std::pair<const char*, size_t> rows[] = {
      {"abc", 3}, {"a{3}", 6},      {"(ab){2,3}", 9},
      {"a+", 3},  {"[a-z\\]]*", 2}, {"a{9999999999999}", size_t{1} << 40},
  };
  for (const auto& [pattern, states] : rows)
    EXPECT_EQ(PatternStateBound(pattern), states) << pattern;
}

}  // namespace
}  // namespace cmr

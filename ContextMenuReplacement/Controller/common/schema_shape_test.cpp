#include "common/schema_shape.h"

#include <gtest/gtest.h>

#include <string>

#include "common/json_text.h"

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
  const std::pair<std::string, const wchar_t*> rows[] = {
      {"false", L"The schema at '#' must be a JSON object."},
      {"null", L"The schema at '#' must be a JSON object."},
      {"[]", L"The schema at '#' must be a JSON object."},
      {R"({"items":5})",
       L"The schema's 'items' at '#/items' must be a schema or an array of schemas."},
      {R"({"items":[{},3]})", L"The schema at '#/items/1' must be a JSON object."},
      {R"({"required":"x"})",
       L"The schema's 'required' at '#/required' must be an array of strings."},
      {R"({"pattern":"["})",
       L"The schema's pattern at '#/pattern' is not a regular expression the validator can "
       L"compile."},
      {"{\"patternProperties\":{\"a)\":{}}}",
       L"The schema's pattern at '#/patternProperties/a)' is not a regular expression the "
       L"validator can compile."},
      {"{\"pattern\":\"((a{99}){99})\"}",
       L"The schema's pattern at '#/pattern' expands to more than 4096 states."},
      {R"({"properties":{"a/b":{"type":"strnig"}}})",
       L"The schema's 'type' at '#/properties/a~1b/type' must be a type name or an array of type "
       L"names."},
      {R"({"definitions":{"n":{"anyOf":[]}}})",
       L"The schema's 'anyOf' at '#/definitions/n/anyOf' must be a non-empty array of schemas."},
      {R"({"not":{"additionalProperties":"no"}})",
       L"The schema's 'additionalProperties' at '#/not/additionalProperties' must be a boolean or "
       L"a schema."},
      {R"({"dependencies":{"a":3}})",
       L"The schema's 'dependencies' at '#/dependencies' must be an object of schemas or arrays "
       L"of strings."},
      {R"({"maxLength":-1})",
       L"The schema's 'maxLength' at '#/maxLength' must be a non-negative integer."},
      {R"({"multipleOf":0})",
       L"The schema's 'multipleOf' at '#/multipleOf' must be a number greater than 0."},
      // Reached only through the reference: the enum's content is data, not a schema.
      {R"({"enum":[{"uniqueItems":1}],"$ref":"#/enum/0"})",
       L"The schema's 'uniqueItems' at '#/enum/0/uniqueItems' must be a boolean."},
      // Data in "enum" is built as a schema too, and its patterns compiled.
      {"{\"enum\":[" + patterns + "{\"pattern\":\"a{1999}\"}]}",
       L"The schema's patterns expand to more than 32768 states; the limit is exceeded at "
       L"'#/enum/8/pattern'."},
      {objects,
       L"The schema holds more than 4096 objects; the limit is exceeded at '#/definitions/d4094'."},
      {R"({"type":["object","null"],"pattern":"^a{2,}(b|c)*[\\]x]?$","enum":[{"items":5}],)"
       R"("properties":{"p":{"$ref":"#/definitions/d"}},"definitions":{"d":{"minimum":1.5}}})",
       L""},
  };
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

#include "common/json_text.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "common/json_members.h"
#include "common/schema_references.h"
#include "tests/support/golden_file.h"

namespace cmr {
namespace {

std::string Nested(size_t depth) {
  return std::string(depth, '[') + "1" + std::string(depth, ']');
}

// The regression corpus of hostile text: every row is refused at a stated offset with a
// message that names where, or accepted when it states none. Large inputs are generated, small
// ones written out.
TEST(JsonText, HostileTextIsRefusedWithWhereAndWhyAndTheRestAccepted) {
  using namespace std::string_literals;
  std::wstring deepest = L"The value at '";
  for (size_t i = 0; i < kMaxJsonDepth; ++i) deepest += L"[0]";
  deepest += L"' is nested deeper than 128 levels.";
  const struct {
    const char* name;
    std::string text;
    size_t offset;
    std::wstring description;
  } rows[] = {
      {"bytes after a NUL", "{\"a\":1}\0GARBAGE"s, 7, L"The document contains a NUL byte."},
      {"\\u0000 in a value", R"({"p":[{"title":"cmd.exe\u0000evil"}]})", 34,
       L"The text at 'p[0].title' contains a NUL character (\\u0000)."},
      {"\\u0000 in a key", R"({"a\u0000b":1})", 11,
       L"The key 'a\\u0000b' contains a NUL character (\\u0000)."},
      {"an unpaired low surrogate", R"({"t":"x\udc00"})", 14,
       L"The text at 't' contains an unpaired surrogate."},
      {"an unpaired high surrogate", R"({"t":"\ud800x"})", 6,
       L"The surrogate pair in string is invalid."},
      {"invalid UTF-8", "{\"a\":{\"b\":\"\xC3\x28\"}}", 11, L"Invalid UTF-8 in the text at 'a.b'."},
      {"a raw encoded surrogate", "[\"\xED\xB0\x80\"]", 2, L"Invalid UTF-8 in the text at '[0]'."},
      {"a nested duplicate key", R"({"p":[{"k":1},{"k":1,"j":2,"k":3}]})", 30,
       L"The key 'p[1].k' appears more than once."},
      {"a control character in a key", "{\"\\u001b[2J\":1,\"\\u001b[2J\":2}", 26,
       L"The key '\\u001b[2J' appears more than once."},
      // 44 KB of brackets once overflowed the stack and ended the process silently; refused
      // where the 129th level opens, so the bound holds to the level.
      {"21,750 levels", Nested(21750), kMaxJsonDepth, deepest},
      {"trailing garbage", "{} x", 3, L"The document root must not be followed by other values."},
      {"a byte-order mark then nothing", "\xEF\xBB\xBF", 3, L"The document is empty."},
      {"the deepest nesting allowed", Nested(kMaxJsonDepth), 0, L""},
      {"comments and escapes",
       "// comment\n{\"a\":[1,2],\"b\":{\"a\":1},\"t\":\"\\ud83d\\ude00 \\u001b\"}", 0, L""},
      {"a key again in a sibling object", R"([{"k":1},{"k":2}])", 0, L""},
      {"a byte-order mark", "\xEF\xBB\xBF{\"a\":\"\\u00e4\"}", 0, L""},
  };
  rapidjson::Document document;
  for (const auto& row : rows) {
    JsonParseFailure failure;
    EXPECT_EQ(ParseJsonText(row.text, true, document, failure), row.description.empty())
        << row.name;
    EXPECT_EQ(failure.offset, row.offset) << row.name;
    EXPECT_EQ(failure.description, row.description) << row.name;
  }
  // The last row: the byte-order mark is skipped and the escape decoded.
  EXPECT_EQ(JsonWide(document["a"]), L"\u00e4");
}

// A chain of `links` references from the root, "#/definitions/d0" to "d<links-1>", or as many
// references side by side.
std::string References(size_t links, bool chained) {
  std::string text = R"({"$ref":"#/definitions/d0","definitions":{)";
  for (size_t i = 0; i + 1 < links; ++i) {
    text += fmt::format(R"("d{}":{{"$ref":"#/definitions/d{}"}},)", i, chained ? i + 1 : links - 1);
  }
  return text + fmt::format(R"("d{}":{{}}}}}})", links - 1);
}

// Each level applies the next one twice, through two references: d0 applies 2^(levels+2) - 3
// schemas to one value.
std::string Fanned(size_t levels) {
  std::string text = R"({"definitions":{)";
  for (size_t i = 0; i < levels; ++i) {
    text += fmt::format(
        R"("d{}":{{"allOf":[{{"$ref":"#/definitions/d{}"}},{{"$ref":"#/definitions/d{}"}}]}},)", i,
        i + 1, i + 1);
  }
  return text + fmt::format(R"("d{}":{{}}}}}})", levels);
}

// Schemas whose references never resolve, resolve back to themselves, or would take the
// validator's construction past a second or past the end of the stack (10,000 links once ended
// the process silently) are refused before any validator is built from them.
TEST(JsonText, SchemaReferencesMustResolveAndNeverLoop) {
  // Written-out rows are kept as data; one without a message field expects some problem,
  // whichever the walk meets first.
  std::vector<std::pair<std::string, std::optional<std::wstring>>> rows = {
      {References(10'000, true),
       L"The schema's chain of '$ref' references from '#' exceeds 32 links at "
       L"'#/definitions/d31'."},
      {References(kMaxSchemaReferenceChain, true), L""},
      {References(kMaxSchemaReferences + 1, false),
       L"The schema holds more than 1024 '$ref' references; the limit is exceeded at "
       L"'#/definitions/d1023'."},
      {References(kMaxSchemaReferences, false), L""},
      {Fanned(9), L"The schema at '#/definitions/d0' applies more than 1024 schemas to one value."},
      {Fanned(8), L""},
  };
  for (const auto& row : GoldenRows(L"schema_references.tsv"))
    rows.emplace_back(row[0], row.size() > 1 ? std::optional(FromUtf8(row[1])) : std::nullopt);
  ASSERT_EQ(rows.size(), 14u);

  for (const auto& [text, expected] : rows) {
    rapidjson::Document schema;
    JsonParseFailure failure;
    ASSERT_TRUE(ParseJsonText(text, false, schema, failure)) << text.substr(0, 80);
    const std::wstring problem = CheckSchemaReferences(schema).message();
    EXPECT_TRUE(expected ? problem == *expected : !problem.empty())
        << text.substr(0, 80) << ": " << problem;
  }
}

}  // namespace
}  // namespace cmr

#include "config/menu_document.h"

#include <gtest/gtest.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "common/file_io.h"
#include "common/json_text.h"
#include "common/text.h"
#include "tests/support/shipped_schemas.h"
#include "tests/support/staged_install.h"

// Documents with every kind of item are published and compared whole in config_verbs_e2e_test.cpp.

namespace cmr {
namespace {

struct Parsed {
  bool ok = false;
  MenuConfiguration config;
  MessageList errors;
  MessageList warnings;
};

Parsed Parse(std::string_view json) {
  Parsed p;
  rapidjson::Document document;
  JsonParseFailure failure;
  EXPECT_TRUE(ParseJsonText(json, true, document, failure)) << json;
  p.ok = ParseMenuDocument(document, p.config, p.errors, p.warnings);
  // Every row also holds the shipped schema to the reader's verdict: warnings refuse nothing.
  EXPECT_EQ(ShippedSchemaAccepts(L"menu.schema.json", document), p.ok) << json;
  return p;
}

TEST(MenuDocument, BypassGrammar) {
  const struct {
    const wchar_t* text;
    bool understood;
    uint32_t mask;
  } cases[] = {{L"ctrl + SHIFT", true, 6}, {L"Ctrl+Win", false, 99},
               {L"None", true, 0},         {L"", true, 0},
               {L"Alt+control", true, 3},  {L"shift++ none", true, 4}};
  for (const auto& c : cases) {
    uint32_t mask = 99;
    EXPECT_EQ(ParseModifierMask(c.text, mask), c.understood) << c.text;
    EXPECT_EQ(mask, c.mask) << c.text;
    const std::string text = ToUtf8(c.text);
    EXPECT_EQ(ShippedSchemaAccepts(L"menu.schema.json", rapidjson::Value(text.c_str(), text.size()),
                                   "nativeMenuBypass"),
              c.understood)
        << text;
  }
}

// Golden rows: a document and the errors and warnings it gives, in order. A refused value leaves
// its default in place.
rapidjson::Document GoldenRows() {
  rapidjson::Document rows;
  rows.Parse(ReadWholeFile(SourceFile(L"ContextMenuReplacement\\Controller\\config\\"
                                      L"menu_document_rows.json"))
                 .value()
                 .c_str());
  return rows;
}

std::string Text(const rapidjson::Value& value) {
  rapidjson::StringBuffer text;
  rapidjson::Writer<rapidjson::StringBuffer> writer(text);
  value.Accept(writer);
  return text.GetString();
}

TEST(MenuDocument, MessagesOfEachGoldenRow) {
  const rapidjson::Document rows = GoldenRows();
  ASSERT_TRUE(rows.IsArray());
  for (const rapidjson::Value& row : rows.GetArray()) {
    const Parsed p = Parse(Text(row["document"]));
    const auto list = [&](const char* key) {
      MessageList messages;
      if (!row.HasMember(key)) return messages;
      for (const auto& m : row[key].GetArray()) messages.push_back(FromUtf8(m.GetString()));
      return messages;
    };
    EXPECT_EQ(p.errors, list("errors")) << Text(row["document"]);
    EXPECT_EQ(p.warnings, list("warnings")) << Text(row["document"]);
    if (!p.ok) {
      EXPECT_EQ(std::make_pair(p.config.opacityPercent, p.config.bypassMask),
                std::make_pair(78u, 6u));
    }
  }
  EXPECT_EQ(Parse(R"({"backgroundOpacityPercent":100,"profiles":[]})").config.opacityPercent, 100u);
  EXPECT_TRUE(Parse(StarterDocumentText()).ok);
}

TEST(MenuDocument, RecordOfTheLastGoldenRow) {
  const rapidjson::Document rows = GoldenRows();
  const Parsed p = Parse(Text(rows[rows.Size() - 1]["document"]));
  ASSERT_EQ(p.config.items.size(), 7u);
  EXPECT_EQ(p.config.items[0].source, ItemSource::classic);
  EXPECT_EQ(p.config.items[1].source, ItemSource::separator);
  EXPECT_EQ(p.config.userCommandCount, 2u);
  EXPECT_EQ(p.config.arguments.size(), 32u);
  // A profile without usable items is still recorded: its contexts show an empty menu on purpose.
  // One without a known context is not; unknown contexts drop out of a profile's mask.
  ASSERT_EQ(p.config.profiles.size(), 4u);
  EXPECT_EQ(p.config.profiles[0].itemCount, 2u);
  EXPECT_EQ(p.config.profiles[1].itemCount, 0u);
  EXPECT_EQ(p.config.profiles[3].contextMask, 0x10u);
}

}  // namespace
}  // namespace cmr

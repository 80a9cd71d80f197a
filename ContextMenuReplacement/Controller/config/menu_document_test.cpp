#include "config/menu_document.h"

#include <gtest/gtest.h>

#include "common/json_text.h"

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
  }
}

TEST(MenuDocument, TopLevelMessages) {
  const MessageList opacity{L"'backgroundOpacityPercent' must be a whole number from 0 to 100."};
  const struct {
    std::string json;
    MessageList errors;
  } cases[] = {
      {"[]", {L"The top level of the file must be a JSON object."}},
      {R"({"enabled":"yes","profiles":{}})",
       {L"'enabled' must be true or false.", L"'profiles' is required and must be an array."}},
      {R"({"nativeMenuBypass":"Ctrl+Win","profiles":[]})",
       {L"'nativeMenuBypass' value 'Ctrl+Win' is not understood. Use Ctrl, Shift, Alt or None, "
        L"combined with '+'."}},
      {R"({"nativeMenuBypass":7,"profiles":[]})",
       {L"'nativeMenuBypass' must be a string such as \"Ctrl+Shift\"."}},
      {R"({"backgroundOpacityPercent":100.0,"profiles":[]})", opacity},
      {R"({"backgroundOpacityPercent":101,"profiles":[]})", opacity},
  };
  for (const auto& c : cases) {
    const Parsed p = Parse(c.json);
    EXPECT_FALSE(p.ok) << c.json;
    EXPECT_EQ(p.errors, c.errors) << c.json;
    // A refused value leaves the default in place.
    EXPECT_EQ(p.config.opacityPercent, 78u) << c.json;
    EXPECT_EQ(p.config.bypassMask, 6u) << c.json;
  }
  EXPECT_EQ(Parse(R"({"backgroundOpacityPercent":100,"profiles":[]})").config.opacityPercent, 100u);
}

std::string UserItem(int arguments) {
  std::string list;
  for (int i = 0; i < arguments; ++i) list += (i ? ",\"a" : "\"a") + std::to_string(i) + "\"";
  return R"({"source":"user","title":"T","executable":"x.exe","arguments":[)" + list + "]}";
}

TEST(MenuDocument, ProfileAndItemMessagesInOrderAndItemsAtTheirLimits) {
  const Parsed p = Parse(
      R"({"profiles":[{"match":{"context":["folder-item"]},"items":[)"
      R"({"source":"user","arguments":"x"},)"
      R"({"source":"user","title":"","executable":"e","arguments":["ok",1]},)"
      R"({"source":"shell"},{"source":"classic","include":"Open*"},"separator",)"
      R"({"type":"separator","source":"bogus"},)" +
      UserItem(33) +
      R"(]},{"match":{"context":["other-item"]},"items":[)"
      R"({"source":"modern","command":"A2877438-9A16-4629-912A-1223B4E3B025"}]},)"
      R"({"match":{"context":["desktop-background"]},"items":[)" +
      UserItem(32) +
      R"(,{"source":"modern"},{"source":"modern","command":"{A2877438-9A16-4629-912A-1223B4E3B025}"})"
      R"(,{"source":"user","title":"a0","executable":"x.exe"}]},)"
      R"({"match":{"context":["desktop","other-item"]},"items":[{"type":"separator"}]},)"
      R"({"match":{"context":["nowhere"]},"items":[{"type":"separator"}]},)"
      R"({"match":{"context":[3]},"items":[]},{"match":{}},7]})");
  const std::wstring use =
      L"which is not a known context, and was skipped. Use desktop-background, "
      L"folder-background, folder-item or other-item.";
  EXPECT_EQ(p.errors,
            (MessageList{
                L"profiles[0].items[0]: 'arguments' must be an array of strings. Each argument is "
                L"passed as one token and is never concatenated into a shell command.",
                L"profiles[0].items[0]: a user command needs a non-empty 'executable'.",
                L"profiles[0].items[0]: a user command needs a non-empty 'title'.",
                L"profiles[0].items[1].arguments[1] must be a string.",
                L"profiles[0].items[1]: a user command needs a non-empty 'title'.",
                L"profiles[0].items[2]: 'source' must be classic, modern or user, or the item "
                L"must have \"type\": \"separator\".",
                L"profiles[0].items[4] must be an object.",
                L"profiles[0].items[6]: 33 arguments exceeds the limit of 32.",
                L"profiles[1].items[0]: 'command' must be a CLSID in braces, for example "
                L"\"{A2877438-9A16-4629-912A-1223B4E3B025}\". Got "
                L"'A2877438-9A16-4629-912A-1223B4E3B025'.",
                L"profiles[5].match.context[0] must be a string.",
                L"profiles[6] needs a 'match' object with a 'context' array.",
                L"profiles[7] must be an object."}));
  EXPECT_EQ(p.warnings,
            (MessageList{L"profiles[0].items[3]: only \"include\": \"*\" is supported for the "
                         L"classic source; the whole captured menu will be shown.",
                         L"profiles[1] has no usable items, so its contexts will show an empty "
                         L"menu.",
                         L"profiles[3].match.context[0] is 'desktop', " + use,
                         L"profiles[4].match.context[0] is 'nowhere', " + use,
                         L"profiles[4] matches no known context (all entries were unrecognized), "
                         L"so it was skipped.",
                         L"profiles[5] matches no known context (all entries were unrecognized), "
                         L"so it was skipped."}));
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

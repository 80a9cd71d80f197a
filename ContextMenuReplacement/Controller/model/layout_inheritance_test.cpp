#include "model/layout_inheritance.h"

#include <gtest/gtest.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>

namespace cmr {
namespace {

// A baseline document holding `layouts` (the JSON text of the array's members).
rapidjson::Document Layouts(const std::string& layouts) {
  const std::string text = R"({"document_kind":"baseline","layouts":[)" + layouts + "]}";
  rapidjson::Document document;
  EXPECT_FALSE(document.Parse(text.c_str()).HasParseError()) << text;
  return document;
}

std::string Text(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return buffer.GetString();
}

TEST(LayoutInheritance, ChildReplacesMergesAndAppendsById) {
  rapidjson::Document document =
      Layouts(R"({"id":"base","abstract":true,"items":[)"
              R"({"type":"command","id":"open","command_id":"windows:open"},)"
              R"({"type":"submenu","id":"view","title_override":"View","items":[)"
              R"({"type":"command","id":"large","command_id":"windows:large"}]},)"
              R"({"type":"command","id":"props","command_id":"windows:properties"}]},)"
              R"({"id":"child","inherits":"base","items":[)"
              R"({"type":"command","id":"props","command_id":"windows:props2"},)"
              R"({"type":"submenu","id":"view","title_override":"Show","items":[)"
              R"({"type":"command","id":"small","command_id":"windows:small"}]},)"
              R"({"type":"command","id":"new","command_id":"windows:new"}]})");
  ASSERT_EQ(ResolveInheritance(document).message(), L"");
  EXPECT_EQ(Text(document["layouts"][1]["items"]),
            R"([{"type":"command","id":"open","command_id":"windows:open","_from":"base"},)"
            R"({"type":"submenu","id":"view","title_override":"Show","items":[)"
            R"({"type":"command","id":"large","command_id":"windows:large","_from":"base"},)"
            R"({"type":"command","id":"small","command_id":"windows:small"}]},)"
            R"({"type":"command","id":"props","command_id":"windows:props2"},)"
            R"({"type":"command","id":"new","command_id":"windows:new"}])");
  EXPECT_EQ(Text(document["layouts"][1]["_ancestors"]), R"(["base"])");
  // The parent keeps its own rows untouched and unmarked.
  EXPECT_FALSE(document["layouts"][0]["items"][0].HasMember("_from"));
  EXPECT_FALSE(document["layouts"][0].HasMember("_ancestors"));

  // Children listed before their parents; each level marks the rows with the layout copied from.
  document = Layouts(R"({"id":"c","inherits":"p","items":[]},)"
                     R"({"id":"p","inherits":"g","items":[{"type":"separator","id":"own"}]},)"
                     R"({"id":"g","items":[{"type":"separator","id":"root"}]})");
  ASSERT_EQ(ResolveInheritance(document).message(), L"");
  EXPECT_EQ(Text(document["layouts"][1]["items"]),
            R"([{"type":"separator","id":"root","_from":"g"},{"type":"separator","id":"own"}])");
  EXPECT_EQ(Text(document["layouts"][0]["items"]),
            R"([{"type":"separator","id":"root","_from":"p"},)"
            R"({"type":"separator","id":"own","_from":"p"}])");
  EXPECT_EQ(Text(document["layouts"][0]["_ancestors"]), R"(["p","g"])");
}

TEST(LayoutInheritance, RefusesDuplicatesCyclesMissingParentsAndLongChains) {
  const std::pair<std::string, const wchar_t*> refused[] = {
      // Abstract layouts are dropped before the parsed model's own duplicate check would see
      // them; without this refusal the first "a" would silently serve as the parent.
      {R"({"id":"a","abstract":true,"items":[{"type":"separator","id":"s"}]},)"
       R"({"id":"a","abstract":true,"items":[{"type":"separator","id":"t"}]},)"
       R"({"id":"c","inherits":"a","items":[]})",
       L"Duplicate layout id 'a'."},
      {R"({"id":"a","inherits":"a","items":[]})",
       L"Layout inheritance contains a cycle through 'a'."},
      {R"({"id":"a","inherits":"b","items":[]},{"id":"b","inherits":"a","items":[]})",
       L"Layout inheritance contains a cycle through 'a'."},
      {R"({"id":"a","inherits":"gone","items":[]})", L"Layout 'a' inherits missing layout 'gone'."},
      {R"({"id":"lonely","abstract":true})",
       L"Layout 'lonely' does not inherit from another layout, so it must declare at least one "
       L"item."},
  };
  for (const auto& [layouts, message] : refused) {
    rapidjson::Document document = Layouts(layouts);
    EXPECT_EQ(ResolveInheritance(document).message(), message) << layouts;
  }

  // "l0" is the root; "lN" inherits "l(N-1)": eight ancestors are allowed, nine are not.
  std::string chain = R"({"id":"l0","items":[{"type":"separator","id":"s"}]})";
  for (int i = 1; i <= 9; ++i) {
    chain += R"(,{"id":"l)" + std::to_string(i) + R"(","inherits":"l)" + std::to_string(i - 1) +
             R"(","items":[]})";
    if (i < 8) continue;
    rapidjson::Document document = Layouts(chain);
    if (i == 8) {
      EXPECT_EQ(ResolveInheritance(document).message(), L"");
      EXPECT_EQ(document["layouts"][8]["_ancestors"].Size(), 8u);
    } else {
      EXPECT_EQ(ResolveInheritance(document).message(),
                L"Layout 'l9' inherits through more than 8 ancestors.");
    }
  }
}

TEST(LayoutInheritance, FlatteningDropsAbstractLayoutsButNotAll) {
  // The child inherits everything and declares nothing of its own.
  rapidjson::Document document =
      Layouts(R"({"id":"base","abstract":true,"items":[{"type":"separator","id":"s"}]},)"
              R"({"id":"child","inherits":"base","items":[]})");
  ASSERT_EQ(FlattenLayouts(document).message(), L"");
  EXPECT_EQ(Text(document["layouts"]),
            R"([{"id":"child","inherits":"base","items":[)"
            R"({"type":"separator","id":"s","_from":"base","_rank":0}],"_ancestors":["base"]}])");

  rapidjson::Document allAbstract =
      Layouts(R"({"id":"base","abstract":true,"items":[{"type":"separator","id":"s"}]})");
  EXPECT_EQ(FlattenLayouts(allAbstract).message(),
            L"Every layout is abstract, so the published model would claim no context.");
}

TEST(LayoutInheritance, RanksFillOnlyUnorderedRowsAtEveryDepth) {
  rapidjson::Document document =
      Layouts(R"({"id":"l","items":[{"type":"separator","id":"a","order":7},)"
              R"({"type":"submenu","id":"m","items":[{"type":"separator","id":"b"},)"
              R"({"type":"separator","id":"c","_rank":9}]}]})");
  WriteFallbackRanks(document);
  EXPECT_EQ(Text(document["layouts"][0]["items"]),
            R"([{"type":"separator","id":"a","order":7},)"
            R"({"type":"submenu","id":"m","items":[{"type":"separator","id":"b","_rank":0},)"
            R"({"type":"separator","id":"c","_rank":9}],"_rank":1}])");
}

TEST(LayoutInheritance, StepRunsPerLayoutBeforeChildrenCopy) {
  rapidjson::Document document =
      Layouts(R"({"id":"child","inherits":"base","items":[]},)"
              R"({"id":"base","items":[{"type":"separator","id":"s"}]})");
  std::vector<std::string> seen;
  const LayoutResolutionStep step = [&](rapidjson::Value& layout,
                                        rapidjson::Document::AllocatorType& allocator) {
    seen.push_back(layout["id"].GetString());
    // Stands in for a placement edit: a row added here must reach the children.
    layout["items"].PushBack(rapidjson::Value(rapidjson::kObjectType), allocator);
    return Status::Ok();
  };
  ASSERT_EQ(ResolveInheritance(document, step).message(), L"");
  EXPECT_EQ(seen, (std::vector<std::string>{"base", "child"}));
  EXPECT_EQ(document["layouts"][0]["items"].Size(), 3u);

  // A refusal from the step stops the resolution and is its result.
  document = Layouts(R"({"id":"a","items":[{"type":"separator"}]})");
  const auto refuse = [](rapidjson::Value&, auto&) { return Status::Failure(L"Bad edit."); };
  EXPECT_EQ(ResolveInheritance(document, refuse).message(), L"Bad edit.");
}

}  // namespace
}  // namespace cmr

#include "model/layout_inheritance.h"

#include <gtest/gtest.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>

namespace cmr {
namespace {

rapidjson::Document Json(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.c_str(), text.size());
  EXPECT_FALSE(document.HasParseError()) << text;
  return document;
}

std::string Text(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return buffer.GetString();
}

std::string Layouts(const std::string& layouts) {
  return R"({"document_kind":"baseline","layouts":[)" + layouts + "]}";
}

const rapidjson::Value& LayoutNamed(const rapidjson::Document& document, const char* id) {
  for (const rapidjson::Value& layout : document["layouts"].GetArray()) {
    if (std::string(layout["id"].GetString()) == id) return layout;
  }
  ADD_FAILURE() << "no layout " << id;
  return document;
}

// "l0" is the root; "lN" inherits "l(N-1)".
std::string Chain(int length) {
  std::string layouts = R"({"id":"l0","items":[{"type":"separator","id":"s"}]})";
  for (int i = 1; i <= length; ++i) {
    layouts += R"(,{"id":"l)" + std::to_string(i) + R"(","inherits":"l)" + std::to_string(i - 1) +
               R"(","items":[]})";
  }
  return Layouts(layouts);
}

TEST(LayoutInheritance, ChildReplacesMergesAndAppendsById) {
  rapidjson::Document document =
      Json(Layouts(R"({"id":"base","abstract":true,"items":[)"
                   R"({"type":"command","id":"open","command_id":"windows:open"},)"
                   R"({"type":"submenu","id":"view","title_override":"View","items":[)"
                   R"({"type":"command","id":"large","command_id":"windows:large"}]},)"
                   R"({"type":"command","id":"props","command_id":"windows:properties"}]},)"
                   R"({"id":"child","inherits":"base","items":[)"
                   R"({"type":"command","id":"props","command_id":"windows:props2"},)"
                   R"({"type":"submenu","id":"view","title_override":"Show","items":[)"
                   R"({"type":"command","id":"small","command_id":"windows:small"}]},)"
                   R"({"type":"command","id":"new","command_id":"windows:new"}]})"));
  ASSERT_EQ(ResolveInheritance(document), L"");
  EXPECT_EQ(Text(LayoutNamed(document, "child")["items"]),
            R"([{"type":"command","id":"open","command_id":"windows:open","_from":"base"},)"
            R"({"type":"submenu","id":"view","title_override":"Show","items":[)"
            R"({"type":"command","id":"large","command_id":"windows:large","_from":"base"},)"
            R"({"type":"command","id":"small","command_id":"windows:small"}]},)"
            R"({"type":"command","id":"props","command_id":"windows:props2"},)"
            R"({"type":"command","id":"new","command_id":"windows:new"}])");
  EXPECT_EQ(Text(LayoutNamed(document, "child")["_ancestors"]), R"(["base"])");
  // The parent keeps its own rows untouched and unmarked.
  EXPECT_FALSE(LayoutNamed(document, "base")["items"][0].HasMember("_from"));
  EXPECT_FALSE(LayoutNamed(document, "base").HasMember("_ancestors"));
}

TEST(LayoutInheritance, EveryLevelMarksRowsWithTheLayoutCopiedFrom) {
  rapidjson::Document document =
      Json(Layouts(R"({"id":"c","inherits":"p","items":[]},)"
                   R"({"id":"p","inherits":"g","items":[{"type":"separator","id":"own"}]},)"
                   R"({"id":"g","items":[{"type":"separator","id":"root"}]})"));
  ASSERT_EQ(ResolveInheritance(document), L"");
  EXPECT_EQ(Text(LayoutNamed(document, "p")["items"]),
            R"([{"type":"separator","id":"root","_from":"g"},{"type":"separator","id":"own"}])");
  EXPECT_EQ(Text(LayoutNamed(document, "c")["items"]),
            R"([{"type":"separator","id":"root","_from":"p"},)"
            R"({"type":"separator","id":"own","_from":"p"}])");
  EXPECT_EQ(Text(LayoutNamed(document, "c")["_ancestors"]), R"(["p","g"])");
}

TEST(LayoutInheritance, RefusesCyclesMissingParentsAndLongChains) {
  rapidjson::Document self = Json(Layouts(R"({"id":"a","inherits":"a","items":[]})"));
  EXPECT_EQ(ResolveInheritance(self), L"Layout inheritance contains a cycle through 'a'.");
  rapidjson::Document mutual =
      Json(Layouts(R"({"id":"a","inherits":"b","items":[]},{"id":"b","inherits":"a","items":[]})"));
  EXPECT_EQ(ResolveInheritance(mutual), L"Layout inheritance contains a cycle through 'a'.");
  rapidjson::Document missing = Json(Layouts(R"({"id":"a","inherits":"gone","items":[]})"));
  EXPECT_EQ(ResolveInheritance(missing), L"Layout 'a' inherits missing layout 'gone'.");

  rapidjson::Document eight = Json(Chain(8));
  EXPECT_EQ(ResolveInheritance(eight), L"");
  EXPECT_EQ(LayoutNamed(eight, "l8")["_ancestors"].Size(), 8u);
  rapidjson::Document nine = Json(Chain(9));
  EXPECT_EQ(ResolveInheritance(nine), L"Layout 'l9' inherits through more than 8 ancestors.");
}

TEST(LayoutInheritance, OnlyInheritingLayoutsMayDeclareNoItems) {
  rapidjson::Document empty =
      Json(Layouts(R"({"id":"base","items":[{"type":"separator","id":"s"}]},)"
                   R"({"id":"child","inherits":"base","items":[]})"));
  ASSERT_EQ(FlattenLayouts(empty), L"");
  EXPECT_EQ(Text(LayoutNamed(empty, "child")["items"]),
            R"([{"type":"separator","id":"s","_from":"base","_rank":0}])");

  rapidjson::Document bare = Json(Layouts(R"({"id":"lonely","abstract":true})"));
  EXPECT_EQ(ResolveInheritance(bare),
            L"Layout 'lonely' does not inherit from another layout, so it must declare at least "
            L"one item.");
}

TEST(LayoutInheritance, RanksFillOnlyUnorderedRowsAtEveryDepth) {
  rapidjson::Document document =
      Json(Layouts(R"({"id":"l","items":[{"type":"separator","id":"a","order":7},)"
                   R"({"type":"submenu","id":"m","items":[{"type":"separator","id":"b"},)"
                   R"({"type":"separator","id":"c","_rank":9}]}]})"));
  WriteFallbackRanks(document);
  EXPECT_EQ(Text(document["layouts"][0]["items"]),
            R"([{"type":"separator","id":"a","order":7},)"
            R"({"type":"submenu","id":"m","items":[{"type":"separator","id":"b","_rank":0},)"
            R"({"type":"separator","id":"c","_rank":9}],"_rank":1}])");
}

TEST(LayoutInheritance, AbstractLayoutsAreDroppedButNotAll) {
  rapidjson::Document document =
      Json(Layouts(R"({"id":"base","abstract":true,"items":[{"type":"separator","id":"s"}]},)"
                   R"({"id":"child","inherits":"base","items":[]})"));
  ASSERT_EQ(FlattenLayouts(document), L"");
  ASSERT_EQ(document["layouts"].Size(), 1u);
  EXPECT_STREQ(document["layouts"][0]["id"].GetString(), "child");

  rapidjson::Document allAbstract =
      Json(Layouts(R"({"id":"base","abstract":true,"items":[{"type":"separator","id":"s"}]})"));
  EXPECT_EQ(FlattenLayouts(allAbstract),
            L"Every layout is abstract, so the published model would claim no context.");
}

TEST(LayoutInheritance, StepRunsPerLayoutBeforeChildrenCopy) {
  rapidjson::Document document =
      Json(Layouts(R"({"id":"child","inherits":"base","items":[]},)"
                   R"({"id":"base","items":[{"type":"separator","id":"s"}]})"));
  std::vector<std::string> seen;
  const LayoutResolutionStep step = [&](rapidjson::Value& layout,
                                        rapidjson::Document::AllocatorType& allocator) {
    seen.push_back(layout["id"].GetString());
    // Stands in for a placement edit: a row added here must reach the children.
    layout["items"].PushBack(rapidjson::Value(rapidjson::kObjectType), allocator);
    return std::wstring();
  };
  ASSERT_EQ(ResolveInheritance(document, step), L"");
  EXPECT_EQ(seen, (std::vector<std::string>{"base", "child"}));
  EXPECT_EQ(document["layouts"][0]["items"].Size(), 3u);

  rapidjson::Document refused = Json(Layouts(R"({"id":"a","items":[{"type":"separator"}]})"));
  EXPECT_EQ(ResolveInheritance(refused,
                               [](rapidjson::Value&, auto&) {
                                 return std::wstring(L"Invalid placement edit in layout 'a'.");
                               }),
            L"Invalid placement edit in layout 'a'.");
}

}  // namespace
}  // namespace cmr

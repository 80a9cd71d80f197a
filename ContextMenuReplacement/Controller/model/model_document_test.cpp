#include "model/model_document.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace cmr {
namespace {

// What a parsed row carries that no published tree shows: settings objects and their defaults,
// argument tokens, the declared order, and the internal keys flattening and overlay merge write.
TEST(ModelDocumentNodes, ReadsSettingsAndInternalKeys) {
  const std::string text =
      R"({"document_kind":"baseline","layouts":[{"id":"l","match":{"family":"file-item"},"items":[)"
      R"({"type":"command","id":"p","command_id":"product:quick-pins","_rank":4,)"
      R"("quick_pins":{"list":"Work","path":"C:\\w"},"_from":"base","_from_overlay":true},)"
      R"({"type":"command","id":"q","command_id":"product:quick-pins","quick_pins":{}},)"
      R"({"type":"command","id":"u","command_id":"user:{00000000-0000-0000-0000-000000000001}",)"
      R"("title":"Edit","executable":"n.exe","arguments":["-a","b c"],"order":2.5}]}]})";
  rapidjson::Document document;
  ASSERT_FALSE(document.Parse(text.c_str()).HasParseError());
  ModelDocument model;
  ASSERT_EQ(ParseModelDocument(document, model).message(), L"");
  const std::vector<ModelNode>& items = model.layouts.at(0).items;
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(std::tie(items[0].quickPins->list, items[0].quickPins->path, items[0].from),
            std::make_tuple(L"Work", L"C:\\w", L"base"));
  EXPECT_EQ(std::make_pair(items[0].rank, items[0].fromOverlay), std::make_pair(4u, true));
  EXPECT_EQ(std::make_pair(items[1].quickPins->list, items[1].fromOverlay),
            std::make_pair(std::wstring(L"Pins"), false));
  EXPECT_EQ(std::tie(items[2].title, items[2].executable), std::make_tuple(L"Edit", L"n.exe"));
  EXPECT_EQ(items[2].arguments, (std::vector<std::wstring>{L"-a", L"b c"}));
  EXPECT_EQ(items[2].order, 2.5);
}

}  // namespace
}  // namespace cmr

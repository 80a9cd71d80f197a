#include "snapshot/custom_model_snapshot.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "common/file_io.h"
#include "common/text.h"
#include "tests/support/golden_file.h"

namespace cmr {
namespace {

using namespace custom_model_words;
using namespace std::string_literals;

ModelNode Node(NodeKind kind, std::wstring id, std::wstring command = L"", uint32_t rank = 0) {
  ModelNode node;
  node.kind = kind;
  node.id = std::move(id);
  node.commandId = std::move(command);
  node.rank = rank;
  return node;
}

ModelDocument SmallModel() {
  ModelDocument model;
  model.schemaVersion = 2;
  model.baselineVersion = L"1.0";
  Layout layout;
  layout.id = L"desktop-default";
  layout.match = LayoutMatch{};
  layout.match->family = ContextFamily::desktop;
  layout.items = {Node(NodeKind::command, L"open", L"windows:open", 0),
                  Node(NodeKind::separator, L"sep", L"", 1)};
  model.layouts.push_back(layout);
  return model;
}

std::string Image(const ModelDocument& model, uint32_t version = 1) {
  return FlattenCustomModel(CompileCustomModel(model), version);
}

std::string Put(std::string image, size_t offset, std::initializer_list<uint32_t> words) {
  for (uint32_t word : words) std::memcpy(&image[std::exchange(offset, offset + 4)], &word, 4);
  return image;
}
uint32_t GetWord(const std::string& image, size_t offset) {
  uint32_t value;
  std::memcpy(&value, &image[offset], 4);
  return value;
}

// One layout of a command and a separator: 1 layout at 72, 2 nodes at 144, no string list or
// definitions, the pool at 416 opening with the empty string, the baseline version as its tag.
TEST(CustomModelSnapshot, GoldenBytesOfASmallModel) {
  const std::string expected = ReadWholeFile(GoldenFile(L"small-model.snapshot.bin")).value();
  EXPECT_EQ(Image(SmallModel(), 7), expected);
  CustomModelView view;
  ASSERT_TRUE(AttachCustomModel(expected.data(), expected.size(), view));
  EXPECT_EQ(view.version(), 7u);
  EXPECT_EQ(view.modelTag(), L"1.0");
}

TEST(CustomModelSnapshot, RowsOfSubmenusAndUserCommandPlacements) {
  ModelDocument model = SmallModel();
  const std::wstring id = L"user:{11111111-2222-3333-4444-555555555555}";
  model.definitions.push_back({id, L"Terminal", L"C:\\wt.exe", {L"-d", L"."}, L"", L""});
  uint32_t rank = 2;
  for (const wchar_t* placement : {L"t1", L"t2"}) {
    model.layouts[0].items.push_back(Node(NodeKind::command, placement, id, rank++));
    model.layouts[0].items.back().commandsPlusRef = id;
  }
  ModelNode menu = Node(NodeKind::submenu, L"more", L"", rank);
  menu.titleOverride = L"More";
  menu.items = {Node(NodeKind::command, L"a", L"windows:a")};
  model.layouts[0].items.push_back(menu);
  const std::string image = Image(model);
  CustomModelView view;
  ASSERT_TRUE(AttachCustomModel(image.data(), image.size(), view));
  // The sibling order and the tree's rendering are held by the shipped self-check fixtures; the
  // layout's block, which only the Hook reads, spans the children written after the top level.
  EXPECT_EQ(std::make_pair(view.Layout(0).blockFirst, view.Layout(0).blockCount),
            std::make_pair(0u, 6u));
  EXPECT_EQ(std::make_pair(view.Node(4).childFirst, view.Node(4).childCount),
            std::make_pair(5u, 1u));
  ASSERT_EQ(view.definitionCount(), 1u);
  ASSERT_EQ(view.nodeCount(), 7u);  // six layout rows and the synthetic definition node
  EXPECT_EQ(view.Node(2).definitionIndex, 0u);
  EXPECT_EQ(view.Text(view.Node(3).userTitle), L"Terminal");
  const DefinitionRow definition = *view.DefinitionOf(view.Node(3));
  EXPECT_EQ(view.Argument(definition, 1), L".");
  EXPECT_EQ(view.Argument(definition, 2), std::nullopt);
  // Neither a node's definition index nor a definition's argument range is part of the
  // reader's checks: such an image attaches, and the bounded accessors refuse to follow them.
  const std::string loose =
      Put(Put(image, GetWord(image, 40) + 2 * 136 + 4 * kNodeDefinition, {1000000}),
          GetWord(image, 56) + 4 * kDefArguments, {7});
  ASSERT_TRUE(AttachCustomModel(loose.data(), loose.size(), view));
  EXPECT_EQ(view.DefinitionOf(view.Node(2)), std::nullopt);
  EXPECT_EQ(view.Argument(*view.DefinitionOf(view.Node(3)), 0), std::nullopt);
}

std::string WithPins(const std::wstring& label) {
  ModelDocument model = SmallModel();
  model.layouts[0].items.push_back(Node(NodeKind::command, L"pins", L"product:quick-pins", 2));
  model.layouts[0].items.back().quickPins = QuickPinsSettings{label, L"C:\\pins"};
  return Image(model);
}

// Each rule of the reader at its bound and one past it; a refused image leaves the view empty.
// The writer makes images up to 4 MiB and refuses anything larger.
TEST(CustomModelSnapshot, ReaderRules) {
  const std::string good = Image(SmallModel()), pins = WithPins(L"Pins");
  const auto L = [&](uint32_t word) { return GetWord(good, 32) + 4 * word; };
  const auto N = [&](uint32_t row, uint32_t word) {
    return GetWord(good, 40) + 136 * row + 4 * word;
  };
  std::string unterminated = good;  // the zero after "open" (pool unit 21)
  unterminated[GetWord(good, 60) + 2 * 21] = 'x';
  const uint32_t pinsList = GetWord(pins, GetWord(pins, 40) + 2 * 136 + 4 * kNodeQuickPinsList);
  // One definition, its icon file "C:\\t.ico" (pool units 52..60) and its one argument.
  ModelDocument defined = SmallModel();
  defined.definitions.push_back({L"user:{11111111-2222-3333-4444-555555555555}",
                                 L"T",
                                 L"C:\\t.exe",
                                 {L"-d"},
                                 L"C:\\t.ico",
                                 L""});
  const std::string def = Image(defined);
  const auto D = [&](uint32_t word) { return GetWord(def, 56) + 4 * word; };
  const auto defPast =
      static_cast<uint32_t>((def.size() - D(0)) / (4 * kDefinitionRecordWords) + 1);
  auto withPadding = [](size_t units) {
    ModelDocument model = SmallModel();
    model.layouts[0].items[0].titleOverride.assign(units, L'x');
    return CompileCustomModel(model);
  };
  // A padding string of n units adds n + 1 units (its terminator) to the pool.
  const size_t fits =
      static_cast<size_t>((kCustomModelMaxBytes - CustomModelImageSize(withPadding(0)) - 2) / 2);
  const std::string largest = FlattenCustomModel(withPadding(fits), 1);
  EXPECT_EQ(largest.size(), kCustomModelMaxBytes);
  EXPECT_TRUE(FlattenCustomModel(withPadding(fits + 1), 1).empty());
  const struct {
    const char* name;
    std::string image;
    const char* refusal;  // nullptr: the image attaches
  } rows[] = {
      {"intact; the tag ends on the pool's last unit", good, nullptr},
      {"the largest image", largest, nullptr},
      {"pool one unit short of the tag's terminator", Put(good, 64, {84}), "model tag"},
      {"a string without its terminator", unterminated, "node string"},
      {"totalBytes one unit past the image", Put(good, 12, {504}), "totalBytes"},
      {"one byte below the smallest image", good.substr(0, 67), "image too small"},
      {"node table one row past totalBytes", Put(good, 36, {3}), "region outside the image"},
      {"root range ending on the last row", Put(good, L(kLayoutRoot), {1, 1}), nullptr},
      {"root range one row past", Put(good, L(kLayoutRoot), {1, 2}), "layout node range"},
      {"block range one row past", Put(good, L(kLayoutBlock), {0, 3}), "layout node range"},
      {"family 9, selection 3", Put(Put(good, L(kLayoutFamily), {9}), L(kLayoutSelection), {3}),
       nullptr},
      {"family 10", Put(good, L(kLayoutFamily), {10}), "layout family or selection"},
      {"selection 4", Put(good, L(kLayoutSelection), {4}), "layout family or selection"},
      {"child range ending on the last row", Put(good, N(0, kNodeChildren), {1, 1}), nullptr},
      {"child range one row past", Put(good, N(0, kNodeChildren), {2, 1}), "node range"},
      {"kind 10", Put(good, N(1, kNodeKind), {10}), nullptr},
      {"kind 11", Put(good, N(1, kNodeKind), {11}), "node kind"},
      {"word 7 at 2", Put(good, N(0, kNodeOrigin), {2}), nullptr},
      {"word 7 at 3", Put(good, N(0, kNodeOrigin), {3}), "node word 7"},
      {"a command named by its id", Put(good, N(0, kNodeIdentity), {17, 4}), "command identity"},
      {"a user title on a windows command", Put(good, N(0, kNodeUserTitle), {17, 4}),
       "user-command field on another node"},
      {"pin list label of 64 units", WithPins(std::wstring(64, L'p')), nullptr},
      {"pin list label left empty", WithPins(L""), nullptr},
      {"pin list label of 65 units", WithPins(std::wstring(65, L'p')), "quick-pins label"},
      {"pin list label with a tab", WithPins(L"My\tPins"), "quick-pins label"},
      {"pin list label with DEL", WithPins(L"Pins\x7F"), "quick-pins label"},
      {"definition flag 1, icon index 9, origin 3",
       Put(Put(Put(def, D(kDefPlaced), {1}), D(kDefIconIndex), {1, 9}), D(kDefDeclaredIn), {3}),
       nullptr},
      {"definition flag 2", Put(def, D(kDefPlaced), {2}), "definition flag"},
      {"definition icon index 10", Put(def, D(kDefIconIndex), {1, 10}), "definition icon index"},
      {"icon index 10 without its flag", Put(def, D(kDefIconIndex), {0, 10}), nullptr},
      {"definition origin 4", Put(def, D(kDefDeclaredIn), {4}), "definition origin"},
      {"icon source 3", Put(def, D(kDefIconSource), {3}), "definition icon source"},
      {"icon source 2 without a path", Put(def, D(kDefIconPath), {0, 0}), "definition icon source"},
      {"icon source 1", Put(def, D(kDefIconSource), {1}), nullptr},
      {"definition title one unit long", Put(def, D(kDefTitle), {52, 9}), "definition string"},
      {"definition reserved text", Put(def, D(kDefReserved20), {52, 8}), "definition string"},
      {"definition table one row past totalBytes", Put(def, 52, {defPast}),
       "region outside the image"},
      {"argument entry one unit long", Put(def, GetWord(def, 48) + 4, {3}), "string list entry"},
      {"pin list on another command",
       Put(pins, GetWord(pins, 40) + 4 * kNodeQuickPinsList, {pinsList, 4}),
       "quick-pins field on another node"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    CustomModelView view;
    const Status attached = AttachCustomModel(row.image.data(), row.image.size(), view);
    EXPECT_EQ(ToUtf8(attached.message()),
              row.refusal ? "The custom model snapshot fails the reader's check of its "s +
                                row.refusal + "."
                          : "");
    EXPECT_EQ(view.nodeCount() == 0, row.refusal != nullptr);
  }
}

}  // namespace
}  // namespace cmr

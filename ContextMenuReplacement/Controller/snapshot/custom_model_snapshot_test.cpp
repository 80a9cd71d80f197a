#include "snapshot/custom_model_snapshot.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "snapshot/effective_tree.h"

namespace cmr {
namespace {

using namespace custom_model_words;

ModelNode Node(NodeKind kind, std::wstring id, std::wstring command = L"", uint32_t rank = 0) {
  ModelNode node;
  node.kind = kind;
  node.id = std::move(id);
  node.commandId = std::move(command);
  node.rank = rank;
  return node;
}

Layout MakeLayout(std::wstring id, ContextFamily family, std::vector<ModelNode> items) {
  Layout layout;
  layout.id = std::move(id);
  layout.match = LayoutMatch{};
  layout.match->family = family;
  layout.items = std::move(items);
  return layout;
}

ModelDocument SmallModel() {
  ModelDocument model;
  model.schemaVersion = 2;
  model.baselineVersion = L"1.0";
  model.layouts.push_back(MakeLayout(L"desktop-default", ContextFamily::desktop,
                                     {Node(NodeKind::command, L"open", L"windows:open", 0),
                                      Node(NodeKind::separator, L"sep", L"", 1)}));
  return model;
}

std::string Image(const ModelDocument& model, uint32_t version = 1) {
  return FlattenCustomModel(CompileCustomModel(model), version);
}

void PutWord(std::string& image, size_t offset, uint32_t value) {
  std::memcpy(&image[offset], &value, 4);
}
uint32_t GetWord(const std::string& image, size_t offset) {
  uint32_t value;
  std::memcpy(&value, &image[offset], 4);
  return value;
}

bool Attaches(const std::string& image) {
  CustomModelView view;
  return AttachCustomModel(image.data(), image.size(), view).ok();
}

TEST(CustomModelSnapshot, GoldenBytesOfASmallModel) {
  std::string expected;
  auto words = [&](std::initializer_list<uint32_t> list) {
    for (uint32_t word : list) expected.append(reinterpret_cast<const char*>(&word), 4);
  };
  const uint32_t none = 0xFFFFFFFF;
  // Header: 1 layout at 72, 2 nodes at 144, empty list and definitions, pool at 416.
  words({0x424E43D6, 18, 7, 502, 2, 39, 3, 1, 72, 2, 144, 0, 416, 0, 416, 416, 86, 0});
  // desktop-default: family 0, root range (0, 2), selection any, block (0, 2).
  words({1, 15, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 2});
  // "open": command windows:open; no children, no user-command fields, no definition.
  words({17, 4, 0, 22, 12,   0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
         0,  0, 0, 0,  none, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  words({35, 3, 3, 0, 0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
         0,  0, 0, 0, none, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  const std::u16string pool(
      u"\0desktop-default\0open\0windows:open\0sep\0"
      u"1.0\0",
      43);
  expected.append(reinterpret_cast<const char*>(pool.data()), pool.size() * 2);
  ASSERT_EQ(expected.size(), 502u);

  const std::string image = Image(SmallModel(), 7);
  EXPECT_EQ(image, expected);

  CustomModelView view;
  ASSERT_TRUE(AttachCustomModel(image.data(), image.size(), view));
  EXPECT_EQ(view.version(), 7u);
  EXPECT_EQ(view.modelTag(), L"1.0");
  EXPECT_EQ(view.Text(view.Layout(0).id), L"desktop-default");
  EXPECT_EQ(view.Text(view.Node(0).identity), L"windows:open");
}

TEST(CustomModelSnapshot, SiblingsSortByOrderThenRankAndChildrenAreContiguous) {
  ModelDocument model = SmallModel();
  ModelNode menu = Node(NodeKind::submenu, L"more", L"", 2);
  menu.titleOverride = L"More";
  menu.items = {Node(NodeKind::command, L"b", L"windows:b", 0),
                Node(NodeKind::command, L"a", L"windows:a", 1)};
  menu.items[1].order = 0.0;  // declared order wins the tie with rank 0
  ModelNode late = Node(NodeKind::command, L"late", L"windows:late");
  late.order = 0.5;  // between rank 0 and rank 1
  // Kinds 6 and 7, the last two the reader accepts.
  ModelNode withheld = Node(NodeKind::withheldSlots, L"kept", L"", 4);
  withheld.items.push_back(Node(NodeKind::extensionSlot, L"slot"));
  model.layouts[0].items.insert(
      model.layouts[0].items.end(),
      {menu, late, Node(NodeKind::windowsExtensionSlot, L"win", L"", 3), withheld});
  const std::string image = Image(model);
  CustomModelView view;
  ASSERT_TRUE(AttachCustomModel(image.data(), image.size(), view));
  EXPECT_EQ(EffectiveTreeText(view, 0),
            L"  - [open] command windows:open\n"
            L"  - [late] command windows:late\n"
            L"  - (separator)\n"
            L"  - [more] More >\n"
            L"    - [a] command windows:a\n"
            L"    - [b] command windows:b\n"
            L"  - [win] (windows extension slot)\n"
            L"  - [kept] (withheld - slots kept from a hidden subtree)\n"
            L"    - [slot] (modern extension slot)\n");
  const LayoutRow layout = view.Layout(0);
  EXPECT_EQ(layout.rootCount, 6u);
  EXPECT_EQ(layout.blockCount, 9u);
  EXPECT_EQ(view.Node(3).childFirst, 6u);
}

TEST(CustomModelSnapshot, UserCommandPlacementsShareOneDefinitionRow) {
  ModelDocument model = SmallModel();
  const std::wstring id = L"user:{11111111-2222-3333-4444-555555555555}";
  model.definitions.push_back({id, L"Terminal", L"C:\\wt.exe", {L"-d", L"."}, L"", L""});
  ModelNode first = Node(NodeKind::command, L"t1", id, 2);
  first.commandsPlusRef = id;
  ModelNode second = first;
  second.id = L"t2";
  second.rank = 3;
  model.layouts[0].items.push_back(first);
  model.layouts[0].items.push_back(second);
  const std::string image = Image(model);
  CustomModelView view;
  ASSERT_TRUE(AttachCustomModel(image.data(), image.size(), view));
  ASSERT_EQ(view.definitionCount(), 1u);
  ASSERT_EQ(view.nodeCount(), 5u);  // four layout rows and the synthetic definition node
  const NodeRow t1 = view.Node(2), t2 = view.Node(3), synthetic = view.Node(4);
  EXPECT_EQ(view.Text(synthetic.id), L"definition-1");
  EXPECT_EQ(t1.definitionIndex, 0u);
  EXPECT_EQ(t2.definitionIndex, 0u);
  EXPECT_EQ(view.Text(t2.userTitle), L"Terminal");
  ASSERT_EQ(t2.argumentCount, 2u);
  EXPECT_EQ(view.ListString(t2.argumentFirst + 1), L".");
  const DefinitionRow definition = *view.DefinitionOf(t2);
  EXPECT_EQ(view.Text(definition.executable), L"C:\\wt.exe");
  EXPECT_EQ(definition.placed, 1u);
  EXPECT_EQ(view.Text(definition.nodeId), L"definition-1");
  EXPECT_EQ(view.Argument(definition, 1), L".");
  EXPECT_EQ(view.Argument(definition, 2), std::nullopt);

  // The format checks neither a node's definition index nor a definition's argument range:
  // such an image attaches, and the view's bounded accessors refuse to follow the indexes.
  std::string loose = image;
  const uint32_t nodesOffset = GetWord(image, 40), definitionsOffset = GetWord(image, 56);
  PutWord(loose, nodesOffset + 2 * 136 + 4 * kNodeDefinition, 1000000);
  PutWord(loose, definitionsOffset + 4 * kDefArguments, 7);
  ASSERT_TRUE(AttachCustomModel(loose.data(), loose.size(), view));
  EXPECT_EQ(view.DefinitionOf(view.Node(2)), std::nullopt);
  EXPECT_EQ(view.Argument(*view.DefinitionOf(view.Node(3)), 0), std::nullopt);
}

TEST(CustomModelSnapshot, AttachRejectsABadTableWholeAndLeavesTheViewEmpty) {
  const std::string good = Image(SmallModel());
  CustomModelView view;
  ASSERT_TRUE(AttachCustomModel(good.data(), good.size(), view));

  std::string pastEnd = good;  // node table one row past totalBytes
  const uint32_t nodesOffset = GetWord(good, 40);
  PutWord(pastEnd, 36, (GetWord(good, 3 * 4) - nodesOffset) / 136 + 1);
  EXPECT_FALSE(AttachCustomModel(pastEnd.data(), pastEnd.size(), view));
  EXPECT_FALSE(view.attached());
  EXPECT_EQ(view.nodeCount(), 0u);

  std::string kind11 = good;
  PutWord(kind11, nodesOffset + 136 + 8, 11);
  EXPECT_FALSE(Attaches(kind11));

  std::string noTerminator = good;  // the zero after "open" (pool unit 21)
  noTerminator[GetWord(good, 60) + 2 * 21] = 'x';
  EXPECT_FALSE(Attaches(noTerminator));

  std::string word7 = good;
  PutWord(word7, nodesOffset + 4 * kNodeOrigin, 3);
  EXPECT_FALSE(Attaches(word7));

  std::string notAnIdentity = good;  // the command's identity pointed at its id "open"
  PutWord(notAnIdentity, nodesOffset + 4 * kNodeIdentity, 17);
  PutWord(notAnIdentity, nodesOffset + 4 * kNodeIdentity + 4, 4);
  EXPECT_FALSE(Attaches(notAnIdentity));

  std::string shortTotal = good;
  PutWord(shortTotal, 12, static_cast<uint32_t>(good.size()) + 2);
  EXPECT_FALSE(Attaches(shortTotal));
  EXPECT_FALSE(Attaches(good.substr(0, 67)));
  EXPECT_TRUE(Attaches(good));
}

TEST(CustomModelSnapshot, QuickPinsLabelRule) {
  auto withLabel = [](const std::wstring& label) {
    ModelDocument model = SmallModel();
    ModelNode pins = Node(NodeKind::command, L"pins", L"product:quick-pins", 2);
    pins.quickPins = QuickPinsSettings{label, L"C:\\pins"};
    model.layouts[0].items.push_back(pins);
    return Image(model);
  };
  EXPECT_TRUE(Attaches(withLabel(std::wstring(64, L'p'))));
  EXPECT_TRUE(Attaches(withLabel(L"")));  // written as the default "Pins"
  EXPECT_FALSE(Attaches(withLabel(std::wstring(65, L'p'))));
  EXPECT_FALSE(Attaches(withLabel(L"My\tPins")));
  EXPECT_FALSE(Attaches(withLabel(L"Pins\x7F")));

  // The quick-pins fields on any other command are refused.
  std::string image = withLabel(L"Pins");
  const uint32_t nodesOffset = GetWord(image, 40);
  const uint32_t openRow = nodesOffset;  // "open" sorts first
  PutWord(image, openRow + 4 * kNodeQuickPinsList,
          GetWord(image, nodesOffset + 2 * 136 + 4 * kNodeQuickPinsList));
  PutWord(image, openRow + 4 * kNodeQuickPinsList + 4, 4);
  EXPECT_FALSE(Attaches(image));
}

TEST(CustomModelSnapshot, SizeLimitIsExactlyFourMebibytes) {
  auto withPadding = [](size_t units) {
    ModelDocument model = SmallModel();
    model.layouts[0].items[0].titleOverride.assign(units, L'x');
    return CompileCustomModel(model);
  };
  const uint64_t base = CustomModelImageSize(withPadding(0));
  // A padding string of n units adds n + 1 units (its terminator) to the pool.
  const size_t fits = static_cast<size_t>((kCustomModelMaxBytes - base - 2) / 2);
  const CompiledCustomModel exact = withPadding(fits);
  ASSERT_EQ(CustomModelImageSize(exact), kCustomModelMaxBytes);
  const std::string image = FlattenCustomModel(exact, 1);
  EXPECT_EQ(image.size(), kCustomModelMaxBytes);
  EXPECT_TRUE(Attaches(image));
  EXPECT_TRUE(FlattenCustomModel(withPadding(fits + 1), 1).empty());
}

// Crafted corrupt images must be refused or read safely, never crash the reader.
TEST(CustomModelSnapshot, RandomMutationsNeverCrashTheReader) {
  ModelDocument model = SmallModel();
  ModelNode menu = Node(NodeKind::submenu, L"menu", L"", 2);
  menu.items = {Node(NodeKind::command, L"browse", L"product:quick-browse"),
                Node(NodeKind::command, L"pins", L"product:quick-pins")};
  menu.items[0].quickBrowse = QuickBrowseSettings{L"C:\\", true};
  model.layouts[0].items.push_back(menu);
  model.definitions.push_back(
      {L"user:{11111111-2222-3333-4444-555555555555}", L"T", L"t.exe", {L"a"}, L"i.ico", L""});
  const std::string good = Image(model);
  ASSERT_TRUE(Attaches(good));

  std::mt19937 random(20261122);
  int rejected = 0;
  const int kMutations = 4000;
  for (int i = 0; i < kMutations; ++i) {
    std::string image = good;
    const int edits = 1 + static_cast<int>(random() % 4);
    for (int e = 0; e < edits; ++e) {
      const size_t at = random() % image.size();
      switch (random() % 3) {
        case 0: image[at] = static_cast<char>(random()); break;
        case 1: image[at] ^= static_cast<char>(1u << (random() % 8)); break;
        default:
          if (at + 4 <= image.size())
            PutWord(image, at & ~size_t{3}, static_cast<uint32_t>(random()));
      }
    }
    if (random() % 8 == 0) image.resize(random() % image.size());
    CustomModelView view;
    if (!AttachCustomModel(image.data(), image.size(), view)) {
      ++rejected;
      continue;
    }
    // An accepted image must be safe to read in full.
    std::vector<LayoutMatchView> matches;
    if (ReadLayoutMatches(view, matches)) {
      for (uint32_t l = 0; l < view.layoutCount(); ++l) {
        EXPECT_LE(EffectiveTreeText(view, l).size(), 200u * (view.nodeCount() + 1));
        (void)EffectiveTreeJson(view, l);
      }
    }
  }
  RecordProperty("rejected", rejected);
  std::printf("rejected %d of %d mutated images\n", rejected, kMutations);
  EXPECT_GT(rejected, kMutations / 4);
  EXPECT_LT(rejected, kMutations);
}

}  // namespace
}  // namespace cmr

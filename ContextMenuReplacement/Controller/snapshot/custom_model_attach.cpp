// The reader of the custom model snapshot: every check of the format runs here, once, before
// any row is handed out, so the accessors of CustomModelView index without checks.

#include <cstring>
#include <vector>

#include "common/text.h"
#include "model/command_identity.h"
#include "snapshot/custom_model_snapshot.h"

namespace cmr {
namespace {

using namespace custom_model_words;

constexpr std::wstring_view kQuickBrowse = kQuickBrowseIdentity;
constexpr std::wstring_view kQuickPins = kQuickPinsIdentity;
constexpr uint32_t kMaxPinListUnits = 64;

uint32_t Load(const unsigned char* at) noexcept {
  uint32_t value;
  std::memcpy(&value, at, 4);  // the image is little-endian, like every Windows x86-64 host
  return value;
}

class Checker {
 public:
  Checker(const unsigned char* data, uint32_t poolOffset, uint32_t poolUnits)
      : data_(data), pool_(data + poolOffset), units_(poolUnits) {
    emptyResolves_ = Slow(StringRef{});
  }

  // Most fields of most rows are empty, and the writer makes every empty field (0, 0).
  [[nodiscard, gnu::always_inline]] bool Resolves(StringRef ref) const noexcept {
    if ((ref.offset | ref.length) == 0) return emptyResolves_;
    return Slow(ref);
  }
  [[nodiscard, gnu::always_inline]] bool Slow(StringRef ref) const noexcept {
    if (ref.offset > units_ || ref.length >= units_ - ref.offset) return false;
    const unsigned char* terminator = pool_ + 2 * (uint64_t{ref.offset} + ref.length);
    return terminator[0] == 0 && terminator[1] == 0;
  }
  [[nodiscard]] StringRef RefAt(uint64_t byteOffset) const noexcept {
    return {Load(data_ + byteOffset), Load(data_ + byteOffset + 4)};
  }
  [[nodiscard]] bool ResolvesAt(uint64_t byteOffset) const noexcept {
    return Resolves(RefAt(byteOffset));
  }
  [[nodiscard]] std::wstring_view Text(StringRef ref) const noexcept {
    return {reinterpret_cast<const wchar_t*>(pool_) + ref.offset, ref.length};
  }

 private:
  const unsigned char* data_;
  const unsigned char* pool_;
  uint32_t units_;
  bool emptyResolves_ = false;
};

// Identities are interned, and inheritance copies the same rows into every layout that
// inherits them, so one pool string is classified many times. The memo classifies each
// distinct (offset, length) once: open addressing with at least two slots per node row, so it
// never fills.
class IdentityMemo {
 public:
  explicit IdentityMemo(uint32_t rows) {
    while ((size_t{1} << bits_) < 2 * size_t{rows}) ++bits_;
    table_.assign(size_t{1} << bits_, Entry{});
  }

  IdentityKind Classify(StringRef ref, std::wstring_view text) noexcept {
    const size_t mask = table_.size() - 1;
    for (size_t i = (ref.offset * 0x9E3779B97F4A7C15ull) >> (64 - bits_);; i = (i + 1) & mask) {
      Entry& entry = table_[i];
      if (entry.offsetPlusOne == 0) {
        const IdentityKind kind = ClassifyIdentity(text);
        entry = {ref.offset + 1, ref.length, kind};
        return kind;
      }
      if (entry.offsetPlusOne == ref.offset + 1 && entry.length == ref.length) return entry.kind;
    }
  }

 private:
  struct Entry {
    uint32_t offsetPlusOne = 0;  // a pool offset is below 2^21, so the sum cannot wrap
    uint32_t length = 0;
    IdentityKind kind = IdentityKind::invalid;
  };
  std::vector<Entry> table_;
  uint32_t bits_ = 4;
};

bool RangeInside(uint32_t first, uint32_t count, uint32_t rows) noexcept {
  if (count == 0) return first == 0 || first == 0xFFFFFFFF || first <= rows;
  return first <= rows && count <= rows - first;
}

bool RegionInside(uint32_t offset, uint64_t bytes, uint32_t totalBytes) noexcept {
  return bytes == 0 || (offset >= kCustomModelMinimumBytes && offset + bytes <= totalBytes);
}

bool IsPinListLabel(std::wstring_view label) noexcept {
  if (label.empty() || label.size() > kMaxPinListUnits) return false;
  for (wchar_t unit : label) {
    if (unit < 32 || unit == 127) return false;
  }
  return true;
}

}  // namespace

uint32_t CustomModelView::Word(uint64_t byteOffset) const noexcept {
  return Load(data_ + byteOffset);
}

StringRef CustomModelView::Ref(uint64_t byteOffset) const noexcept {
  return {Word(byteOffset), Word(byteOffset + 4)};
}

std::wstring_view CustomModelView::Text(StringRef ref) const noexcept {
  if (data_ == nullptr) return {};
  return {reinterpret_cast<const wchar_t*>(data_ + poolOffset_) + ref.offset, ref.length};
}

std::wstring_view CustomModelView::ListString(uint32_t index) const noexcept {
  return Text(Ref(stringListOffset_ + uint64_t{8} * index));
}

LayoutRow CustomModelView::Layout(uint32_t index) const noexcept {
  const uint64_t at = layoutsOffset_ + uint64_t{4 * kLayoutRecordWords} * index;
  auto w = [&](uint32_t word) { return Word(at + 4 * word); };
  auto r = [&](uint32_t word) { return Ref(at + 4 * word); };
  LayoutRow row;
  row.id = r(kLayoutId);
  row.family = w(kLayoutFamily);
  row.namespaceId = r(kLayoutNamespace);
  row.extension = r(kLayoutExtension);
  row.fileClass = r(kLayoutFileClass);
  row.progId = r(kLayoutProgId);
  row.inherits = r(kLayoutInherits);
  row.rootFirst = w(kLayoutRoot);
  row.rootCount = w(kLayoutRoot + 1);
  row.selection = w(kLayoutSelection);
  row.blockFirst = w(kLayoutBlock);
  row.blockCount = w(kLayoutBlock + 1);
  return row;
}

NodeRow CustomModelView::Node(uint32_t index) const noexcept {
  const uint64_t at = nodesOffset_ + uint64_t{4 * kNodeRecordWords} * index;
  auto w = [&](uint32_t word) { return Word(at + 4 * word); };
  auto r = [&](uint32_t word) { return Ref(at + 4 * word); };
  NodeRow row;
  row.id = r(kNodeId);
  row.kind = w(kNodeKind);
  row.identity = r(kNodeIdentity);
  row.titleOverride = r(kNodeTitleOverride);
  row.origin = w(kNodeOrigin);
  row.childFirst = w(kNodeChildren);
  row.childCount = w(kNodeChildren + 1);
  row.executionRef = r(kNodeExecutionRef);
  row.argumentFirst = w(kNodeArguments);
  row.argumentCount = w(kNodeArguments + 1);
  row.titleVerb = r(kNodeTitleVerb);
  row.iconPath = r(kNodeIconPath);
  row.userTitle = r(kNodeUserTitle);
  row.shiftOnly = w(kNodeShiftOnly);
  row.definitionIndex = w(kNodeDefinition);
  row.quickBrowseRecursive = w(kNodeQuickBrowseRecursive);
  row.quickBrowsePath = r(kNodeQuickBrowsePath);
  row.hasQuickSettings = w(kNodeHasQuickSettings);
  row.quickPinsList = r(kNodeQuickPinsList);
  row.quickPinsPath = r(kNodeQuickPinsPath);
  return row;
}

std::optional<DefinitionRow> CustomModelView::DefinitionOf(const NodeRow& node) const noexcept {
  if (node.definitionIndex >= definitionCount_) return std::nullopt;
  return Definition(node.definitionIndex);
}

std::optional<std::wstring_view> CustomModelView::Argument(const DefinitionRow& definition,
                                                           uint32_t position) const noexcept {
  if (position >= definition.argumentCount) return std::nullopt;
  const uint64_t index = uint64_t{definition.argumentFirst} + position;
  if (index >= stringListCount_) return std::nullopt;
  return ListString(static_cast<uint32_t>(index));
}

DefinitionRow CustomModelView::Definition(uint32_t index) const noexcept {
  const uint64_t at = definitionsOffset_ + uint64_t{4 * kDefinitionRecordWords} * index;
  auto w = [&](uint32_t word) { return Word(at + 4 * word); };
  auto r = [&](uint32_t word) { return Ref(at + 4 * word); };
  DefinitionRow row;
  row.identity = r(kDefIdentity);
  row.placed = w(kDefPlaced);
  row.title = r(kDefTitle);
  row.hasIconIndex = w(kDefIconIndex);
  row.iconIndex = w(kDefIconIndex + 1);
  row.executable = r(kDefExecutable);
  row.nodeId = r(kDefNodeId);
  row.cachedIcon = r(kDefCachedIcon);
  row.iconSource = w(kDefIconSource);
  row.iconPath = r(kDefIconPath);
  row.argumentFirst = w(kDefArguments);
  row.argumentCount = w(kDefArguments + 1);
  row.declaredIn = w(kDefDeclaredIn);
  return row;
}

Status AttachCustomModel(const void* data, size_t size, CustomModelView& view) {
  view = CustomModelView{};
  auto fail = [](const char* reason) {
    return Failure(L"The custom model snapshot fails the reader's check of its {}.",
                   FromUtf8(reason));
  };
  const auto* bytes = static_cast<const unsigned char*>(data);
  // Pool text is handed out as wchar_t views, which needs an even start.
  if (bytes == nullptr || size < kCustomModelMinimumBytes) return fail("image too small");
  if ((reinterpret_cast<uintptr_t>(bytes) & 1) != 0) return fail("image misaligned");
  auto header = [bytes](uint32_t word) { return Load(bytes + 4 * word); };
  if (header(0) != kCustomModelMagic) return fail("magic");
  if (header(1) != kCustomModelLayout) return fail("layout number");
  const uint32_t schemaVersion = header(4);
  if (schemaVersion != 2 && schemaVersion != 3) return fail("schema version");
  const uint32_t totalBytes = header(3);
  if (totalBytes > size || totalBytes > kCustomModelMaxBytes) return fail("totalBytes");

  const uint32_t layoutCount = header(7), layoutsOffset = header(8);
  const uint32_t nodeCount = header(9), nodesOffset = header(10);
  const uint32_t listCount = header(11), listOffset = header(12);
  const uint32_t definitionCount = header(13), definitionsOffset = header(14);
  const uint32_t poolOffset = header(15), poolBytes = header(16);
  if (!RegionInside(layoutsOffset, uint64_t{4 * kLayoutRecordWords} * layoutCount, totalBytes) ||
      !RegionInside(nodesOffset, uint64_t{4 * kNodeRecordWords} * nodeCount, totalBytes) ||
      !RegionInside(listOffset, uint64_t{8} * listCount, totalBytes) ||
      !RegionInside(definitionsOffset, uint64_t{4 * kDefinitionRecordWords} * definitionCount,
                    totalBytes) ||
      !RegionInside(poolOffset, poolBytes, totalBytes)) {
    return fail("region outside the image");
  }
  if ((poolOffset & 1) != 0 || (poolBytes & 1) != 0) return fail("odd pool");
  const Checker check(bytes, poolOffset, poolBytes / 2);
  const StringRef tag{header(5), header(6)};
  if (!check.Resolves(tag)) return fail("model tag");

  for (uint32_t i = 0; i < layoutCount; ++i) {
    const uint64_t at = layoutsOffset + uint64_t{4 * kLayoutRecordWords} * i;
    auto w = [&](uint32_t word) { return Load(bytes + at + 4 * word); };
    for (uint32_t word : {kLayoutId, kLayoutNamespace, kLayoutExtension, kLayoutFileClass,
                          kLayoutProgId, kLayoutInherits}) {
      if (!check.ResolvesAt(at + 4 * word)) return fail("layout string");
    }
    if (!RangeInside(w(kLayoutRoot), w(kLayoutRoot + 1), nodeCount) ||
        !RangeInside(w(kLayoutBlock), w(kLayoutBlock + 1), nodeCount)) {
      return fail("layout node range");
    }
    if (w(kLayoutFamily) > 9 || w(kLayoutSelection) > 3) return fail("layout family or selection");
  }

  for (uint32_t i = 0; i < listCount; ++i) {
    if (!check.ResolvesAt(listOffset + uint64_t{8} * i)) return fail("string list entry");
  }

  IdentityMemo memo(nodeCount);
  for (uint32_t i = 0; i < nodeCount; ++i) {
    const unsigned char* row = bytes + nodesOffset + uint64_t{4 * kNodeRecordWords} * i;
    auto word = [row](uint32_t index) { return Load(row + 4 * index); };
    auto ref = [row](uint32_t index) {
      return StringRef{Load(row + 4 * index), Load(row + 4 * index + 4)};
    };
    // Spelled out rather than looped: this is the hot loop of attach.
    if (!check.Resolves(ref(kNodeId)) || !check.Resolves(ref(kNodeIdentity)) ||
        !check.Resolves(ref(kNodeTitleOverride)) || !check.Resolves(ref(kNodeExecutionRef)) ||
        !check.Resolves(ref(kNodeTitleVerb)) || !check.Resolves(ref(kNodeIconPath)) ||
        !check.Resolves(ref(kNodeUserTitle)) || !check.Resolves(ref(kNodeQuickBrowsePath)) ||
        !check.Resolves(ref(kNodeQuickPinsList)) || !check.Resolves(ref(kNodeQuickPinsPath))) {
      return fail("node string");
    }
    const uint32_t kind = word(kNodeKind);
    if (kind > kHighestNodeKind) return fail("node kind");
    if (word(kNodeOrigin) > 2) return fail("node word 7");
    if (!RangeInside(word(kNodeChildren), word(kNodeChildren + 1), nodeCount) ||
        !RangeInside(word(kNodeArguments), word(kNodeArguments + 1), listCount)) {
      return fail("node range");
    }
    const StringRef identityRef = ref(kNodeIdentity);
    const std::wstring_view identity = check.Text(identityRef);
    const IdentityKind identityKind =
        identity.empty() ? IdentityKind::invalid : memo.Classify(identityRef, identity);
    if (kind == static_cast<uint32_t>(NodeKind::command) &&
        (identityKind == IdentityKind::invalid || identityKind == IdentityKind::ephemeral)) {
      return fail("command identity");
    }
    if (identityKind != IdentityKind::user &&
        (word(kNodeExecutionRef + 1) | word(kNodeArguments + 1) | word(kNodeUserTitle + 1)) != 0) {
      return fail("user-command field on another node");
    }
    if (word(kNodeQuickBrowsePath + 1) != 0 && identity != kQuickBrowse) {
      return fail("quick-browse field on another node");
    }
    if (identity.size() == kQuickPins.size() && identity == kQuickPins) {
      if (!IsPinListLabel(check.Text(ref(kNodeQuickPinsList)))) return fail("quick-pins label");
    } else if ((word(kNodeQuickPinsList + 1) | word(kNodeQuickPinsPath + 1)) != 0) {
      return fail("quick-pins field on another node");
    }
  }

  for (uint32_t i = 0; i < definitionCount; ++i) {
    const uint64_t at = definitionsOffset + uint64_t{4 * kDefinitionRecordWords} * i;
    auto w = [&](uint32_t word) { return Load(bytes + at + 4 * word); };
    for (uint32_t word : {kDefIdentity, kDefTitle, kDefExecutable, kDefNodeId, kDefCachedIcon,
                          kDefReserved13, kDefIconPath, kDefReserved20}) {
      if (!check.ResolvesAt(at + 4 * word)) return fail("definition string");
    }
    if (w(kDefPlaced) > 1) return fail("definition flag");
    if (w(kDefIconIndex) != 0 && w(kDefIconIndex + 1) > 9) return fail("definition icon index");
    const uint32_t iconSource = w(kDefIconSource);
    if (iconSource > 2 || (iconSource == 2 && w(kDefIconPath + 1) == 0)) {
      return fail("definition icon source");
    }
    if (w(kDefDeclaredIn) > 3) return fail("definition origin");
  }

  view.data_ = bytes;
  view.version_ = header(2);
  view.schemaVersion_ = schemaVersion;
  view.totalBytes_ = totalBytes;
  view.modelTag_ = tag;
  view.layoutCount_ = layoutCount;
  view.layoutsOffset_ = layoutsOffset;
  view.nodeCount_ = nodeCount;
  view.nodesOffset_ = nodesOffset;
  view.stringListCount_ = listCount;
  view.stringListOffset_ = listOffset;
  view.definitionCount_ = definitionCount;
  view.definitionsOffset_ = definitionsOffset;
  view.poolOffset_ = poolOffset;
  view.poolUnits_ = poolBytes / 2;
  return {};
}

}  // namespace cmr

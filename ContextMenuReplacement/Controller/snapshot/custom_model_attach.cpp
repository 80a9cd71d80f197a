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

// One fixed-size row of a table, read word by word; a string field is its offset word followed
// by its length word.
class RowReader {
 public:
  explicit RowReader(const unsigned char* row) noexcept : row_(row) {}
  [[nodiscard, gnu::always_inline]] uint32_t W(uint32_t word) const noexcept {
    return Load(row_ + 4 * word);
  }
  [[nodiscard, gnu::always_inline]] StringRef R(uint32_t word) const noexcept {
    return {W(word), W(word + 1)};
  }

 private:
  const unsigned char* row_;
};

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

Status Refuse(const char* reason) {
  return Failure(L"The custom model snapshot fails the reader's check of its {}.",
                 FromUtf8(reason));
}

// Where the header puts each table, before any of it is trusted.
struct Tables {
  uint32_t layoutCount, layoutsOffset, nodeCount, nodesOffset, listCount, listOffset;
  uint32_t definitionCount, definitionsOffset, poolOffset, poolBytes;
};

Tables ReadTables(const RowReader& header) noexcept {
  return {header.W(7),  header.W(8),  header.W(9),  header.W(10), header.W(11),
          header.W(12), header.W(13), header.W(14), header.W(15), header.W(16)};
}

Status CheckLayouts(const unsigned char* bytes, const Tables& t, const Checker& check) {
  for (uint32_t i = 0; i < t.layoutCount; ++i) {
    const uint64_t at = t.layoutsOffset + uint64_t{4 * kLayoutRecordWords} * i;
    const RowReader row(bytes + at);
    for (uint32_t word : {kLayoutId, kLayoutNamespace, kLayoutExtension, kLayoutFileClass,
                          kLayoutProgId, kLayoutInherits}) {
      if (!check.ResolvesAt(at + 4 * word)) return Refuse("layout string");
    }
    if (!RangeInside(row.W(kLayoutRoot), row.W(kLayoutRoot + 1), t.nodeCount) ||
        !RangeInside(row.W(kLayoutBlock), row.W(kLayoutBlock + 1), t.nodeCount)) {
      return Refuse("layout node range");
    }
    if (row.W(kLayoutFamily) > 9 || row.W(kLayoutSelection) > 3) {
      return Refuse("layout family or selection");
    }
  }
  return {};
}

Status CheckStringList(const unsigned char*, const Tables& t, const Checker& check) {
  for (uint32_t i = 0; i < t.listCount; ++i) {
    if (!check.ResolvesAt(t.listOffset + uint64_t{8} * i)) return Refuse("string list entry");
  }
  return {};
}

Status CheckNodes(const unsigned char* bytes, const Tables& t, const Checker& check) {
  IdentityMemo memo(t.nodeCount);
  for (uint32_t i = 0; i < t.nodeCount; ++i) {
    const RowReader row(bytes + t.nodesOffset + uint64_t{4 * kNodeRecordWords} * i);
    // Spelled out rather than looped: this is the hot loop of attach.
    if (!check.Resolves(row.R(kNodeId)) || !check.Resolves(row.R(kNodeIdentity)) ||
        !check.Resolves(row.R(kNodeTitleOverride)) || !check.Resolves(row.R(kNodeExecutionRef)) ||
        !check.Resolves(row.R(kNodeTitleVerb)) || !check.Resolves(row.R(kNodeIconPath)) ||
        !check.Resolves(row.R(kNodeUserTitle)) || !check.Resolves(row.R(kNodeQuickBrowsePath)) ||
        !check.Resolves(row.R(kNodeQuickPinsList)) || !check.Resolves(row.R(kNodeQuickPinsPath))) {
      return Refuse("node string");
    }
    const uint32_t kind = row.W(kNodeKind);
    if (kind > kHighestNodeKind) return Refuse("node kind");
    if (row.W(kNodeOrigin) > 2) return Refuse("node word 7");
    if (!RangeInside(row.W(kNodeChildren), row.W(kNodeChildren + 1), t.nodeCount) ||
        !RangeInside(row.W(kNodeArguments), row.W(kNodeArguments + 1), t.listCount)) {
      return Refuse("node range");
    }
    const StringRef identityRef = row.R(kNodeIdentity);
    const std::wstring_view identity = check.Text(identityRef);
    const IdentityKind identityKind =
        identity.empty() ? IdentityKind::invalid : memo.Classify(identityRef, identity);
    if (kind == static_cast<uint32_t>(NodeKind::command) &&
        (identityKind == IdentityKind::invalid || identityKind == IdentityKind::ephemeral)) {
      return Refuse("command identity");
    }
    if (identityKind != IdentityKind::user &&
        (row.W(kNodeExecutionRef + 1) | row.W(kNodeArguments + 1) | row.W(kNodeUserTitle + 1)) !=
            0) {
      return Refuse("user-command field on another node");
    }
    if (row.W(kNodeQuickBrowsePath + 1) != 0 && identity != kQuickBrowse) {
      return Refuse("quick-browse field on another node");
    }
    if (identity.size() == kQuickPins.size() && identity == kQuickPins) {
      if (!IsPinListLabel(check.Text(row.R(kNodeQuickPinsList)))) {
        return Refuse("quick-pins label");
      }
    } else if ((row.W(kNodeQuickPinsList + 1) | row.W(kNodeQuickPinsPath + 1)) != 0) {
      return Refuse("quick-pins field on another node");
    }
  }
  return {};
}

Status CheckDefinitions(const unsigned char* bytes, const Tables& t, const Checker& check) {
  for (uint32_t i = 0; i < t.definitionCount; ++i) {
    const uint64_t at = t.definitionsOffset + uint64_t{4 * kDefinitionRecordWords} * i;
    const RowReader row(bytes + at);
    for (uint32_t word : {kDefIdentity, kDefTitle, kDefExecutable, kDefNodeId, kDefCachedIcon,
                          kDefReserved13, kDefIconPath, kDefReserved20}) {
      if (!check.ResolvesAt(at + 4 * word)) return Refuse("definition string");
    }
    if (row.W(kDefPlaced) > 1) return Refuse("definition flag");
    if (row.W(kDefIconIndex) != 0 && row.W(kDefIconIndex + 1) > 9) {
      return Refuse("definition icon index");
    }
    const uint32_t iconSource = row.W(kDefIconSource);
    if (iconSource > 2 || (iconSource == 2 && row.W(kDefIconPath + 1) == 0)) {
      return Refuse("definition icon source");
    }
    if (row.W(kDefDeclaredIn) > 3) return Refuse("definition origin");
  }
  return {};
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
  const RowReader in(data_ + layoutsOffset_ + uint64_t{4 * kLayoutRecordWords} * index);
  LayoutRow row;
  row.id = in.R(kLayoutId);
  row.family = in.W(kLayoutFamily);
  row.namespaceId = in.R(kLayoutNamespace);
  row.extension = in.R(kLayoutExtension);
  row.fileClass = in.R(kLayoutFileClass);
  row.progId = in.R(kLayoutProgId);
  row.inherits = in.R(kLayoutInherits);
  row.rootFirst = in.W(kLayoutRoot);
  row.rootCount = in.W(kLayoutRoot + 1);
  row.selection = in.W(kLayoutSelection);
  row.blockFirst = in.W(kLayoutBlock);
  row.blockCount = in.W(kLayoutBlock + 1);
  return row;
}

NodeRow CustomModelView::Node(uint32_t index) const noexcept {
  const RowReader in(data_ + nodesOffset_ + uint64_t{4 * kNodeRecordWords} * index);
  NodeRow row;
  row.id = in.R(kNodeId);
  row.kind = in.W(kNodeKind);
  row.identity = in.R(kNodeIdentity);
  row.titleOverride = in.R(kNodeTitleOverride);
  row.origin = in.W(kNodeOrigin);
  row.childFirst = in.W(kNodeChildren);
  row.childCount = in.W(kNodeChildren + 1);
  row.executionRef = in.R(kNodeExecutionRef);
  row.argumentFirst = in.W(kNodeArguments);
  row.argumentCount = in.W(kNodeArguments + 1);
  row.titleVerb = in.R(kNodeTitleVerb);
  row.iconPath = in.R(kNodeIconPath);
  row.userTitle = in.R(kNodeUserTitle);
  row.shiftOnly = in.W(kNodeShiftOnly);
  row.definitionIndex = in.W(kNodeDefinition);
  row.quickBrowseRecursive = in.W(kNodeQuickBrowseRecursive);
  row.quickBrowsePath = in.R(kNodeQuickBrowsePath);
  row.hasQuickSettings = in.W(kNodeHasQuickSettings);
  row.quickPinsList = in.R(kNodeQuickPinsList);
  row.quickPinsPath = in.R(kNodeQuickPinsPath);
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
  const RowReader in(data_ + definitionsOffset_ + uint64_t{4 * kDefinitionRecordWords} * index);
  DefinitionRow row;
  row.identity = in.R(kDefIdentity);
  row.placed = in.W(kDefPlaced);
  row.title = in.R(kDefTitle);
  row.hasIconIndex = in.W(kDefIconIndex);
  row.iconIndex = in.W(kDefIconIndex + 1);
  row.executable = in.R(kDefExecutable);
  row.nodeId = in.R(kDefNodeId);
  row.cachedIcon = in.R(kDefCachedIcon);
  row.iconSource = in.W(kDefIconSource);
  row.iconPath = in.R(kDefIconPath);
  row.argumentFirst = in.W(kDefArguments);
  row.argumentCount = in.W(kDefArguments + 1);
  row.declaredIn = in.W(kDefDeclaredIn);
  return row;
}

Status AttachCustomModel(const void* data, size_t size, CustomModelView& view) {
  view = CustomModelView{};
  const auto* bytes = static_cast<const unsigned char*>(data);
  // Pool text is handed out as wchar_t views, which needs an even start.
  if (bytes == nullptr || size < kCustomModelMinimumBytes) return Refuse("image too small");
  if ((reinterpret_cast<uintptr_t>(bytes) & 1) != 0) return Refuse("image misaligned");
  const RowReader header(bytes);
  if (header.W(0) != kCustomModelMagic) return Refuse("magic");
  if (header.W(1) != kCustomModelLayout) return Refuse("layout number");
  const uint32_t schemaVersion = header.W(4);
  if (schemaVersion != 2 && schemaVersion != 3) return Refuse("schema version");
  const uint32_t totalBytes = header.W(3);
  if (totalBytes > size || totalBytes > kCustomModelMaxBytes) return Refuse("totalBytes");

  const Tables t = ReadTables(header);
  if (!RegionInside(t.layoutsOffset, uint64_t{4 * kLayoutRecordWords} * t.layoutCount,
                    totalBytes) ||
      !RegionInside(t.nodesOffset, uint64_t{4 * kNodeRecordWords} * t.nodeCount, totalBytes) ||
      !RegionInside(t.listOffset, uint64_t{8} * t.listCount, totalBytes) ||
      !RegionInside(t.definitionsOffset, uint64_t{4 * kDefinitionRecordWords} * t.definitionCount,
                    totalBytes) ||
      !RegionInside(t.poolOffset, t.poolBytes, totalBytes)) {
    return Refuse("region outside the image");
  }
  if ((t.poolOffset & 1) != 0 || (t.poolBytes & 1) != 0) return Refuse("odd pool");
  const Checker check(bytes, t.poolOffset, t.poolBytes / 2);
  const StringRef tag = header.R(5);
  if (!check.Resolves(tag)) return Refuse("model tag");
  for (const auto rows : {CheckLayouts, CheckStringList, CheckNodes, CheckDefinitions}) {
    if (Status checked = rows(bytes, t, check); !checked) return checked;
  }

  view.data_ = bytes;
  view.version_ = header.W(2);
  view.schemaVersion_ = schemaVersion;
  view.totalBytes_ = totalBytes;
  view.modelTag_ = tag;
  view.layoutCount_ = t.layoutCount;
  view.layoutsOffset_ = t.layoutsOffset;
  view.nodeCount_ = t.nodeCount;
  view.nodesOffset_ = t.nodesOffset;
  view.stringListCount_ = t.listCount;
  view.stringListOffset_ = t.listOffset;
  view.definitionCount_ = t.definitionCount;
  view.definitionsOffset_ = t.definitionsOffset;
  view.poolOffset_ = t.poolOffset;
  view.poolUnits_ = t.poolBytes / 2;
  return {};
}

}  // namespace cmr

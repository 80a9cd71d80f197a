#pragma once
// The custom model snapshot: the compiled custom menu model as a pointer-free image that the
// Hook attaches in place from a read-only mapping of custom-model-snapshot-<n>.bin.
//
// FORMAT. Every integer is an unsigned 32-bit little-endian word; text is UTF-16LE. The image
// is a 72-byte header followed by five regions and nothing after the pool (no end padding).
//
//   header (18 words)
//     0 magic 0x424E43D6        4 layout 18               8 version n
//    12 totalBytes             16 schemaVersion (2 or 3; a legacy version-1 document is
//                                 compiled as 2, the version it migrates to)
//    20 model tag offset       24 model tag length (a StringRef into the pool, see below)
//    28 layoutCount            32 layoutsOffset = 72
//    36 nodeCount              40 nodesOffset = align8(72 + 72 * layoutCount)
//    44 stringListCount        48 stringListOffset = nodesOffset + 136 * nodeCount
//    52 definitionCount        56 definitionsOffset = stringListOffset + 8 * stringListCount
//    60 poolOffset = definitionsOffset + 112 * definitionCount
//    64 poolBytes (even)       68 reserved, zero
//   totalBytes = poolOffset + poolBytes, at most 4194304 (exactly 4 MiB is accepted).
//
// StringRef: (offset, length) in code units into the pool; the unit at offset + length is
// zero. The writer interns the empty string first, so the pool opens with one zero unit and
// the empty reference (0, 0) resolves like any other. Equal strings share one pool entry.
// A range is (first, count) of row indexes into the node table or the string list; an empty
// range is written as (0, 0).
//
// Model tag: the document's "baseline_version" (the release label of the baseline the model
// was built from). The writer looks it up by scanning the pool string by string and leaves
// (0, 0) when it is absent; the compiler always interns it, so it is present.
//
// LayoutRecord (18 words), one per published (non-abstract) layout, in document order:
//    0-1 id                      2 family (0 desktop .. 9 taskbar-app, as MenuTarget)
//    3-4 match namespace_id      5-6 match extension (with its dot)
//    7-8 match file_class        9-10 match prog_id
//   11-12 "inherits": the id of the parent layout the rows were resolved from (empty: none)
//   13-14 root node range: the layout's top-level rows, sorted
//   15 match selection (0 any, 1 none, 2 single, 3 multi)
//   16-17 block range: every node row of the layout at every depth; the rows of one layout
//         are contiguous, so a reader can visit a layout's nodes without walking the tree.
//   A layout without "match" is written with family 5 and no match strings.
//
// NodeRecord (34 words). The rows of each layout are laid out breadth-first, so the children
// of one node are contiguous; sibling rows are sorted by their key ("order" when declared,
// else the flattening fallback "_rank"; at an equal key a declared "order" comes first, then
// the authored position). After every layout's rows come the synthetic command nodes
// "definition-1", "definition-2", ... one per entry of "command_definitions", in document
// order; they belong to no layout and carry the execution data of their definition.
//    0-1 id                      2 kind (NodeKind 0..10)
//    3-4 identity: command_id of command and command-reference nodes, the "provider:" /
//        "command:" reference of provider-reference nodes, empty for the other kinds
//    5-6 title_override
//    7 origin: 0 declared by the layout itself, 1 inherited from an ancestor ("_from" set),
//      2 inserted by the user's overlay
//    8-9 children range (submenu, icon_band, withheld-slots)
//   10-11 execution reference (user commands only): the identity of the DefinitionRecord
//         that carries the command's execution data (its own identity, or the definition
//         named by "commands_plus_ref")
//   12-13 string-list range of the command's argument tokens (user commands only; the same
//         range as the definition's)
//   14-15 title_verb            16-17 icon_path; for a user command whose icon was cached,
//         the cached ".ico" file instead
//   18-19 the user command's own title (user commands only)
//   20 shift_only (0 or 1)
//   21 index of the DefinitionRecord of a user command, 0xFFFFFFFF for none
//   22 quick_browse "recursive" (0 or 1)
//   23-24 quick_browse "path" ("product:quick-browse" only)
//   25 1 when the node declares quick_browse or quick_pins settings, else 0
//   26-27 quick_pins "list" label, "Pins" when none was given ("product:quick-pins" only;
//         every quick-pins node carries a label of 1 to 64 units without control characters)
//   28-29 quick_pins "path" ("product:quick-pins" only)
//   30-33 zero, except on the command policy rows below
//
// Command policies (schema 3): after the definition rows, one row "policy-1", "policy-2", ...
// per entry of "command_policies", in document order, of kind 8 (command-reference), outside
// every layout. Scoped policies and the global defaults are distinct rows; the more specific
// scope wins at menu time.
//    3-4 the command's identity       5-6 title_override (empty: no title change)
//   14-15 the scope's namespace_id, extension or file class (whichever it names)
//   16-17 the scope's prog_id
//   30 1 (marks a policy row)        31 "hidden": 0 not stated, 1 false, 2 true
//   32 scope family + 1, 0 for a global policy
//   33 scope selection (0-3) | which text 14-15 holds << 8 (0 none, 1 namespace_id,
//      2 extension, 3 file class)
//
// String list: StringRef rows (8 bytes), the argument tokens of each definition, contiguous
// per definition in the order of its "arguments" array.
//
// DefinitionRecord (28 words), one per distinct user-command identity, sorted by identity in
// ordinal code-unit order; every placement of that identity shares the row.
//    0-1 identity ("user:" + braced GUID)
//    2 1 when at least one layout row executes this definition, 0 when it is only declared
//    3-4 title
//    5-6 icon index pair (has index, index 0..9): written (0, 0), the first icon of the file
//    7-8 executable
//    9-10 id of the synthetic "definition-{n}" node (empty for a definition declared on a
//         layout row)
//   11-12 cached ".ico" file of the icon extracted from icon_path (empty when none was
//         extracted: schema-3 models, or a source without an icon)
//   13-14 empty (reserved)
//   15 icon source: 0 none, 1 the cached icon at 11-12, 2 the icon file at 16-17 (non-empty)
//   16-17 icon_path as authored
//   18-19 string-list range of the argument tokens
//   20-21 empty (reserved)
//   22 where the definition was declared: 0 "command_definitions" of the baseline,
//      1 "command_definitions" of the overlay, 2 a row of a baseline layout, 3 a row that the
//      overlay inserted
//   23-27 zero
//
// READER CHECKS (AttachCustomModel; any failure rejects the whole image):
//   1. at least 68 bytes, magic, layout 18, schemaVersion 2 or 3, totalBytes not above the
//      buffer size nor above 4 MiB;
//   2. every non-empty region starts at or after byte 68 and ends within totalBytes;
//   3. poolOffset and poolBytes even; the model tag resolves;
//   4. layouts: all six StringRefs resolve, both node ranges lie in the node table, family
//      at most 9, selection at most 3;
//   5. every string-list entry resolves;
//   6. nodes: every StringRef resolves; kind at most 10; word 7 at most 2; children and
//      string-list ranges inside their tables; a command node's identity classifies as a
//      persistable command identity; only a user-command identity carries words 10-13 and a
//      non-zero word 19; only "product:quick-browse" carries 23-24; only "product:quick-pins"
//      carries 26-29, its label 1 to 64 units without a unit below 32 or 127;
//   7. definitions: every StringRef resolves; word 2 at most 1; when word 5 is non-zero word 6
//      is at most 9; word 15 at most 2 and 2 only with a non-empty 16-17; word 22 at most 3.
//   Not checked: a node's definition index (word 21) and a definition's argument range
//   (words 18-19); a reader bounds-checks them where it follows them.
//   A StringRef resolves when offset <= units, length < units - offset and the unit at
//   offset + length is zero. An empty range's first index is 0, 0xFFFFFFFF or at most the
//   table's row count.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/status.h"
#include "common/string_pool.h"
#include "model/model_types.h"

namespace cmr {

inline constexpr uint32_t kCustomModelMagic = 0x424E43D6;
inline constexpr uint32_t kCustomModelLayout = 18;
inline constexpr uint32_t kCustomModelMaxBytes = 4194304;
inline constexpr uint32_t kCustomModelHeaderBytes = 72;
inline constexpr uint32_t kCustomModelMinimumBytes = 68;
inline constexpr uint32_t kLayoutRecordWords = 18;
inline constexpr uint32_t kNodeRecordWords = 34;
inline constexpr uint32_t kDefinitionRecordWords = 28;
inline constexpr uint32_t kNoDefinition = 0xFFFFFFFF;

// Word indexes of the rows, shared by the writer and the reader.
namespace custom_model_words {
enum LayoutWord : uint32_t {
  kLayoutId = 0,
  kLayoutFamily = 2,
  kLayoutNamespace = 3,
  kLayoutExtension = 5,
  kLayoutFileClass = 7,
  kLayoutProgId = 9,
  kLayoutInherits = 11,
  kLayoutRoot = 13,
  kLayoutSelection = 15,
  kLayoutBlock = 16,
};
enum NodeWord : uint32_t {
  kNodeId = 0,
  kNodeKind = 2,
  kNodeIdentity = 3,
  kNodeTitleOverride = 5,
  kNodeOrigin = 7,
  kNodeChildren = 8,
  kNodeExecutionRef = 10,
  kNodeArguments = 12,
  kNodeTitleVerb = 14,
  kNodeIconPath = 16,
  kNodeUserTitle = 18,
  kNodeShiftOnly = 20,
  kNodeDefinition = 21,
  kNodeQuickBrowseRecursive = 22,
  kNodeQuickBrowsePath = 23,
  kNodeHasQuickSettings = 25,
  kNodeQuickPinsList = 26,
  kNodeQuickPinsPath = 28,
  kNodePolicyMark = 30,
  kNodePolicyHidden = 31,
  kNodePolicyScope = 32,
  kNodePolicySelection = 33,
};
enum DefinitionWord : uint32_t {
  kDefIdentity = 0,
  kDefPlaced = 2,
  kDefTitle = 3,
  kDefIconIndex = 5,
  kDefExecutable = 7,
  kDefNodeId = 9,
  kDefCachedIcon = 11,
  kDefReserved13 = 13,
  kDefIconSource = 15,
  kDefIconPath = 16,
  kDefArguments = 18,
  kDefReserved20 = 20,
  kDefDeclaredIn = 22,
};
}  // namespace custom_model_words

using LayoutWords = std::array<uint32_t, kLayoutRecordWords>;
using NodeWords = std::array<uint32_t, kNodeRecordWords>;
using DefinitionWords = std::array<uint32_t, kDefinitionRecordWords>;

// The model compiled into rows, ready to be flattened under a version number.
struct CompiledCustomModel {
  uint32_t schemaVersion = 2;
  std::wstring modelTag;
  StringRef modelTagRef;  // where the pool holds it
  std::vector<LayoutWords> layouts;
  std::vector<NodeWords> nodes;
  std::vector<StringRef> stringList;
  std::vector<DefinitionWords> definitions;
  StringPool pool;
};

// Compiles a flattened, parsed model (abstract layouts are skipped). Never fails: the limits
// of the model documents were enforced when they were parsed.
[[nodiscard]] CompiledCustomModel CompileCustomModel(const ModelDocument& model);

// The image bytes for `version`; empty when the image would exceed 4 MiB.
[[nodiscard]] std::string FlattenCustomModel(const CompiledCustomModel& model, uint32_t version);

// Size the image of `model` would have.
[[nodiscard]] uint64_t CustomModelImageSize(const CompiledCustomModel& model);

struct LayoutRow {
  StringRef id;
  uint32_t family = 0;
  StringRef namespaceId, extension, fileClass, progId, inherits;
  uint32_t rootFirst = 0, rootCount = 0;
  uint32_t selection = 0;
  uint32_t blockFirst = 0, blockCount = 0;
};

struct NodeRow {
  StringRef id;
  uint32_t kind = 0;
  StringRef identity, titleOverride;
  uint32_t origin = 0;
  uint32_t childFirst = 0, childCount = 0;
  StringRef executionRef;
  uint32_t argumentFirst = 0, argumentCount = 0;
  StringRef titleVerb, iconPath, userTitle;
  uint32_t shiftOnly = 0;
  uint32_t definitionIndex = kNoDefinition;
  uint32_t quickBrowseRecursive = 0;
  StringRef quickBrowsePath;
  uint32_t hasQuickSettings = 0;
  StringRef quickPinsList, quickPinsPath;
};

struct DefinitionRow {
  StringRef identity;
  uint32_t placed = 0;
  StringRef title;
  uint32_t hasIconIndex = 0, iconIndex = 0;
  StringRef executable, nodeId, cachedIcon;
  uint32_t iconSource = 0;
  StringRef iconPath;
  uint32_t argumentFirst = 0, argumentCount = 0;
  uint32_t declaredIn = 0;
};

class CustomModelView;
// Runs every reader check over the image. On success fills `view`; on failure `view` is
// cleared (never half set) and the message names the first failed check.
[[nodiscard]] Status AttachCustomModel(const void* data, size_t size, CustomModelView& view);

// A snapshot that passed every reader check; the view borrows the bytes it was attached to,
// which must outlive it.
//
// Attach checks exactly the format's rules, the ones every reader (the Hook's too) applies, so
// these fields can be followed without a further check: every StringRef (Text), a layout's
// root and block ranges, a node's children range and its argument range (words 12-13), and
// the string list's entries. Layout(i), Node(i), Definition(i) and ListString(i) take an index
// below the matching count. Two indexes are NOT checked by attach and must be checked where
// they are used, which DefinitionOf and Argument do: a node's definition index (word 21) and a
// definition's argument range (words 18-19).
class CustomModelView {
 public:
  [[nodiscard]] bool attached() const noexcept { return data_ != nullptr; }
  [[nodiscard]] uint32_t version() const noexcept { return version_; }
  [[nodiscard]] uint32_t schemaVersion() const noexcept { return schemaVersion_; }
  [[nodiscard]] uint32_t totalBytes() const noexcept { return totalBytes_; }
  [[nodiscard]] uint32_t layoutCount() const noexcept { return layoutCount_; }
  [[nodiscard]] uint32_t nodeCount() const noexcept { return nodeCount_; }
  [[nodiscard]] uint32_t stringListCount() const noexcept { return stringListCount_; }
  [[nodiscard]] uint32_t definitionCount() const noexcept { return definitionCount_; }
  [[nodiscard]] std::wstring_view modelTag() const noexcept { return Text(modelTag_); }

  [[nodiscard]] LayoutRow Layout(uint32_t index) const noexcept;
  [[nodiscard]] NodeRow Node(uint32_t index) const noexcept;
  [[nodiscard]] DefinitionRow Definition(uint32_t index) const noexcept;
  // The definition a node's word 21 names; nullopt for 0xFFFFFFFF or any index past the table.
  [[nodiscard]] std::optional<DefinitionRow> DefinitionOf(const NodeRow& node) const noexcept;
  // Argument `position` of a definition; nullopt past its count or past the string list.
  [[nodiscard]] std::optional<std::wstring_view> Argument(const DefinitionRow& definition,
                                                          uint32_t position) const noexcept;
  [[nodiscard]] std::wstring_view ListString(uint32_t index) const noexcept;
  [[nodiscard]] std::wstring_view Text(StringRef ref) const noexcept;

 private:
  friend Status AttachCustomModel(const void*, size_t, CustomModelView&);
  [[nodiscard]] uint32_t Word(uint64_t byteOffset) const noexcept;
  [[nodiscard]] StringRef Ref(uint64_t byteOffset) const noexcept;

  const unsigned char* data_ = nullptr;
  uint32_t version_ = 0, schemaVersion_ = 0, totalBytes_ = 0;
  StringRef modelTag_;
  uint32_t layoutCount_ = 0, layoutsOffset_ = 0;
  uint32_t nodeCount_ = 0, nodesOffset_ = 0;
  uint32_t stringListCount_ = 0, stringListOffset_ = 0;
  uint32_t definitionCount_ = 0, definitionsOffset_ = 0;
  uint32_t poolOffset_ = 0, poolUnits_ = 0;
};

}  // namespace cmr

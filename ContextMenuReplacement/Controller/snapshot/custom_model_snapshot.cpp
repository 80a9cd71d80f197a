#include "snapshot/custom_model_snapshot.h"

#include <fmt/xchar.h>

#include <algorithm>
#include <deque>
#include <map>
#include <set>

#include "common/byte_image.h"
#include "model/command_identity.h"

namespace cmr {
namespace {

using namespace custom_model_words;

constexpr std::wstring_view kQuickBrowse = kQuickBrowseIdentity;
constexpr std::wstring_view kQuickPins = kQuickPinsIdentity;

template <size_t N>
void PutRef(std::array<uint32_t, N>& row, uint32_t at, StringRef ref) {
  row[at] = ref.offset;
  row[at + 1] = ref.length;
}
template <size_t N>
void PutRange(std::array<uint32_t, N>& row, uint32_t at, uint32_t first, uint32_t count) {
  row[at] = count == 0 ? 0 : first;
  row[at + 1] = count;
}

// A user command: a command or command-reference row whose identity is "user:" + braced GUID.
bool IsUserCommand(const ModelNode& node) {
  return (node.kind == NodeKind::command || node.kind == NodeKind::commandReference) &&
         ClassifyIdentity(node.commandId) == IdentityKind::user;
}
std::wstring_view DefinitionIdentity(const ModelNode& node) {
  return node.commandsPlusRef.empty() ? std::wstring_view(node.commandId)
                                      : std::wstring_view(node.commandsPlusRef);
}

// Siblings in publication order: declared "order" or else "_rank" as the key; a declared
// order wins a tie, then the authored position keeps the order stable.
std::vector<const ModelNode*> SortedRows(const std::vector<ModelNode>& items) {
  std::vector<const ModelNode*> rows;
  rows.reserve(items.size());
  for (const ModelNode& node : items) rows.push_back(&node);
  std::stable_sort(rows.begin(), rows.end(), [](const ModelNode* a, const ModelNode* b) {
    const double keyA = a->order ? *a->order : static_cast<double>(a->rank);
    const double keyB = b->order ? *b->order : static_cast<double>(b->rank);
    if (keyA != keyB) return keyA < keyB;
    return a->order.has_value() && !b->order.has_value();
  });
  return rows;
}

struct PendingDefinition {
  std::wstring identity;
  const std::wstring* title = nullptr;
  const std::wstring* executable = nullptr;
  const std::vector<std::wstring>* arguments = nullptr;
  const std::wstring* iconPath = nullptr;
  const std::wstring* cachedIcon = nullptr;
  std::wstring nodeId;  // synthetic node of a document definition
  uint32_t declaredIn = 0;
  bool placed = false;
};

class Compiler {
 public:
  explicit Compiler(const ModelDocument& model) : model_(model) {}

  CompiledCustomModel Run() {
    out_.schemaVersion = model_.schemaVersion < 2 ? 2 : model_.schemaVersion;
    out_.modelTag = model_.baselineVersion;
    // The empty string first: the empty reference (0, 0) then resolves like any other.
    (void)out_.pool.Intern(L"");
    CollectDefinitions();
    for (const Layout& layout : model_.layouts) {
      if (!layout.isAbstract) AddLayout(layout);
    }
    AddDefinitionNodes();
    AddPolicyNodes();
    WriteDefinitions();
    out_.modelTagRef = out_.pool.Intern(out_.modelTag);
    return std::move(out_);
  }

 private:
  // Identities that some published row executes: a user command's own or the one it borrows.
  void CollectReferenced(const std::vector<ModelNode>& items, std::set<std::wstring>& out) const {
    for (const ModelNode& node : items) {
      if (IsUserCommand(node)) out.emplace(DefinitionIdentity(node));
      CollectReferenced(node.items, out);
    }
  }

  void CollectDefinitions() {
    // The placement model compiles only the definitions a row uses, once per identity.
    std::set<std::wstring> referenced;
    const bool onlyReferenced = model_.schemaVersion >= 3;
    for (const Layout& layout : model_.layouts) {
      if (!layout.isAbstract) CollectReferenced(layout.items, referenced);
    }
    uint32_t number = 0;
    for (const CommandDefinition& definition : model_.definitions) {
      ++number;
      if (byIdentity_.count(definition.commandId) != 0) continue;
      if (onlyReferenced && referenced.count(definition.commandId) == 0) continue;
      PendingDefinition pending{definition.commandId,
                                &definition.title,
                                &definition.executable,
                                &definition.arguments,
                                &definition.iconPath,
                                &definition.cachedIcon,
                                fmt::format(L"definition-{}", number),
                                definition.fromOverlay ? 1u : 0u,
                                false};
      byIdentity_.emplace(definition.commandId, definitions_.size());
      definitions_.push_back(std::move(pending));
    }
    for (const Layout& layout : model_.layouts) {
      if (!layout.isAbstract) CollectInline(layout.items);
    }
    // Ordinal identity order, so the table does not depend on the order of the documents.
    std::vector<size_t> order(definitions_.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
      return definitions_[a].identity < definitions_[b].identity;
    });
    std::vector<PendingDefinition> sorted;
    sorted.reserve(order.size());
    for (size_t index : order) sorted.push_back(std::move(definitions_[index]));
    definitions_ = std::move(sorted);
    byIdentity_.clear();
    for (size_t i = 0; i < definitions_.size(); ++i)
      byIdentity_.emplace(definitions_[i].identity, i);
  }

  void CollectInline(const std::vector<ModelNode>& items) {
    for (const ModelNode& node : items) {
      if (IsUserCommand(node) && node.commandsPlusRef.empty() &&
          byIdentity_.count(node.commandId) == 0) {
        PendingDefinition pending{node.commandId,
                                  &node.title,
                                  &node.executable,
                                  &node.arguments,
                                  &node.iconPath,
                                  &node.cachedIcon,
                                  L"",
                                  node.fromOverlay ? 3u : 2u,
                                  false};
        byIdentity_.emplace(node.commandId, definitions_.size());
        definitions_.push_back(std::move(pending));
      }
      CollectInline(node.items);
    }
  }

  uint32_t DefinitionIndexOf(std::wstring_view identity) {
    const auto found = byIdentity_.find(std::wstring(identity));
    return found == byIdentity_.end() ? kNoDefinition : static_cast<uint32_t>(found->second);
  }

  // The rows of one layout, breadth-first so that each node's children are contiguous.
  void AddLayout(const Layout& layout) {
    LayoutWords row{};
    PutRef(row, kLayoutId, out_.pool.Intern(layout.id));
    if (layout.match) {
      const LayoutMatch& match = *layout.match;
      row[kLayoutFamily] = static_cast<uint32_t>(match.family);
      PutRef(row, kLayoutNamespace, out_.pool.Intern(match.namespaceId));
      PutRef(row, kLayoutExtension, out_.pool.Intern(match.extension));
      PutRef(row, kLayoutFileClass, out_.pool.Intern(match.fileClass));
      PutRef(row, kLayoutProgId, out_.pool.Intern(match.progId));
      row[kLayoutSelection] = static_cast<uint32_t>(match.selection);
    } else {
      row[kLayoutFamily] = static_cast<uint32_t>(ContextFamily::fileItem);
    }
    if (row[kLayoutFamily] > 9) row[kLayoutFamily] = static_cast<uint32_t>(ContextFamily::fileItem);
    PutRef(row, kLayoutInherits, out_.pool.Intern(layout.inherits));

    const auto blockFirst = static_cast<uint32_t>(out_.nodes.size());
    const std::vector<const ModelNode*> roots = SortedRows(layout.items);
    PutRange(row, kLayoutRoot, blockFirst, static_cast<uint32_t>(roots.size()));
    std::deque<std::pair<size_t, const ModelNode*>> queue;
    for (const ModelNode* node : roots) {
      queue.emplace_back(out_.nodes.size(), node);
      out_.nodes.emplace_back();
    }
    while (!queue.empty()) {
      const auto [index, node] = queue.front();
      queue.pop_front();
      const std::vector<const ModelNode*> children = SortedRows(node->items);
      const auto childFirst = static_cast<uint32_t>(out_.nodes.size());
      for (const ModelNode* child : children) {
        queue.emplace_back(out_.nodes.size(), child);
        out_.nodes.emplace_back();
      }
      out_.nodes[index] =
          MakeNodeRow(*node, index, childFirst, static_cast<uint32_t>(children.size()));
    }
    PutRange(row, kLayoutBlock, blockFirst, static_cast<uint32_t>(out_.nodes.size()) - blockFirst);
    out_.layouts.push_back(row);
  }

  NodeWords MakeNodeRow(const ModelNode& node, size_t index, uint32_t childFirst,
                        uint32_t childCount) {
    NodeWords row{};
    PutRef(row, kNodeId, out_.pool.Intern(node.id));
    row[kNodeKind] = static_cast<uint32_t>(node.kind);
    const bool carriesCommand =
        node.kind == NodeKind::command || node.kind == NodeKind::commandReference;
    if (carriesCommand) {
      PutRef(row, kNodeIdentity, out_.pool.Intern(node.commandId));
    } else if (node.kind == NodeKind::providerReference) {
      PutRef(row, kNodeIdentity, out_.pool.Intern(node.providerRef));
    }
    PutRef(row, kNodeTitleOverride, out_.pool.Intern(node.titleOverride));
    row[kNodeOrigin] = node.fromOverlay ? 2 : (node.from.empty() ? 0 : 1);
    PutRange(row, kNodeChildren, childFirst, childCount);
    PutRef(row, kNodeTitleVerb, out_.pool.Intern(node.titleVerb));
    // A user command's row draws the cached copy of its icon when there is one.
    PutRef(row, kNodeIconPath,
           out_.pool.Intern(node.cachedIcon.empty() ? node.iconPath : node.cachedIcon));
    row[kNodeShiftOnly] = node.shiftOnly ? 1 : 0;
    row[kNodeDefinition] = kNoDefinition;
    if (IsUserCommand(node)) {
      const std::wstring_view identity = DefinitionIdentity(node);
      PutRef(row, kNodeExecutionRef, out_.pool.Intern(identity));
      const uint32_t definition = DefinitionIndexOf(identity);
      row[kNodeDefinition] = definition;
      std::wstring_view title = node.title;
      if (definition != kNoDefinition) {
        definitions_[definition].placed = true;
        if (title.empty()) title = *definitions_[definition].title;
        pendingArgumentRows_.emplace_back(index, definition);
      }
      PutRef(row, kNodeUserTitle, out_.pool.Intern(title));
    }
    if (carriesCommand && node.commandId == kQuickBrowse && node.quickBrowse) {
      row[kNodeQuickBrowseRecursive] = node.quickBrowse->recursive ? 1 : 0;
      PutRef(row, kNodeQuickBrowsePath, out_.pool.Intern(node.quickBrowse->path));
      row[kNodeHasQuickSettings] = 1;
    }
    if (carriesCommand && node.commandId == kQuickPins) {
      const QuickPinsSettings settings = node.quickPins.value_or(QuickPinsSettings{});
      PutRef(row, kNodeQuickPinsList,
             out_.pool.Intern(settings.list.empty() ? L"Pins" : settings.list));
      PutRef(row, kNodeQuickPinsPath, out_.pool.Intern(settings.path));
      row[kNodeHasQuickSettings] = node.quickPins ? 1 : 0;
    }
    return row;
  }

  // The argument ranges of user-command rows are filled in by WriteDefinitions, once the
  // string list is laid out in definition-table order.
  void AddDefinitionNodes() {
    std::vector<size_t> documentOrder;
    for (size_t i = 0; i < definitions_.size(); ++i) {
      if (!definitions_[i].nodeId.empty()) documentOrder.push_back(i);
    }
    // "definition-{n}" numbers follow "command_definitions"; keep that order for their rows.
    std::sort(documentOrder.begin(), documentOrder.end(), [&](size_t a, size_t b) {
      const std::wstring& x = definitions_[a].nodeId;
      const std::wstring& y = definitions_[b].nodeId;
      return x.size() != y.size() ? x.size() < y.size() : x < y;
    });
    for (size_t index : documentOrder) {
      const PendingDefinition& definition = definitions_[index];
      NodeWords row{};
      PutRef(row, kNodeId, out_.pool.Intern(definition.nodeId));
      row[kNodeKind] = static_cast<uint32_t>(NodeKind::command);
      PutRef(row, kNodeIdentity, out_.pool.Intern(definition.identity));
      PutRef(row, kNodeExecutionRef, out_.pool.Intern(definition.identity));
      PutRef(row, kNodeUserTitle, out_.pool.Intern(*definition.title));
      PutRef(row, kNodeIconPath,
             out_.pool.Intern(definition.cachedIcon->empty() ? *definition.iconPath
                                                             : *definition.cachedIcon));
      row[kNodeDefinition] = static_cast<uint32_t>(index);
      pendingArgumentRows_.emplace_back(out_.nodes.size(), index);
      out_.nodes.push_back(row);
    }
  }

  // Command policies follow the definition rows, one "policy-{n}" row each, in document
  // order; scoped and global policies of one command stay distinct rows.
  void AddPolicyNodes() {
    uint32_t number = 0;
    for (const CommandPolicy& policy : model_.policies) {
      NodeWords row{};
      PutRef(row, kNodeId, out_.pool.Intern(fmt::format(L"policy-{}", ++number)));
      row[kNodeKind] = static_cast<uint32_t>(NodeKind::commandReference);
      PutRef(row, kNodeIdentity, out_.pool.Intern(policy.commandId));
      PutRef(row, kNodeTitleOverride, out_.pool.Intern(policy.titleOverride));
      row[kNodePolicyMark] = 1;
      row[kNodePolicyHidden] = !policy.hidden ? 0 : (*policy.hidden ? 2 : 1);
      if (policy.scope) {
        const LayoutMatch& scope = *policy.scope;
        row[kNodePolicyScope] = static_cast<uint32_t>(scope.family) + 1;
        uint32_t named = 0;
        std::wstring_view text;
        if (!scope.namespaceId.empty()) {
          named = 1, text = scope.namespaceId;
        } else if (!scope.extension.empty()) {
          named = 2, text = scope.extension;
        } else if (!scope.fileClass.empty()) {
          named = 3, text = scope.fileClass;
        }
        row[kNodePolicySelection] = static_cast<uint32_t>(scope.selection) | (named << 8);
        PutRef(row, kNodeTitleVerb, out_.pool.Intern(text));
        PutRef(row, kNodeIconPath, out_.pool.Intern(scope.progId));
      } else {
        PutRef(row, kNodeTitleVerb, out_.pool.Intern(L""));
        PutRef(row, kNodeIconPath, out_.pool.Intern(L""));
      }
      out_.nodes.push_back(row);
    }
  }

  void WriteDefinitions() {
    std::vector<std::pair<uint32_t, uint32_t>> ranges(definitions_.size());
    for (size_t i = 0; i < definitions_.size(); ++i) {
      const PendingDefinition& definition = definitions_[i];
      DefinitionWords row{};
      PutRef(row, kDefIdentity, out_.pool.Intern(definition.identity));
      row[kDefPlaced] = definition.placed ? 1 : 0;
      PutRef(row, kDefTitle, out_.pool.Intern(*definition.title));
      PutRef(row, kDefExecutable, out_.pool.Intern(*definition.executable));
      PutRef(row, kDefNodeId, out_.pool.Intern(definition.nodeId));
      PutRef(row, kDefCachedIcon, out_.pool.Intern(*definition.cachedIcon));
      PutRef(row, kDefIconPath, out_.pool.Intern(*definition.iconPath));
      row[kDefIconSource] = !definition.cachedIcon->empty() ? 1
                            : definition.iconPath->empty()  ? 0
                                                            : 2;
      const auto first = static_cast<uint32_t>(out_.stringList.size());
      for (const std::wstring& argument : *definition.arguments) {
        out_.stringList.push_back(out_.pool.Intern(argument));
      }
      const auto count = static_cast<uint32_t>(out_.stringList.size()) - first;
      PutRange(row, kDefArguments, first, count);
      ranges[i] = {count == 0 ? 0 : first, count};
      row[kDefDeclaredIn] = definition.declaredIn;
      out_.definitions.push_back(row);
    }
    for (const auto& [nodeIndex, definitionIndex] : pendingArgumentRows_) {
      out_.nodes[nodeIndex][kNodeArguments] = ranges[definitionIndex].first;
      out_.nodes[nodeIndex][kNodeArguments + 1] = ranges[definitionIndex].second;
    }
  }

  const ModelDocument& model_;
  CompiledCustomModel out_;
  std::vector<PendingDefinition> definitions_;
  std::map<std::wstring, size_t> byIdentity_;
  std::vector<std::pair<size_t, size_t>> pendingArgumentRows_;
};

struct Offsets {
  uint64_t nodes, stringList, definitions, pool, total;
};

Offsets RegionOffsets(const CompiledCustomModel& model) {
  Offsets o{};
  o.nodes = Align8(kCustomModelHeaderBytes + uint64_t{72} * model.layouts.size());
  o.stringList = o.nodes + uint64_t{136} * model.nodes.size();
  o.definitions = o.stringList + uint64_t{8} * model.stringList.size();
  o.pool = o.definitions + uint64_t{112} * model.definitions.size();
  o.total = o.pool + model.pool.byteSize();
  return o;
}

template <size_t N>
void PutRows(ByteImageWriter& image, uint64_t offset,
             const std::vector<std::array<uint32_t, N>>& rows) {
  for (const auto& row : rows) {
    for (size_t word = 0; word < N; ++word) image.PutU32(offset + 4 * word, row[word]);
    offset += 4 * N;
  }
}

}  // namespace

CompiledCustomModel CompileCustomModel(const ModelDocument& model) {
  return Compiler(model).Run();
}

uint64_t CustomModelImageSize(const CompiledCustomModel& model) {
  return RegionOffsets(model).total;
}

std::string FlattenCustomModel(const CompiledCustomModel& model, uint32_t version) {
  const Offsets o = RegionOffsets(model);
  if (o.total > kCustomModelMaxBytes) return {};
  ByteImageWriter image(static_cast<size_t>(o.total));
  const StringRef tag = model.modelTagRef;
  const uint32_t header[18] = {kCustomModelMagic,
                               kCustomModelLayout,
                               version,
                               static_cast<uint32_t>(o.total),
                               model.schemaVersion,
                               tag.offset,
                               tag.length,
                               static_cast<uint32_t>(model.layouts.size()),
                               kCustomModelHeaderBytes,
                               static_cast<uint32_t>(model.nodes.size()),
                               static_cast<uint32_t>(o.nodes),
                               static_cast<uint32_t>(model.stringList.size()),
                               static_cast<uint32_t>(o.stringList),
                               static_cast<uint32_t>(model.definitions.size()),
                               static_cast<uint32_t>(o.definitions),
                               static_cast<uint32_t>(o.pool),
                               static_cast<uint32_t>(model.pool.byteSize()),
                               0};
  for (size_t word = 0; word < 18; ++word) image.PutU32(4 * word, header[word]);
  PutRows(image, kCustomModelHeaderBytes, model.layouts);
  PutRows(image, o.nodes, model.nodes);
  uint64_t offset = o.stringList;
  for (const StringRef& ref : model.stringList) {
    image.PutU32(offset, ref.offset);
    image.PutU32(offset + 4, ref.length);
    offset += 8;
  }
  PutRows(image, o.definitions, model.definitions);
  image.PutUnits(o.pool, model.pool.units().data(), model.pool.units().size());
  return image.take();
}

}  // namespace cmr

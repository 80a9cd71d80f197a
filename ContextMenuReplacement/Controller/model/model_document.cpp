#include "model/model_document.h"

#include <fmt/xchar.h>
#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>

#include <array>
#include <cwctype>
#include <unordered_map>
#include <unordered_set>

#include "common/json_members.h"
#include "common/schema_references.h"
#include "common/schema_shape.h"
#include "common/schema_workload.h"
#include "common/text.h"
#include "model/command_identity.h"
#include "model/model_names.h"

namespace cmr {
namespace {

using rapidjson::Value;

std::wstring Text(const Value& object, const char* name) {
  const Value* value = JsonMember(object, name);
  return value != nullptr ? JsonWide(*value) : std::wstring();
}

bool Flag(const Value& object, const char* name) {
  const Value* value = JsonMember(object, name);
  return value != nullptr && value->IsBool() && value->GetBool();
}

std::optional<double> Number(const Value& object, const char* name) {
  const Value* value = JsonMember(object, name);
  if (value == nullptr || !value->IsNumber()) return std::nullopt;
  return value->GetDouble();
}

std::string_view Utf8(const Value& value) {
  return value.IsString() ? std::string_view(value.GetString(), value.GetStringLength())
                          : std::string_view();
}

// The UTF-8 text of a string member; empty when absent or not a string.
std::string_view MemberUtf8(const Value& object, const char* name) {
  const Value* value = JsonMember(object, name);
  return value != nullptr ? Utf8(*value) : std::string_view();
}

std::vector<std::wstring> TextList(const Value& object, const char* name) {
  std::vector<std::wstring> list;
  const Value* value = JsonMember(object, name);
  if (value == nullptr || !value->IsArray()) return list;
  for (const Value& entry : value->GetArray()) list.push_back(JsonWide(entry));
  return list;
}

std::wstring PointerText(const rapidjson::Pointer& pointer) {
  rapidjson::StringBuffer buffer;
  pointer.StringifyUriFragment(buffer);
  return FromUtf8(std::string_view(buffer.GetString(), buffer.GetSize()));
}

LayoutMatch ParseMatch(const Value& match) {
  LayoutMatch out;
  out.family = ParseContextFamily(MemberUtf8(match, "family"));
  out.namespaceId = Text(match, "namespace_id");
  out.extension = Text(match, "extension");
  out.fileClass = Text(match, "file_class");
  out.progId = Text(match, "prog_id");
  const Value* selection = JsonMember(match, "selection");
  out.selection =
      selection != nullptr ? ParseSelectionArity(Utf8(*selection)) : SelectionArity::any;
  return out;
}

void AppendFolded(std::wstring& key, std::wstring_view text) {
  for (const wchar_t unit : text) key += FoldCase(unit);
  key += L'\n';
}

// What a match claims apart from its selection: family, namespace, extension and file class,
// the strings folded as target matching compares them.
std::wstring ContextKey(const LayoutMatch& match) {
  std::wstring key = fmt::format(L"{}\n", static_cast<uint32_t>(match.family));
  AppendFolded(key, match.namespaceId);
  AppendFolded(key, match.extension);
  AppendFolded(key, match.fileClass);
  return key;
}

// Policies are unique per identity and exact scope, selection included.
std::wstring SpecificityKey(const LayoutMatch& match) {
  return ContextKey(match) + fmt::format(L"{}\n", static_cast<uint32_t>(match.selection));
}

// The selections already claimed for one context, as a bit per SelectionArity value.
bool SelectionsTie(uint32_t claimed, SelectionArity selection) {
  // "any" scores against every target selection, so it ties with whatever else is claimed;
  // only two different concrete selections can never both match one target.
  if (claimed == 0) return false;
  if (selection == SelectionArity::any || (claimed & 1u) != 0) return true;
  return (claimed & (1u << static_cast<uint32_t>(selection))) != 0;
}

// The execution data a user command's identity is bound to, wherever it is declared.
// The icon is not part of it: a row's icon may be changed for one menu without rebinding.
struct Binding {
  std::wstring title, executable;
  std::vector<std::wstring> arguments;
  bool operator==(const Binding&) const = default;
};

bool IsValidPinListName(std::wstring_view name) {
  if (name.empty() || name.size() > kMaxPinListNameLength) return false;
  for (const wchar_t unit : name) {
    if (unit < 0x20 || unit == 0x7F) return false;
  }
  return true;
}

// Per-layout bookkeeping while its items are parsed.
struct LayoutScope {
  std::wstring layoutId;
  size_t nodeCount = 0;
  size_t remainingCommands = 0;
  std::unordered_set<std::wstring> nodeIds;
};

class DocumentParser {
 public:
  explicit DocumentParser(ModelDocument& out) : out_(out) {}

  Status Parse(const Value& document) {
    DocumentHeader header;
    if (Status error = ReadDocumentHeader(document, header); !error) return error;
    out_ = ModelDocument{};
    out_.kind = header.kind;
    out_.schemaVersion = header.schemaVersion;
    out_.baselineVersion = header.baselineVersion;
    out_.baseId = header.baseId;

    if (Status error = ParseDefinitions(document); !error) return error;
    if (Status error = ParseLayouts(document); !error) return error;
    if (Status error = CheckEqualSpecificity(); !error) return error;
    if (Status error = CheckBindings(); !error) return error;
    if (Status error = ParseExtensionRules(document); !error) return error;
    return ParsePolicies(document);
  }

 private:
  Status ParseDefinitions(const Value& document) {
    const Value* list = JsonMember(document, "command_definitions");
    if (list == nullptr || !list->IsArray()) return {};
    if (list->Size() > kMaxCommandDefinitions)
      return Status::Failure(L"Too many custom command definitions.");
    std::unordered_set<std::wstring> seen;
    for (const Value& entry : list->GetArray()) {
      CommandDefinition definition;
      definition.commandId = Text(entry, "command_id");
      definition.title = Text(entry, "title");
      definition.executable = Text(entry, "executable");
      definition.arguments = TextList(entry, "arguments");
      definition.iconPath = Text(entry, "icon_path");
      const Value* fromOverlay = JsonMember(entry, "_from_overlay");
      definition.fromOverlay = fromOverlay != nullptr && fromOverlay->IsTrue();
      if (!seen.insert(definition.commandId).second) {
        return Status::Failure(L"Duplicate custom command definition identity.");
      }
      // Definitions are read first and their identities are unique, so this binding is each
      // identity's first and cannot conflict.
      (void)Bind(definition.commandId,
                 {definition.title, definition.executable, definition.arguments});
      out_.definitions.push_back(std::move(definition));
    }
    return {};
  }

  Status ParseLayouts(const Value& document) {
    const Value* list = JsonMember(document, "layouts");
    if (list == nullptr || !list->IsArray()) return {};
    std::unordered_set<std::wstring> seen;
    for (const Value& entry : list->GetArray()) {
      Layout layout;
      layout.id = Text(entry, "id");
      if (!seen.insert(layout.id).second) {
        return Status::Failure(DuplicateLayoutIdRefusal(layout.id));
      }
      if (const Value* match = JsonMember(entry, "match"); match != nullptr && match->IsObject()) {
        layout.match = ParseMatch(*match);
      }
      layout.inherits = Text(entry, "inherits");
      layout.isAbstract = Flag(entry, "abstract");
      layout.ancestors = TextList(entry, "_ancestors");
      if (const Value* items = JsonMember(entry, "items"); items != nullptr) {
        LayoutScope scope;
        scope.layoutId = layout.id;
        if (Status error = ParseItems(*items, 0, scope, layout.items); !error) {
          return error;
        }
      }
      out_.layouts.push_back(std::move(layout));
    }
    return {};
  }

  // Refuses every pair of concrete layouts that can tie in the target scan. A layout without
  // "match" claims no context: two of them are duplicates of each other, and one alone would
  // be published as some family it never named, so it is refused as well.
  Status CheckEqualSpecificity() const {
    std::unordered_map<std::wstring, uint32_t> claimed;
    const Layout* matchless = nullptr;
    for (const Layout& layout : out_.layouts) {
      if (layout.isAbstract) continue;  // claims no context: that is what "abstract" is for
      const std::wstring key = layout.match ? ContextKey(*layout.match) : L"<no-context>";
      const SelectionArity selection = layout.match ? layout.match->selection : SelectionArity::any;
      uint32_t& selections = claimed[key];
      if (SelectionsTie(selections, selection)) {
        return Failure(L"Layout '{}' has an equal-specificity duplicate match.", layout.id);
      }
      selections |= 1u << static_cast<uint32_t>(selection);
      if (!layout.match && matchless == nullptr) matchless = &layout;
    }
    if (matchless != nullptr) {
      return Failure(
          L"Layout '{}' has no 'match', so it claims no context; give it a match or mark it "
          L"'abstract'.",
          matchless->id);
    }
    return {};
  }

  // One identity is bound to one execution: every declaration of it (a definition or a user
  // command row) must agree, and a row that borrows a definition must name one that exists.
  Status CheckBindings() const {
    for (const auto& [nodeId, identity] : borrowers_) {
      if (bindings_.count(identity) == 0) {
        return Failure(L"Node '{}' takes its command from '{}', which no definition declares.",
                       nodeId, identity);
      }
    }
    return {};
  }

  Status Bind(const std::wstring& identity, const Binding& binding) {
    const auto [it, added] = bindings_.emplace(identity, binding);
    if (!added && !(it->second == binding)) {
      return Status::Failure(
          L"Conflicting custom command definitions; use a new command identity.");
    }
    return {};
  }

  Status ParseItems(const Value& items, size_t depth, LayoutScope& scope,
                    std::vector<ModelNode>& out) {
    if (!items.IsArray()) {
      return Status::Failure(
          fmt::format(L"Layout '{}' has an 'items' value that is not an array.", scope.layoutId));
    }
    if (depth > kMaxItemDepth) {
      return Status::Failure(fmt::format(L"Layout '{}' nests its items more than {} levels deep.",
                                         scope.layoutId, kMaxItemDepth));
    }
    if (items.Size() > kMaxItemsPerArray)
      return Status::Failure(L"A layout exceeds the node limits.");
    out.reserve(items.Size());
    for (const Value& entry : items.GetArray()) {
      if (++scope.nodeCount > kMaxNodesPerLayout)
        return Status::Failure(L"A layout exceeds the node limits.");
      ModelNode node;
      if (Status error = ParseNode(entry, depth, scope, node); !error) return error;
      out.push_back(std::move(node));
    }
    return {};
  }

  Status ParseNode(const Value& entry, size_t depth, LayoutScope& scope, ModelNode& node) {
    if (!entry.IsObject()) {
      return Status::Failure(
          fmt::format(L"Layout '{}' has an item that is not an object.", scope.layoutId));
    }
    node.kind = ParseNodeKind(MemberUtf8(entry, "type"));
    node.id = Text(entry, "id");
    if (!node.id.empty() && !scope.nodeIds.insert(node.id).second) {
      return Status::Failure(fmt::format(L"Duplicate node id '{}' in one layout.", node.id));
    }
    node.commandId = Text(entry, "command_id");
    const IdentityKind identity = ClassifyIdentity(node.commandId);
    if (Status error = ParseExecution(entry, identity, node); !error) return error;
    if (Status error = ParseQuickSettings(entry, node); !error) return error;
    const Value* items = JsonMember(entry, "items");
    if (Status error = CheckIconBand(items, node); !error) return error;
    if (Status error = CheckIdentity(entry, identity, scope, node); !error) return error;
    ReadPresentation(entry, node);

    const bool holdsItems = node.kind == NodeKind::submenu || node.kind == NodeKind::iconBand ||
                            node.kind == NodeKind::withheldSlots;
    if (items == nullptr) return {};
    if (!holdsItems) {
      // Rows under a command or separator would be dropped without a word; refuse them.
      return Failure(
          L"Node '{}' cannot hold 'items': only submenu, icon_band and withheld-slots nodes have "
          L"children.",
          node.id);
    }
    return ParseItems(*items, depth + 1, scope, node.items);
  }

  // A user command's title, executable and arguments, bound to its identity; no other node may
  // declare them.
  Status ParseExecution(const Value& entry, IdentityKind identity, ModelNode& node) {
    const bool declaresExecution =
        entry.HasMember("title") || entry.HasMember("executable") || entry.HasMember("arguments");
    if (identity == IdentityKind::user) {
      node.commandsPlusRef = Text(entry, "commands_plus_ref");
      if (node.commandsPlusRef.empty() &&
          !(entry.HasMember("title") && entry.HasMember("executable"))) {
        return Status::Failure(fmt::format(
            L"Node '{}' is a user command and needs both 'title' and 'executable'.", node.id));
      }
      node.title = Text(entry, "title");
      node.executable = Text(entry, "executable");
      node.arguments = TextList(entry, "arguments");
      const bool placesUser =
          node.kind == NodeKind::command || node.kind == NodeKind::commandReference;
      if (placesUser && !node.commandsPlusRef.empty()) {
        borrowers_.emplace_back(node.id, node.commandsPlusRef);
      } else if (placesUser) {
        if (Status error = Bind(node.commandId, {node.title, node.executable, node.arguments});
            !error) {
          return error;
        }
      }
    } else if (declaresExecution) {
      return Status::Failure(fmt::format(
          L"Node '{}' is not a user command and must not declare 'title', 'executable' or "
          L"'arguments'.",
          node.id));
    }

    return {};
  }

  static Status ParseQuickSettings(const Value& entry, ModelNode& node) {
    if (const Value* browse = JsonMember(entry, "quick_browse"); browse != nullptr) {
      if (node.commandId != kQuickBrowseIdentity) {
        return Status::Failure(fmt::format(
            L"Node '{}' declares 'quick_browse' but is not a Quick browse command.", node.id));
      }
      node.quickBrowse = QuickBrowseSettings{Text(*browse, "path"), Flag(*browse, "recursive")};
    }
    if (const Value* pins = JsonMember(entry, "quick_pins"); pins != nullptr) {
      if (node.commandId != kQuickPinsIdentity) {
        return Status::Failure(fmt::format(
            L"Node '{}' declares 'quick_pins' but is not a Quick pins command.", node.id));
      }
      QuickPinsSettings settings;
      if (const Value* list = JsonMember(*pins, "list"); list != nullptr) {
        settings.list = JsonWide(*list);
        if (!IsValidPinListName(settings.list)) {
          return Status::Failure(
              fmt::format(L"Node '{}' names a pin list that is empty, too long, or holds a control "
                          L"character.",
                          node.id));
        }
      }
      settings.path = Text(*pins, "path");
      node.quickPins = std::move(settings);
    }

    return {};
  }

  static Status CheckIconBand(const Value* items, const ModelNode& node) {
    if (node.kind == NodeKind::iconBand) {
      if (items == nullptr || !items->IsArray() || items->Empty()) {
        return Status::Failure(
            fmt::format(L"Node '{}' is an icon_band and needs at least one item.", node.id));
      }
      for (const Value& child : items->GetArray()) {
        if (MemberUtf8(child, "type") != "command") {
          return Status::Failure(fmt::format(
              L"Node '{}' is an icon_band and can only contain 'command' items.", node.id));
        }
      }
    }

    return {};
  }

  static Status CheckIdentity(const Value& entry, IdentityKind identity, LayoutScope& scope,
                              ModelNode& node) {
    // Ephemeral identities name a row of one session; written into a document they would
    // point at a different command, or none, after the next restart.
    const bool placesCommand =
        node.kind == NodeKind::command || node.kind == NodeKind::commandReference;
    if ((placesCommand && !IsPersistable(identity)) || identity == IdentityKind::ephemeral) {
      return Status::Failure(
          fmt::format(L"Node '{}' has a non-persistable command identity.", node.id));
    }
    if (node.kind == NodeKind::providerReference) {
      node.providerRef = MakeReferenceKey(entry);
      const Value* provider = JsonMember(entry, "provider_id");
      if (provider != nullptr && ClassifyIdentity(JsonWide(*provider)) == IdentityKind::ephemeral) {
        return Status::Failure(
            fmt::format(L"Node '{}' has a non-persistable command identity.", node.id));
      }
    }
    if (node.kind == NodeKind::remainingCommands && ++scope.remainingCommands > 1) {
      return Status::Failure(L"A placement layout can contain only one remaining-commands node.");
    }

    return {};
  }

  static void ReadPresentation(const Value& entry, ModelNode& node) {
    node.titleOverride = Text(entry, "title_override");
    node.titleVerb = Text(entry, "title_verb");
    node.iconPath = Text(entry, "icon_path");
    node.shiftOnly = Flag(entry, "shift_only");
    node.order = Number(entry, "order");
    if (const Value* rank = JsonMember(entry, "_rank"); rank != nullptr && rank->IsUint()) {
      node.rank = rank->GetUint();
    }
    node.from = Text(entry, "_from");
    node.fromOverlay = Flag(entry, "_from_overlay");
  }

  Status ParseExtensionRules(const Value& document) {
    const Value* list = JsonMember(document, "extension_rules");
    if (list == nullptr || !list->IsArray()) return {};
    if (list->Size() > kMaxExtensionRules) return Status::Failure(L"Too many extension rules.");
    std::unordered_set<std::wstring> seen;
    for (const Value& entry : list->GetArray()) {
      ExtensionRule rule;
      rule.id = Text(entry, "id");
      rule.fromOverlay = Flag(entry, "_from_overlay");
      rule.shiftOnly = Flag(entry, "shift_only");
      rule.targetKey = MakeReferenceKey(entry);
      std::vector<ContextFamily> families;
      if (const Value* match = JsonMember(entry, "match"); match != nullptr) {
        rule.namespaceId = Text(*match, "namespace_id");
        rule.extension = Text(*match, "extension");
        rule.fileClass = Text(*match, "file_class");
        if (const Value* family = JsonMember(*match, "family"); family != nullptr) {
          if (family->IsArray()) {
            for (const Value& name : family->GetArray()) {
              families.push_back(ParseContextFamily(Utf8(name)));
            }
          } else if (family->IsString()) {
            families.push_back(ParseContextFamily(Utf8(*family)));
          }
        }
      }
      if (const Value* action = JsonMember(entry, "action"); action != nullptr) {
        const std::string_view kind = MemberUtf8(*action, "kind");
        rule.action = kind == "hide"   ? ExtensionActionKind::hide
                      : kind == "move" ? ExtensionActionKind::move
                                       : ExtensionActionKind::none;
        rule.titleOverride = Text(*action, "title_override");
        rule.targetSubmenuId = Text(*action, "target_submenu_id");
        rule.order = Number(*action, "order");
      }

      // A rule for several families becomes one rule per family so that precedence is always
      // decided on one exact family; the expanded ids keep the authored id recognisable.
      const auto add = [&](ExtensionRule expanded) -> Status {
        if (!seen.insert(expanded.id).second) {
          return Status::Failure(fmt::format(L"Duplicate extension rule id '{}'.", expanded.id));
        }
        out_.extensionRules.push_back(std::move(expanded));
        return {};
      };
      if (families.size() <= 1) {
        if (!families.empty()) rule.family = families.front();
        if (Status error = add(std::move(rule)); !error) return error;
        continue;
      }
      for (const ContextFamily family : families) {
        ExtensionRule expanded = rule;
        expanded.family = family;
        expanded.id = fmt::format(L"{}.{}", rule.id, FromUtf8(ContextFamilyName(family)));
        if (Status error = add(std::move(expanded)); !error) return error;
      }
    }
    return {};
  }

  Status ParsePolicies(const Value& document) {
    const Value* list = JsonMember(document, "command_policies");
    if (list == nullptr || !list->IsArray()) return {};
    if (list->Size() > kMaxCommandPolicies) return Status::Failure(L"Too many command policies.");
    std::unordered_set<std::wstring> seen;
    for (const Value& entry : list->GetArray()) {
      CommandPolicy policy;
      policy.commandId = Text(entry, "command_id");
      if (const Value* match = JsonMember(entry, "match"); match != nullptr && match->IsObject()) {
        policy.scope = ParseMatch(*match);
      }
      if (const Value* hidden = JsonMember(entry, "hidden");
          hidden != nullptr && hidden->IsBool()) {
        policy.hidden = hidden->GetBool();
      }
      policy.titleOverride = Text(entry, "title_override");
      const std::wstring key =
          policy.commandId + L'\n' + (policy.scope ? SpecificityKey(*policy.scope) : L"<global>");
      if (!seen.insert(key).second) return Status::Failure(L"Duplicate command policy identity.");
      out_.policies.push_back(std::move(policy));
    }
    return {};
  }

  ModelDocument& out_;
  std::unordered_map<std::wstring, Binding> bindings_;
  std::vector<std::pair<std::wstring, std::wstring>> borrowers_;  // node id, definition named
};

}  // namespace

Status CheckSchema(const Value& schema) {
  // The validator follows references without a guard: one that loops never returns, one that
  // does not resolve accepts everything, and a long chain of them exhausts the stack. It also
  // skips keywords it cannot read, which would accept everything too.
  if (Status references = CheckSchemaReferences(schema); !references) return references;
  return CheckSchemaShape(schema);
}

Status SchemaViolation(const rapidjson::Document& schema, const Value& document) {
  if (Status problem = CheckSchema(schema); !problem) {
    std::wstring detail = problem.message();
    detail[0] = static_cast<wchar_t>(std::towlower(detail[0]));
    return Status::Failure(std::move(detail));
  }
  // A schema that applies one schema twice doubles the validator's work at every level.
  if (Status workload = CheckSchemaWorkload(schema, document); !workload) {
    std::wstring detail = workload.message();
    detail[0] = static_cast<wchar_t>(std::towlower(detail[0]));
    return Status::Failure(std::move(detail));
  }
  const rapidjson::SchemaDocument schemaDocument(schema);
  rapidjson::SchemaValidator validator(schemaDocument);
  if (document.Accept(validator)) return {};

  const std::wstring keyword = FromUtf8(validator.GetInvalidSchemaKeyword());
  const std::wstring schemaPointer = PointerText(validator.GetInvalidSchemaPointer());
  const std::wstring documentPointer = PointerText(validator.GetInvalidDocumentPointer());
  // For "additionalProperties" the document location ends with the refused key itself.
  return Status::Failure(fmt::format(L"the '{}' rule at schema location '{}' rejects '{}'.",
                                     keyword, schemaPointer, documentPointer));
}

Status ValidateAgainstSchema(const rapidjson::Document& schema, const Value& document,
                             DocumentKind which) {
  Status detail = SchemaViolation(schema, document);
  if (detail.ok()) return {};
  const std::wstring_view subject = which == DocumentKind::baseline ? L"baseline" : L"overlay";
  return Status::Failure(fmt::format(L"The {} does not satisfy custom-menu.schema.json: {}",
                                     subject, detail.message()));
}

Status ReadDocumentHeader(const Value& document, DocumentHeader& out) {
  if (!document.IsObject()) return Status::Failure(L"The document is not a JSON object.");
  DocumentHeader header;
  const std::string_view kind = MemberUtf8(document, "document_kind");
  if (kind == "baseline") {
    header.kind = DocumentKind::baseline;
  } else if (kind == "overlay") {
    header.kind = DocumentKind::overlay;
  } else {
    return Status::Failure(L"The document's 'document_kind' must be 'baseline' or 'overlay'.");
  }
  if (const Value* version = JsonMember(document, "schema_version"); version != nullptr) {
    // Whole numbers from 2^63 up are unsigned only; they are still whole, just far too new.
    if (!version->IsInt64() && !version->IsUint64()) {
      return Status::Failure(L"The document's 'schema_version' is not a whole number.");
    }
    if (version->IsUint64() && version->GetUint64() > kNewestSchemaVersion) {
      return Status::Failure(fmt::format(
          L"The document's 'schema_version' {} is newer than this program supports (at most "
          L"{}).",
          version->GetUint64(), kNewestSchemaVersion));
    }
    const int64_t number = version->GetInt64();
    if (number < static_cast<int64_t>(kLegacySchemaVersion)) {
      return Status::Failure(
          fmt::format(L"The document's 'schema_version' {} is not a valid version.", number));
    }
    header.schemaVersion = static_cast<uint32_t>(number);
    header.versionDeclared = true;
  }
  header.baselineVersion = Text(document, "baseline_version");
  header.baseId = Text(document, "base_id");
  out = std::move(header);
  return {};
}

Status RequireBaselineDocument(const DocumentHeader& header) {
  if (header.kind == DocumentKind::baseline) return {};
  return Status::Failure(L"The custom model publisher accepts a baseline document only.");
}

Status RequireMatchingSchemaVersions(const DocumentHeader& baseline,
                                     const DocumentHeader& overlay) {
  if (baseline.schemaVersion == overlay.schemaVersion) return {};
  return Status::Failure(
      L"Baseline and overlay schema versions must match; no automatic conversion is supported.");
}

std::wstring MenuStyleOf(const DocumentHeader& header) {
  return header.baseId.empty() ? std::wstring(kDefaultMenuStyle) : header.baseId;
}

Status ParseModelDocument(const Value& document, ModelDocument& out) {
  return DocumentParser(out).Parse(document);
}

std::wstring DuplicateLayoutIdRefusal(std::wstring_view id) {
  return fmt::format(L"Duplicate layout id '{}'.", id);
}

std::wstring NormaliseLegacyLayoutId(std::wstring_view id) {
  if (id.find(L':') != std::wstring_view::npos) return std::wstring(id);
  constexpr std::array<std::wstring_view, 7> kCurrent = {
      L"desktop-default",   L"folder-background-default", L"folder-item-default", L"drive-default",
      L"file-item-default", L"recycle-bin-background",    L"recycle-bin-item",
  };
  for (const std::wstring_view current : kCurrent) {
    if (id == current) return std::wstring(id);
  }
  if (id == L"desktop-personalize-group") return L"personalize";
  if (id == L"desktop-personalize") return L"personalize-settings";
  constexpr std::array<std::wstring_view, 7> kPrefixes = {
      L"desktop-", L"file-", L"rbi-", L"fi-", L"fb-", L"dr-", L"rb-",
  };
  for (const std::wstring_view prefix : kPrefixes) {
    if (id.substr(0, prefix.size()) == prefix) return std::wstring(id.substr(prefix.size()));
  }
  return std::wstring(id);
}

}  // namespace cmr

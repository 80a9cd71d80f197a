#include "model/overlay_merge.h"

#include <fmt/xchar.h>

#include <algorithm>
#include <map>
#include <vector>

#include "common/json_members.h"
#include "model/command_identity.h"
#include "model/layout_inheritance.h"
#include "model/placement_model.h"

namespace cmr {
namespace {

using rapidjson::SizeType;
using rapidjson::Value;
using Allocator = rapidjson::Document::AllocatorType;

std::wstring Wide(std::string_view text) {
  return FromUtf8(text);
}

void Set(Value& object, const char* key, Value value, Allocator& allocator) {
  if (Value* existing = JsonMutableMember(object, key)) {
    *existing = value;
  } else {
    object.AddMember(Value(key, allocator), value, allocator);
  }
}

Value String(std::string_view text, Allocator& allocator) {
  return Value(text.data(), static_cast<SizeType>(text.size()), allocator);
}

bool IsSubmenu(const Value& node) {
  return JsonMemberText(node, "type") == "submenu" && JsonArrayMember(node, "items") != nullptr;
}

bool IsExtensionSlot(const Value& node) {
  const std::string_view type = JsonMemberText(node, "type");
  return type == "extension-slot" || type == "classic-extension-slot" ||
         type == "windows-extension-slot";
}

bool ListsAncestor(const Value& layout, std::string_view ancestor) {
  if (const Value* ancestors = JsonArrayMember(layout, "_ancestors")) {
    for (const Value& id : ancestors->GetArray()) {
      if (id.IsString() && std::string_view(id.GetString(), id.GetStringLength()) == ancestor) {
        return true;
      }
    }
  }
  return false;
}

// The normalised text of a string member, written back when it changed.
void NormaliseMember(Value& object, const char* key, Allocator& allocator) {
  const std::string_view text = JsonMemberText(object, key);
  if (text.empty()) return;
  const std::string normalised = ToUtf8(NormaliseLegacyLayoutId(Wide(text)));
  if (normalised != text) Set(object, key, String(normalised, allocator), allocator);
}

class Merger {
 public:
  Merger(rapidjson::Document& merged, const Value& overlay)
      : merged_(merged), allocator_(merged.GetAllocator()), overlay_(overlay) {}

  Status Run() {
    AppendLayouts();
    if (Status error = ResolveInheritance(merged_); !error) return error;
    if (Status status = ApplyInsertions(); !status) return status;
    WriteFallbackRanks(merged_);
    if (Status status = ApplyCommandDefaults(); !status) return status;
    if (Status status = ApplyNodeOverrides(); !status) return status;
    AppendExtensionRules();
    if (Status error = DropAbstractLayouts(merged_); !error) return error;
    return {};
  }

 private:
  Value& Layouts() {
    Value* layouts = JsonMutableMember(merged_, "layouts");
    if (layouts == nullptr || !layouts->IsArray()) {
      Set(merged_, "layouts", Value(rapidjson::kArrayType), allocator_);
      layouts = JsonMutableMember(merged_, "layouts");
    }
    return *layouts;
  }

  Value* FindLayout(std::string_view id) {
    for (Value& layout : Layouts().GetArray()) {
      if (JsonMemberText(layout, "id") == id) return &layout;
    }
    return nullptr;
  }

  // Layouts copied from the overlay keep their own ids: one equal to a baseline layout's is
  // refused as a duplicate by the resolution that follows, never a silent shadow.
  void AppendLayouts() {
    const Value* layouts = JsonArrayMember(overlay_, "layouts");
    if (layouts == nullptr) return;
    Value& target = Layouts();
    for (const Value& layout : layouts->GetArray())
      target.PushBack(Value(layout, allocator_), allocator_);
  }

  // The named layout, then every layout that lists it among its ancestors.
  std::vector<Value*> Reach(Value& named) {
    std::vector<Value*> reached{&named};
    const std::string_view id = JsonMemberText(named, "id");
    for (Value& layout : Layouts().GetArray()) {
      if (&layout != &named && ListsAncestor(layout, id)) reached.push_back(&layout);
    }
    return reached;
  }

  Status ApplyInsertions() {
    const Value* insertions = JsonArrayMember(overlay_, "insertions");
    if (insertions == nullptr) return {};
    for (const Value& entry : insertions->GetArray()) {
      const std::string_view layoutId = JsonMemberText(entry, "layout_id");
      const std::string_view parentId = JsonMemberText(entry, "parent_id");
      Value* named = FindLayout(layoutId);
      if (named == nullptr) {
        return Failure(L"insertion references unknown layout '{}'.", Wide(layoutId));
      }
      for (Value* layout : Reach(*named)) {
        Value* items = JsonMutableMember(*layout, "items");
        if (items == nullptr || !items->IsArray()) continue;
        if (!parentId.empty()) {
          const NodeLocation parent = FindNodeById(*items, parentId);
          if (!parent || !IsSubmenu(parent.node())) {
            // An inheriting layout that redefined the submenu away simply does not get the row.
            if (layout != named) continue;
            return Failure(L"insertion parent_id '{}' does not name a submenu in layout '{}'.",
                           Wide(parentId), Wide(layoutId));
          }
          items = JsonMutableMember(parent.node(), "items");
        }
        Value node(*JsonMember(entry, "node"), allocator_);
        if (!node.IsObject()) continue;
        // An order left on the node from an earlier edit would fight the entry's own.
        node.RemoveMember("order");
        if (const Value* order = JsonMember(entry, "order");
            order != nullptr && order->IsNumber()) {
          node.AddMember("order", Value(*order, allocator_), allocator_);
        }
        Set(node, "_from_overlay", Value(true), allocator_);
        if (layout != named) {
          // The copy a child holds came through its nearest parent, like any inherited row.
          const Value& ancestors = *JsonArrayMember(*layout, "_ancestors");
          Set(node, "_from", Value(ancestors[0], allocator_), allocator_);
        }
        items->PushBack(node, allocator_);
      }
    }
    return {};
  }

  // Shared settings reach every row of the command that is still on the built-in settings,
  // in every layout and at every depth.
  Status ApplyCommandDefaults() {
    const Value* defaults = JsonArrayMember(overlay_, "command_defaults");
    if (defaults == nullptr) return {};
    for (const Value& entry : defaults->GetArray()) {
      const std::string_view command = JsonMemberText(entry, "command_id");
      const Value* pins = JsonMember(entry, "quick_pins");
      if (Wide(command) != kQuickPinsIdentity || pins == nullptr) {
        return Failure(L"command_defaults names '{}', which has no shared settings.",
                       Wide(command));
      }
      for (Value& layout : Layouts().GetArray()) {
        if (Value* items = JsonMutableMember(layout, "items");
            items != nullptr && items->IsArray()) {
          ShareQuickPins(*items, command, *pins, 0);
        }
      }
    }
    return {};
  }

  void ShareQuickPins(Value& items, std::string_view command, const Value& pins, size_t depth) {
    for (Value& node : items.GetArray()) {
      if (!node.IsObject()) continue;
      if (JsonMemberText(node, "command_id") == command) {
        const Value* own = JsonMember(node, "quick_pins");
        if (own == nullptr || JsonMember(*own, "path") == nullptr) {
          Set(node, "quick_pins", Value(pins, allocator_), allocator_);
        }
      }
      Value* children = JsonMutableMember(node, "items");
      if (children != nullptr && children->IsArray() && depth < kMaxItemDepth) {
        ShareQuickPins(*children, command, pins, depth + 1);
      }
    }
  }

  // Whether the row `id` of `layout` is still the copy inherited from `ancestor`: it carries
  // "_from", and following "_from" up the chain reaches `ancestor` through copies only.
  bool InheritedFrom(Value& layout, std::string_view id, std::string_view ancestor) {
    Value* current = &layout;
    for (size_t hop = 0; hop <= kMaxAncestors; ++hop) {
      Value* items = JsonMutableMember(*current, "items");
      if (items == nullptr) return false;
      const NodeLocation found = FindNodeById(*items, id);
      if (!found) return false;
      const std::string_view from = JsonMemberText(found.node(), "_from");
      if (from.empty()) return false;
      if (from == ancestor) return true;
      current = FindLayout(from);
      if (current == nullptr) return false;
    }
    return false;
  }

  Status CheckOverride(const Value& entry, Value& layout) {
    const std::string_view layoutId = JsonMemberText(entry, "layout_id");
    const std::string_view nodeId = JsonMemberText(entry, "node_id");
    Value* items = JsonMutableMember(layout, "items");
    const NodeLocation found = items != nullptr ? FindNodeById(*items, nodeId) : NodeLocation{};
    if (!found) {
      return Failure(L"node_override references unknown node '{}' in layout '{}'.", Wide(nodeId),
                     Wide(layoutId));
    }
    const std::wstring command = Wide(JsonMemberText(found.node(), "command_id"));
    if (JsonMember(entry, "quick_pins") != nullptr && command != kQuickPinsIdentity) {
      return Failure(L"Node '{}' declares 'quick_pins' but is not a Quick pins command.",
                     Wide(nodeId));
    }
    if (JsonMember(entry, "quick_browse") != nullptr && command != kQuickBrowseIdentity) {
      return Failure(L"Node '{}' declares 'quick_browse' but is not a Quick browse command.",
                     Wide(nodeId));
    }
    if (const std::string_view parentId = JsonMemberText(entry, "parent_id"); !parentId.empty()) {
      const NodeLocation parent = FindNodeById(*items, parentId);
      if (!parent || !IsSubmenu(parent.node())) {
        return Failure(L"node_override parent_id '{}' does not name a submenu in layout '{}'.",
                       Wide(parentId), Wide(layoutId));
      }
    }
    return {};
  }

  // Every override that reaches one row of one layout, combined field by field: cascades from
  // the farthest ancestor first, the layout's own entries last, so the directly named layout
  // wins, and a parent-wide hide and a child's title edit of the same row both take effect.
  Status ApplyNodeOverrides() {
    const Value* overrides = JsonArrayMember(overlay_, "node_overrides");
    if (overrides == nullptr) return {};
    for (const Value& entry : overrides->GetArray()) {
      Value* layout = FindLayout(JsonMemberText(entry, "layout_id"));
      if (layout == nullptr) {
        return Failure(L"node_override references unknown layout '{}'.",
                       Wide(JsonMemberText(entry, "layout_id")));
      }
      if (Status status = CheckOverride(entry, *layout); !status) return status;
    }
    for (Value& layout : Layouts().GetArray()) {
      // node id -> (distance, entry); distance 0 is the layout itself.
      std::map<std::string, std::vector<std::pair<size_t, const Value*>>> reaching;
      const Value* ancestors = JsonArrayMember(layout, "_ancestors");
      for (const Value& entry : overrides->GetArray()) {
        const std::string_view named = JsonMemberText(entry, "layout_id");
        const std::string nodeId(JsonMemberText(entry, "node_id"));
        if (named == JsonMemberText(layout, "id")) {
          reaching[nodeId].emplace_back(0, &entry);
          continue;
        }
        if (ancestors == nullptr) continue;
        for (SizeType i = 0; i < ancestors->Size(); ++i) {
          const Value& ancestor = (*ancestors)[i];
          if (ancestor.IsString() && std::string_view(ancestor.GetString()) == named &&
              InheritedFrom(layout, nodeId, named)) {
            reaching[nodeId].emplace_back(i + 1, &entry);
          }
        }
      }
      if (reaching.empty()) continue;
      if (Status status = ApplyToLayout(layout, reaching); !status) return status;
    }
    return {};
  }

  Status ApplyToLayout(
      Value& layout,
      std::map<std::string, std::vector<std::pair<size_t, const Value*>>>& reaching) {
    Value& items = *JsonMutableMember(layout, "items");
    std::vector<std::pair<std::string, std::string>> moves;  // node id, parent id
    std::vector<std::string> hidden;
    for (auto& [nodeId, entries] : reaching) {
      std::stable_sort(entries.begin(), entries.end(),
                       [](const auto& a, const auto& b) { return a.first > b.first; });
      Value combined(rapidjson::kObjectType);
      for (const auto& [distance, entry] : entries) {
        for (const auto& member : entry->GetObject()) {
          const std::string_view key(member.name.GetString(), member.name.GetStringLength());
          if (key == "layout_id" || key == "node_id") continue;
          Set(combined, member.name.GetString(), Value(member.value, allocator_), allocator_);
        }
      }
      const NodeLocation found = FindNodeById(items, nodeId);
      if (!found) continue;
      Value& node = found.node();
      for (const char* key :
           {"title_override", "icon_path", "shift_only", "quick_pins", "quick_browse", "order"}) {
        if (const Value* value = JsonMember(combined, key)) {
          Set(node, key, Value(*value, allocator_), allocator_);
        }
      }
      if (const std::string_view parent = JsonMemberText(combined, "parent_id"); !parent.empty()) {
        moves.emplace_back(nodeId, parent);
      }
      if (JsonMemberText(combined, "visibility") == "hidden") hidden.push_back(nodeId);
    }
    for (const auto& [nodeId, parentId] : moves) {
      if (Status status = Move(layout, items, nodeId, parentId); !status) return status;
    }
    for (const std::string& nodeId : hidden) Hide(items, nodeId);
    return {};
  }

  // A move, never a copy: the row leaves its place and is appended under the submenu.
  Status Move(Value& layout, Value& items, std::string_view nodeId, std::string_view parentId) {
    const NodeLocation from = FindNodeById(items, nodeId);
    if (!from) return {};
    const std::wstring refusal =
        fmt::format(L"node_override parent_id '{}' does not name a submenu in layout '{}'.",
                    Wide(parentId), Wide(JsonMemberText(layout, "id")));
    // A submenu cannot move under itself or under one of its own rows.
    if (Value* own = JsonMutableMember(from.node(), "items"); own != nullptr && own->IsArray()) {
      if (JsonMemberText(from.node(), "id") == parentId || FindNodeById(*own, parentId)) {
        return Status::Failure(refusal);
      }
    }
    Value node;
    node.Swap(from.node());
    from.items->Erase(from.items->Begin() + from.index);
    const NodeLocation parent = FindNodeById(items, parentId);
    if (!parent || !IsSubmenu(parent.node())) return Status::Failure(refusal);
    JsonMutableMember(parent.node(), "items")->PushBack(node, allocator_);
    return {};
  }

  // Removes the row and its subtree. Extension slots in it are not lost: they are lifted into
  // a "withheld-slots" row in the hidden row's place, so the snapshot still knows they exist.
  void Hide(Value& items, std::string_view nodeId) {
    const NodeLocation found = FindNodeById(items, nodeId);
    if (!found) return;
    Value slots(rapidjson::kArrayType);
    CollectSlots(found.node(), slots, 0);
    if (slots.Empty()) {
      found.items->Erase(found.items->Begin() + found.index);
      return;
    }
    Value withheld(rapidjson::kObjectType);
    withheld.AddMember("type", "withheld-slots", allocator_);
    const std::string id = "withheld-slots-" + std::string(nodeId);
    withheld.AddMember("id", String(id, allocator_), allocator_);
    if (Value* rank = JsonMutableMember(found.node(), "_rank")) {
      withheld.AddMember("_rank", Value(*rank, allocator_), allocator_);
    }
    if (Value* order = JsonMutableMember(found.node(), "order")) {
      withheld.AddMember("order", Value(*order, allocator_), allocator_);
    }
    withheld.AddMember("items", slots, allocator_);
    found.node() = withheld;
  }

  void CollectSlots(Value& node, Value& slots, size_t depth) {
    if (!node.IsObject()) return;
    if (IsExtensionSlot(node)) {
      slots.PushBack(Value(node, allocator_), allocator_);
      return;
    }
    Value* children = JsonMutableMember(node, "items");
    if (children == nullptr || !children->IsArray() || depth >= kMaxItemDepth) return;
    for (Value& child : children->GetArray()) CollectSlots(child, slots, depth + 1);
  }

  void AppendExtensionRules() {
    const Value* rules = JsonArrayMember(overlay_, "extension_rules");
    if (rules == nullptr) return;
    Value* target = JsonMutableMember(merged_, "extension_rules");
    if (target == nullptr || !target->IsArray()) {
      Set(merged_, "extension_rules", Value(rapidjson::kArrayType), allocator_);
      target = JsonMutableMember(merged_, "extension_rules");
    }
    for (const Value& rule : rules->GetArray()) {
      Value copy(rule, allocator_);
      if (copy.IsObject()) Set(copy, "_from_overlay", Value(true), allocator_);
      target->PushBack(copy, allocator_);
    }
  }

  rapidjson::Document& merged_;
  Allocator& allocator_;
  const Value& overlay_;
};

}  // namespace

Status VetOverlay(const DocumentHeader& baseline, rapidjson::Document& overlay, bool& restamped) {
  restamped = false;
  DocumentHeader header;
  if (Status error = ReadDocumentHeader(overlay, header); !error) return error;
  if (Status error = RequireMatchingSchemaVersions(baseline, header); !error) return error;
  const std::wstring baselineStyle = MenuStyleOf(baseline);
  const std::string stamp = ToUtf8(header.baselineVersion);
  const bool migrates = stamp == kPredecessorMigratedStamp;
  const bool restamps = migrates || std::find(std::begin(kPredecessorRestampedStamps),
                                              std::end(kPredecessorRestampedStamps),
                                              stamp) != std::end(kPredecessorRestampedStamps);
  // Only the style that succeeded the predecessor release takes its overlays over.
  if (restamps && baselineStyle == kDefaultMenuStyle) {
    Allocator& allocator = overlay.GetAllocator();
    if (migrates) {
      for (const char* section : {"node_overrides", "insertions"}) {
        if (Value* entries = JsonMutableMember(overlay, section);
            entries != nullptr && entries->IsArray()) {
          for (Value& entry : entries->GetArray()) {
            NormaliseMember(entry, "node_id", allocator);
            NormaliseMember(entry, "parent_id", allocator);
          }
        }
      }
      if (Value* rules = JsonMutableMember(overlay, "extension_rules");
          rules != nullptr && rules->IsArray()) {
        for (Value& rule : rules->GetArray()) {
          if (Value* action = JsonMutableMember(rule, "action");
              action != nullptr && action->IsObject()) {
            NormaliseMember(*action, "target_submenu_id", allocator);
          }
        }
      }
    }
    Set(overlay, "baseline_version", String(ToUtf8(baseline.baselineVersion), allocator),
        allocator);
    header.baselineVersion = baseline.baselineVersion;
    restamped = true;
  }
  if (!header.baseId.empty() && header.baseId != baselineStyle) {
    return Failure(
        L"These customizations were made for the '{}' menu style, but the '{}' style "
        L"is in use.",
        header.baseId, baselineStyle);
  }
  if (header.baselineVersion != baseline.baselineVersion) {
    return Failure(
        L"The overlay was authored against baseline version '{}' but the current "
        L"baseline is '{}'.",
        header.baselineVersion, baseline.baselineVersion);
  }
  return {};
}

Status MergeOverlay(rapidjson::Document& merged, const Value& overlay) {
  DocumentHeader header;
  if (Status error = ReadDocumentHeader(overlay, header); !error) return error;
  if (header.schemaVersion == kPlacementSchemaVersion)
    return MergePlacementOverlay(merged, overlay);
  return Merger(merged, overlay).Run();
}

}  // namespace cmr

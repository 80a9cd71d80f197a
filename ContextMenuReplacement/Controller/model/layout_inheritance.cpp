#include "model/layout_inheritance.h"

#include <fmt/xchar.h>

#include <optional>
#include <unordered_map>
#include <vector>

#include "common/json_members.h"
#include "model/model_document.h"

namespace cmr {
namespace {

using rapidjson::SizeType;
using rapidjson::Value;
using Allocator = rapidjson::Document::AllocatorType;

std::string_view IdOf(const Value& object) {
  if (!object.IsObject()) return {};
  const auto it = object.FindMember("id");
  if (it == object.MemberEnd() || !it->value.IsString()) return {};
  return {it->value.GetString(), it->value.GetStringLength()};
}

std::wstring WideId(const Value& object) {
  return FromUtf8(IdOf(object));
}

Value* ItemsOf(Value& node) {
  if (!node.IsObject()) return nullptr;
  const auto it = node.FindMember("items");
  return it != node.MemberEnd() && it->value.IsArray() ? &it->value : nullptr;
}

void SetMember(Value& object, const char* name, Value value, Allocator& allocator) {
  const auto it = object.FindMember(name);
  if (it != object.MemberEnd()) {
    it->value = value;
  } else {
    object.AddMember(Value(name, allocator), value, allocator);
  }
}

NodeLocation Find(Value& items, std::string_view id, size_t depth) {
  for (SizeType i = 0; i < items.Size(); ++i) {
    if (IdOf(items[i]) == id) return {&items, i};
    if (depth >= kMaxItemDepth) continue;
    if (Value* children = ItemsOf(items[i]); children != nullptr) {
      if (NodeLocation found = Find(*children, id, depth + 1)) return found;
    }
  }
  return {};
}

// Marks copied rows with the layout they came from; the marking goes as deep as the model
// allows rows to be (depth 0 to 8).
void MarkFrom(Value& items, std::string_view layoutId, Allocator& allocator, size_t depth) {
  for (Value& node : items.GetArray()) {
    if (!node.IsObject()) continue;
    SetMember(node, "_from",
              Value(layoutId.data(), static_cast<SizeType>(layoutId.size()), allocator), allocator);
    if (depth >= kMaxItemDepth) continue;
    if (Value* children = ItemsOf(node); children != nullptr) {
      MarkFrom(*children, layoutId, allocator, depth + 1);
    }
  }
}

// Lays one of the child's own rows over the inherited rows in `items`: same id and both
// submenus merges (the child's members win, its rows merge recursively), same id otherwise
// replaces in place, a new id is appended. `own` is moved from. Only inherited copies (those
// still carrying "_from") can be replaced: meeting a row the child already laid down means the
// child declared one id twice.
Status LayOver(Value& items, Value& own, Allocator& allocator) {
  const std::string id(IdOf(own));
  const NodeLocation found = id.empty() ? NodeLocation{} : Find(items, id, 0);
  if (!found) {
    items.PushBack(own, allocator);
    return {};
  }
  Value& inherited = found.node();
  if (!inherited.IsObject() || !inherited.HasMember("_from")) {
    return Failure(L"Duplicate node id '{}' in one layout.", FromUtf8(id));
  }
  if (ItemsOf(inherited) == nullptr || ItemsOf(own) == nullptr) {
    inherited = own;
    if (inherited.IsObject()) inherited.RemoveMember("_from");
    return {};
  }
  Value ownItems;
  ownItems.Swap(*ItemsOf(own));
  for (auto& member : own.GetObject()) {
    if (member.name == "items") continue;
    const auto existing = inherited.FindMember(member.name);
    if (existing != inherited.MemberEnd()) {
      existing->value = member.value;
    } else {
      inherited.AddMember(member.name, member.value, allocator);
    }
  }
  // The row is now the child's own: cascading edits aimed at the parent's copy skip it.
  inherited.RemoveMember("_from");
  Value& target = *ItemsOf(inherited);
  for (Value& child : ownItems.GetArray()) {
    if (Status error = LayOver(target, child, allocator); !error) return error;
  }
  return {};
}

enum class State { unvisited, inProgress, done };

class Resolver {
 public:
  Resolver(rapidjson::Document& document, Value& layouts, const LayoutResolutionStep& step)
      : allocator_(document.GetAllocator()), layouts_(layouts), step_(step) {
    states_.assign(layouts.Size(), State::unvisited);
    for (SizeType i = 0; i < layouts.Size(); ++i) {
      if (!byId_.emplace(std::string(IdOf(layouts[i])), i).second && !duplicate_) duplicate_ = i;
    }
  }

  Status ResolveAll() {
    // Abstract layouts are dropped before the parsed model sees them, so its own duplicate
    // check comes too late: a second layout with a parent's id would silently lose to the first.
    if (duplicate_) return Status::Failure(DuplicateLayoutIdRefusal(WideId(layouts_[*duplicate_])));
    for (SizeType i = 0; i < layouts_.Size(); ++i) {
      if (Status error = ResolveChain(i); !error) return error;
    }
    return {};
  }

 private:
  const Value* InheritsOf(const Value& layout) const {
    const auto it = layout.FindMember("inherits");
    return it != layout.MemberEnd() && it->value.IsString() ? &it->value : nullptr;
  }

  // Walks up the parent chain iteratively (a long chain must not exhaust the stack), then
  // resolves from the topmost unresolved ancestor down, so every parent is done before its
  // child copies it.
  Status ResolveChain(SizeType start) {
    if (states_[start] == State::done) return {};
    std::vector<SizeType> chain{start};
    states_[start] = State::inProgress;
    for (;;) {
      const Value& current = layouts_[chain.back()];
      const Value* inherits = InheritsOf(current);
      if (inherits == nullptr) break;
      const std::string parentId(inherits->GetString(), inherits->GetStringLength());
      const auto parent = byId_.find(parentId);
      if (parent == byId_.end()) {
        return Status::Failure(fmt::format(L"Layout '{}' inherits missing layout '{}'.",
                                           WideId(current), FromUtf8(parentId)));
      }
      if (states_[parent->second] == State::done) break;
      if (states_[parent->second] == State::inProgress) {
        return Status::Failure(
            fmt::format(L"Layout inheritance contains a cycle through '{}'.", FromUtf8(parentId)));
      }
      states_[parent->second] = State::inProgress;
      chain.push_back(parent->second);
    }
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
      if (Status error = ResolveOne(*it); !error) return error;
    }
    return {};
  }

  Status ResolveOne(SizeType index) {
    Value& layout = layouts_[index];
    const Value* inherits = InheritsOf(layout);
    if (inherits == nullptr) {
      const Value* items = ItemsOf(layout);
      if (items == nullptr || items->Empty()) {
        return Status::Failure(fmt::format(
            L"Layout '{}' does not inherit from another layout, so it must declare at least "
            L"one item.",
            WideId(layout)));
      }
      return Finish(index);
    }

    // A copy: the child's members move when "items" and "_ancestors" are added below.
    const std::string parentId(inherits->GetString(), inherits->GetStringLength());
    Value& parent = layouts_[byId_.at(parentId)];
    Value ancestors(rapidjson::kArrayType);
    ancestors.PushBack(Value(parentId.data(), static_cast<SizeType>(parentId.size()), allocator_),
                       allocator_);
    if (const auto it = parent.FindMember("_ancestors");
        it != parent.MemberEnd() && it->value.IsArray()) {
      for (const Value& ancestor : it->value.GetArray()) {
        ancestors.PushBack(Value(ancestor, allocator_), allocator_);
      }
    }
    if (ancestors.Size() > kMaxAncestors) {
      return Status::Failure(fmt::format(L"Layout '{}' inherits through more than {} ancestors.",
                                         WideId(layout), kMaxAncestors));
    }

    Value merged(rapidjson::kArrayType);
    if (const Value* parentItems = ItemsOf(parent); parentItems != nullptr) {
      merged.CopyFrom(*parentItems, allocator_);
    }
    MarkFrom(merged, parentId, allocator_, 0);
    if (Value* own = ItemsOf(layout); own != nullptr) {
      for (Value& node : own->GetArray()) {
        if (Status error = LayOver(merged, node, allocator_); !error) return error;
      }
    }
    SetMember(layout, "items", std::move(merged), allocator_);
    SetMember(layout, "_ancestors", std::move(ancestors), allocator_);
    return Finish(index);
  }

  Status Finish(SizeType index) {
    if (step_) {
      if (Status error = step_(layouts_[index], allocator_); !error) return error;
    }
    states_[index] = State::done;
    return {};
  }

  Allocator& allocator_;
  Value& layouts_;
  const LayoutResolutionStep& step_;
  std::vector<State> states_;
  // Layout of each id. Keys are copies: short DOM strings live inside their value and move when
  // members are added.
  std::unordered_map<std::string, SizeType> byId_;
  std::optional<SizeType> duplicate_;  // the first layout whose id an earlier layout holds
};

Value* LayoutsOf(rapidjson::Document& document) {
  if (!document.IsObject()) return nullptr;
  const auto it = document.FindMember("layouts");
  return it != document.MemberEnd() && it->value.IsArray() ? &it->value : nullptr;
}

bool IsAbstract(const Value& layout) {
  if (!layout.IsObject()) return false;
  const auto it = layout.FindMember("abstract");
  return it != layout.MemberEnd() && it->value.IsBool() && it->value.GetBool();
}

void WriteRanks(Value& items, Allocator& allocator, size_t depth) {
  for (SizeType i = 0; i < items.Size(); ++i) {
    Value& node = items[i];
    if (!node.IsObject()) continue;
    const auto order = node.FindMember("order");
    const bool ordered = order != node.MemberEnd() && order->value.IsNumber();
    if (!ordered && !node.HasMember("_rank")) node.AddMember("_rank", Value(i), allocator);
    if (depth >= kMaxItemDepth) continue;
    if (Value* children = ItemsOf(node); children != nullptr) {
      WriteRanks(*children, allocator, depth + 1);
    }
  }
}

}  // namespace

Status ResolveInheritance(rapidjson::Document& document, const LayoutResolutionStep& step) {
  Value* layouts = LayoutsOf(document);
  if (layouts == nullptr) return {};
  for (const Value& layout : layouts->GetArray()) {
    if (!layout.IsObject()) return {};
  }
  return Resolver(document, *layouts, step).ResolveAll();
}

void WriteFallbackRanks(rapidjson::Document& document) {
  Value* layouts = LayoutsOf(document);
  if (layouts == nullptr) return;
  for (Value& layout : layouts->GetArray()) {
    if (Value* items = ItemsOf(layout); items != nullptr) {
      WriteRanks(*items, document.GetAllocator(), 0);
    }
  }
}

Status DropAbstractLayouts(rapidjson::Document& document) {
  Value* layouts = LayoutsOf(document);
  if (layouts == nullptr || layouts->Empty()) return {};
  bool anyConcrete = false;
  for (const Value& layout : layouts->GetArray()) anyConcrete = anyConcrete || !IsAbstract(layout);
  if (!anyConcrete)
    return Status::Failure(
        L"Every layout is abstract, so the published model would claim no context.");
  for (auto it = layouts->Begin(); it != layouts->End();) {
    it = IsAbstract(*it) ? layouts->Erase(it) : it + 1;
  }
  return {};
}

Status FlattenLayouts(rapidjson::Document& document, const LayoutResolutionStep& step) {
  if (Status error = ResolveInheritance(document, step); !error) return error;
  WriteFallbackRanks(document);
  return DropAbstractLayouts(document);
}

NodeLocation FindNodeById(Value& items, std::string_view id) {
  if (!items.IsArray()) return {};
  return Find(items, id, 0);
}

}  // namespace cmr

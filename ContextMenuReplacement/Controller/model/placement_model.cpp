#include "model/placement_model.h"

#include <fmt/xchar.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "common/json_members.h"
#include "common/text.h"
#include "model/layout_inheritance.h"
#include "model/model_document.h"

namespace cmr {
namespace {

using rapidjson::SizeType;
using rapidjson::Value;
using Allocator = rapidjson::Document::AllocatorType;

Value& ArrayMember(Value& object, const char* key, Allocator& allocator) {
  Value* value = JsonMutableMember(object, key);
  if (value == nullptr) {
    object.AddMember(Value(key, allocator), Value(rapidjson::kArrayType), allocator);
    value = JsonMutableMember(object, key);
  } else if (!value->IsArray()) {
    value->SetArray();
  }
  return *value;
}

std::string Folded(std::string_view text) {
  return ToUtf8([&] {
    std::wstring wide = FromUtf8(text);
    for (wchar_t& unit : wide) unit = FoldCase(unit);
    return wide;
  }());
}

// Identity and exact scope of a policy; "<global>" stands for an unscoped one.
std::string PolicyKey(const Value& policy) {
  std::string key(JsonMemberText(policy, "command_id"));
  const Value* match = JsonMember(policy, "match");
  if (match == nullptr) return key + "\n<global>";
  std::string_view selection = JsonMemberText(*match, "selection");
  if (selection.empty()) selection = "any";
  key.append("\n").append(JsonMemberText(*match, "family"));
  for (const char* field : {"namespace_id", "extension", "file_class", "prog_id"}) {
    key.append("\n").append(Folded(JsonMemberText(*match, field)));
  }
  return key.append("\n").append(selection);
}

std::wstring InvalidEdit(const Value& layout) {
  return fmt::format(
      L"Invalid placement edit in layout '{}': missing or conflicting placement, parent, or "
      L"sibling anchor.",
      FromUtf8(JsonMemberText(layout, "id")));
}

class Placement {
 public:
  Placement(rapidjson::Document& merged, const Value& overlay)
      : merged_(merged), allocator_(merged.GetAllocator()), overlay_(overlay) {}

  Status Run() {
    if (Status status = MergeDefinitions(); !status) return status;
    if (Status status = MergePolicies(); !status) return status;
    if (Status status = ReplaceLayouts(); !status) return status;
    if (Status status = AttachEditLists(); !status) return status;
    return FlattenLayouts(merged_, ApplyPlacementEdits);
  }

 private:
  Status MergeDefinitions() {
    Value& definitions = ArrayMember(merged_, "command_definitions", allocator_);
    std::map<std::string, const Value*> baseline;
    for (const Value& definition : definitions.GetArray()) {
      baseline.emplace(std::string(JsonMemberText(definition, "command_id")), &definition);
    }
    const Value* added = JsonArrayMember(overlay_, "command_definitions");
    if (added == nullptr) return {};
    std::set<std::string> seen;
    std::vector<const Value*> fresh;
    for (const Value& definition : added->GetArray()) {
      const std::string identity(JsonMemberText(definition, "command_id"));
      if (!seen.insert(identity).second) {
        return Status::Failure(L"Duplicate overlay custom command definition identity.");
      }
      const auto existing = baseline.find(identity);
      if (existing == baseline.end()) {
        fresh.push_back(&definition);
      } else if (*existing->second != definition) {
        // An existing identity is never re-bound to another program.
        return Status::Failure(
            L"Conflicting custom command definitions; use a new command identity.");
      }
    }
    if (definitions.Size() + fresh.size() > kMaxCommandDefinitions) {
      return Status::Failure(L"Too many custom command definitions.");
    }
    // Marked so that the snapshot can tell the user's own definitions from the shipped ones.
    for (const Value* definition : fresh) {
      Value copy(*definition, allocator_);
      copy.AddMember("_from_overlay", true, allocator_);
      definitions.PushBack(copy, allocator_);
    }
    return {};
  }

  Status MergePolicies() {
    Value& policies = ArrayMember(merged_, "command_policies", allocator_);
    std::map<std::string, SizeType> baseline;
    for (SizeType i = 0; i < policies.Size(); ++i) {
      if (!baseline.emplace(PolicyKey(policies[i]), i).second) {
        return Status::Failure(L"Duplicate baseline command policy identity.");
      }
    }
    const Value* added = JsonArrayMember(overlay_, "command_policies");
    if (added == nullptr) return {};
    std::set<std::string> seen;
    size_t total = policies.Size();
    for (const Value& policy : added->GetArray()) {
      const std::string key = PolicyKey(policy);
      if (!seen.insert(key).second) {
        return Status::Failure(L"Duplicate overlay command policy identity.");
      }
      if (baseline.count(key) == 0) ++total;
    }
    if (total > kMaxCommandPolicies) return Status::Failure(L"Too many command policies.");
    // The overlay's policy replaces the baseline's of the same identity and scope, so only one
    // record of each is compiled.
    for (const Value& policy : added->GetArray()) {
      const auto existing = baseline.find(PolicyKey(policy));
      if (existing != baseline.end()) {
        policies[existing->second].CopyFrom(policy, allocator_);
      } else {
        policies.PushBack(Value(policy, allocator_), allocator_);
      }
    }
    return {};
  }

  Value* FindLayout(std::string_view id) {
    Value& layouts = ArrayMember(merged_, "layouts", allocator_);
    for (Value& layout : layouts.GetArray()) {
      if (JsonMemberText(layout, "id") == id) return &layout;
    }
    return nullptr;
  }

  Status ReplaceLayouts() {
    const Value* replacements = JsonArrayMember(overlay_, "layouts");
    if (replacements == nullptr) return {};
    std::set<std::string> seen;
    for (const Value& replacement : replacements->GetArray()) {
      const std::string_view id = JsonMemberText(replacement, "id");
      Value* layout = FindLayout(id);
      if (layout == nullptr) return Status::Failure(L"Placement overlay names an unknown layout.");
      if (!seen.insert(std::string(id)).second) {
        return Status::Failure(L"Placement overlay repeats a layout replacement.");
      }
      layout->CopyFrom(replacement, allocator_);
      MarkInserted(*layout);
    }
    return {};
  }

  Status AttachEditLists() {
    const Value* lists = JsonArrayMember(overlay_, "layout_edits");
    if (lists == nullptr) return {};
    std::set<std::string> seen;
    for (const Value& list : lists->GetArray()) {
      const std::string_view id = JsonMemberText(list, "id");
      Value* layout = FindLayout(id);
      if (layout == nullptr) return Status::Failure(L"Placement edits name an unknown layout.");
      if (!seen.insert(std::string(id)).second) {
        return Status::Failure(L"Placement overlay repeats a layout edit list.");
      }
      Value& edits = ArrayMember(*layout, "edits", allocator_);
      for (const Value& edit : JsonArrayMember(list, "edits")->GetArray()) {
        Value copy(edit, allocator_);
        if (JsonMemberText(copy, "action") == "insert") {
          if (Value* node = JsonMutableMember(copy, "node"); node != nullptr && node->IsObject()) {
            node->AddMember("_from_overlay", true, allocator_);
          }
        }
        edits.PushBack(copy, allocator_);
      }
    }
    return {};
  }

  // Rows of a layout the overlay replaced are the user's.
  void MarkInserted(Value& layout) {
    if (Value* items = JsonMutableMember(layout, "items"); items != nullptr && items->IsArray()) {
      for (Value& node : items->GetArray()) {
        if (node.IsObject() && !node.HasMember("_from_overlay")) {
          node.AddMember("_from_overlay", true, allocator_);
        }
      }
    }
  }

  rapidjson::Document& merged_;
  Allocator& allocator_;
  const Value& overlay_;
};

// Places `node` among the children of `siblings`: at the end, or before/after the anchor.
bool Place(const Value& edit, Value& siblings, Value& node, Allocator& allocator) {
  const bool atEnd = JsonMemberText(edit, "position") == "end";
  const std::string_view anchor = JsonMemberText(edit, "anchor_id");
  if (atEnd == !anchor.empty()) return false;  // exactly one placement
  if (atEnd) {
    siblings.PushBack(node, allocator);
    return true;
  }
  for (SizeType i = 0; i < siblings.Size(); ++i) {
    if (JsonMemberText(siblings[i], "id") != anchor) continue;
    const Value* after = JsonMember(edit, "after");
    const SizeType at = after != nullptr && after->IsBool() && after->GetBool() ? i + 1 : i;
    siblings.PushBack(Value(), allocator);
    for (SizeType j = siblings.Size() - 1; j > at; --j) siblings[j].Swap(siblings[j - 1]);
    siblings[at].Swap(node);
    return true;
  }
  return false;
}

}  // namespace

Status ApplyPlacementEdits(Value& layout, Allocator& allocator) {
  Value* editsMember = JsonMutableMember(layout, "edits");
  if (editsMember == nullptr) return {};
  Value edits;
  edits.Swap(*editsMember);
  layout.RemoveMember("edits");
  if (!edits.IsArray()) return {};
  Value& root = ArrayMember(layout, "items", allocator);
  for (Value& edit : edits.GetArray()) {
    Value* siblings = &root;
    if (const std::string_view parent = JsonMemberText(edit, "parent_id"); !parent.empty()) {
      const NodeLocation found = FindNodeById(root, parent);
      if (!found || JsonMemberText(found.node(), "type") != "submenu") {
        return Status::Failure(InvalidEdit(layout));
      }
      siblings = &ArrayMember(found.node(), "items", allocator);
    }
    const std::string_view action = JsonMemberText(edit, "action");
    Value* node = JsonMutableMember(edit, "node");
    if (node == nullptr || !node->IsObject()) return Status::Failure(InvalidEdit(layout));
    if (action == "insert") {
      Value inserted(*node, allocator);
      if (!Place(edit, *siblings, inserted, allocator)) return Status::Failure(InvalidEdit(layout));
      continue;
    }
    const std::string target(JsonMemberText(*node, "id"));
    const NodeLocation found = FindNodeById(root, target);
    if (!found) return Status::Failure(InvalidEdit(layout));
    Value taken;
    taken.Swap(found.node());
    found.items->Erase(found.items->Begin() + found.index);
    if (action == "remove") continue;
    // A move takes the row out and places it again; it never duplicates it. The parent must
    // be looked up again: taking the row out may have moved it.
    siblings = &root;
    if (const std::string_view parent = JsonMemberText(edit, "parent_id"); !parent.empty()) {
      const NodeLocation again = FindNodeById(root, parent);
      if (!again) return Status::Failure(InvalidEdit(layout));  // moved into itself
      siblings = &ArrayMember(again.node(), "items", allocator);
    }
    if (!Place(edit, *siblings, taken, allocator)) return Status::Failure(InvalidEdit(layout));
  }
  return {};
}

Status MergePlacementOverlay(rapidjson::Document& merged, const Value& overlay) {
  return Placement(merged, overlay).Run();
}

}  // namespace cmr

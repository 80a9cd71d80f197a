#include "snapshot/overlay_target_filter.h"

#include <set>
#include <vector>

#include "common/json_members.h"
#include "common/text.h"
#include "model/model_names.h"

namespace cmr {
namespace {

using rapidjson::Value;

// Whether a layout's match scores for the target in the scan.
bool Serves(const Value& layout, const MenuTarget& target) {
  const Value* match = JsonMember(layout, "match");
  if (match == nullptr || !match->IsObject()) return false;
  const std::wstring namespaceId = FromUtf8(JsonMemberText(*match, "namespace_id"));
  const std::wstring extension = FromUtf8(JsonMemberText(*match, "extension"));
  const std::wstring fileClass = FromUtf8(JsonMemberText(*match, "file_class"));
  const Value* selection = JsonMember(*match, "selection");
  const LayoutMatchView view{
      static_cast<uint32_t>(ParseContextFamily(JsonMemberText(*match, "family"))), namespaceId,
      extension, fileClass,
      static_cast<uint32_t>(selection != nullptr
                                ? ParseSelectionArity(JsonMemberText(*match, "selection"))
                                : SelectionArity::any)};
  return Match(std::span<const LayoutMatchView>(&view, 1), target).status == MatchStatus::matched;
}

bool Admits(std::string_view ruleText, const std::wstring& targetText) {
  return ruleText.empty() || EqualsIgnoreCase(FromUtf8(ruleText), targetText);
}

// A rule references the target when its match names it. A rule that names no context at all
// applies everywhere and belongs to no one target: only a full reset removes it.
bool RuleReferences(const Value& rule, const MenuTarget& target) {
  const Value* match = JsonMember(rule, "match");
  if (match == nullptr || !match->IsObject()) return false;
  const Value* families = JsonArrayMember(*match, "family");
  if (families == nullptr && JsonMemberText(*match, "namespace_id").empty() &&
      JsonMemberText(*match, "extension").empty() && JsonMemberText(*match, "file_class").empty()) {
    return false;
  }
  if (families != nullptr) {
    bool listed = false;
    for (const Value& family : families->GetArray()) {
      const std::string_view name =
          family.IsString() ? std::string_view(family.GetString(), family.GetStringLength())
                            : std::string_view();
      listed = listed || ParseContextFamily(name) == target.family;
    }
    if (!listed) return false;
  }
  return Admits(JsonMemberText(*match, "namespace_id"), target.namespaceId) &&
         Admits(JsonMemberText(*match, "extension"), target.extension) &&
         Admits(JsonMemberText(*match, "file_class"), target.fileClass);
}

// Ids of the layouts serving the target, with every layout they inherit from.
std::set<std::string> ServingLayouts(const Value& overlay, const Value& baseline,
                                     const MenuTarget& target) {
  std::vector<const Value*> layouts;
  for (const Value* document : {&baseline, &overlay}) {
    if (const Value* list = JsonArrayMember(*document, "layouts")) {
      for (const Value& layout : list->GetArray()) layouts.push_back(&layout);
    }
  }
  std::set<std::string> serving;
  for (const Value* layout : layouts) {
    if (!Serves(*layout, target)) continue;
    // Walk up "inherits"; the bound keeps a cyclic document from looping.
    const Value* current = layout;
    for (size_t hop = 0; current != nullptr && hop < 16; ++hop) {
      serving.emplace(JsonMemberText(*current, "id"));
      const std::string_view parent = JsonMemberText(*current, "inherits");
      current = nullptr;
      for (const Value* candidate : layouts) {
        if (!parent.empty() && JsonMemberText(*candidate, "id") == parent) current = candidate;
      }
    }
  }
  return serving;
}

size_t RemoveWhere(Value& overlay, const char* section, const auto& references) {
  const auto it = overlay.FindMember(section);
  if (it == overlay.MemberEnd() || !it->value.IsArray()) return 0;
  size_t removed = 0;
  for (auto entry = it->value.Begin(); entry != it->value.End();) {
    if (references(*entry)) {
      entry = it->value.Erase(entry);
      ++removed;
    } else {
      ++entry;
    }
  }
  return removed;
}

}  // namespace

Result<size_t> FilterOverlayForTarget(rapidjson::Document& overlay, const Value& baseline,
                                      const MenuTarget& target) {
  if (!overlay.IsObject()) return Status::Failure(L"The overlay is not a JSON object.");
  const std::set<std::string> serving = ServingLayouts(overlay, baseline, target);
  const auto names = [&](const char* key) {
    return [&serving, key](const Value& entry) {
      return serving.count(std::string(JsonMemberText(entry, key))) != 0;
    };
  };
  size_t removed = 0;
  removed += RemoveWhere(overlay, "layouts", [&](const Value& layout) {
    return Serves(layout, target) || serving.count(std::string(JsonMemberText(layout, "id"))) != 0;
  });
  removed += RemoveWhere(overlay, "insertions", names("layout_id"));
  removed += RemoveWhere(overlay, "node_overrides", names("layout_id"));
  removed += RemoveWhere(overlay, "layout_edits", names("id"));
  removed += RemoveWhere(overlay, "extension_rules",
                         [&](const Value& rule) { return RuleReferences(rule, target); });
  return removed;
}

}  // namespace cmr

#include "common/schema_references.h"

#include <fmt/xchar.h>
#include <rapidjson/pointer.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "common/json_members.h"
#include "common/text.h"

namespace cmr {

namespace {

using rapidjson::SizeType;
using rapidjson::Value;

struct SchemaObject {
  const Value* value;
  std::string location;
};

std::wstring Shown(const std::string& location) {
  return EscapeControlCharacters(FromUtf8(location));
}

// Every object of the schema with its location, in document order, found without recursion.
std::vector<SchemaObject> SchemaObjects(const Value& schema) {
  std::vector<SchemaObject> objects;
  std::vector<SchemaObject> pending{{&schema, "#"}};
  while (!pending.empty()) {
    SchemaObject node = std::move(pending.back());
    pending.pop_back();
    // Children are pushed last first, so the objects are listed in document order and a
    // limit names the first reference that passes it.
    if (node.value->IsObject()) {
      for (auto member = node.value->MemberEnd(); member != node.value->MemberBegin();) {
        --member;
        pending.push_back({&member->value, node.location + "/" + member->name.GetString()});
      }
      objects.push_back(std::move(node));
    } else if (node.value->IsArray()) {
      for (SizeType i = node.value->Size(); i > 0; --i) {
        pending.push_back({&(*node.value)[i - 1], fmt::format("{}/{}", node.location, i - 1)});
      }
    }
  }
  return objects;
}

// The schemas that apply to the same value as each schema object: the target of its reference
// and the members of its allOf, anyOf, oneOf and not.
class SameValueGraph {
 public:
  explicit SameValueGraph(const Value& schema) : objects_(SchemaObjects(schema)) {
    targets_.assign(objects_.size(), nullptr);
    order_.reserve(objects_.size());
    for (size_t i = 0; i < objects_.size(); ++i) order_.emplace_back(objects_[i].value, i);
    std::sort(order_.begin(), order_.end());
  }

  // Each reference resolved to the object it names.
  [[nodiscard]] Status Resolve(const Value& schema) {
    for (size_t i = 0; i < objects_.size(); ++i) {
      const Value* ref = JsonMember(*objects_[i].value, "$ref");
      if (ref == nullptr) continue;
      if (!ref->IsString()) {
        return Failure(L"The schema's '$ref' at '{}' is not a string.",
                       Shown(objects_[i].location));
      }
      const std::string_view text(ref->GetString(), ref->GetStringLength());
      const rapidjson::Pointer pointer(text.data(), text.size());
      const Value* target =
          !text.empty() && text[0] == '#' && pointer.IsValid() ? pointer.Get(schema) : nullptr;
      if (target == nullptr || !target->IsObject()) {
        return Failure(L"The schema's '$ref' '{}' at '{}' does not name a schema within it.",
                       EscapeControlCharacters(FromUtf8(text)), Shown(objects_[i].location));
      }
      targets_[i] = target;
    }
    return {};
  }

  [[nodiscard]] size_t size() const noexcept { return objects_.size(); }
  [[nodiscard]] const std::string& Location(size_t i) const { return objects_[i].location; }
  [[nodiscard]] bool IsReference(size_t i) const noexcept { return targets_[i] != nullptr; }

  [[nodiscard]] std::vector<size_t> SameValueSchemas(size_t i) const {
    std::vector<size_t> next;
    if (targets_[i] != nullptr) next.push_back(IndexOf(targets_[i]));
    for (const char* key : {"allOf", "anyOf", "oneOf"}) {
      const Value* list = JsonArrayMember(*objects_[i].value, key);
      if (list == nullptr) continue;
      for (const auto& item : list->GetArray()) {
        if (item.IsObject()) next.push_back(IndexOf(&item));
      }
    }
    if (const Value* negated = JsonMember(*objects_[i].value, "not");
        negated != nullptr && negated->IsObject()) {
      next.push_back(IndexOf(negated));
    }
    return next;
  }

  // The next link of the reference chain through `i`; size() when the chain ends there.
  [[nodiscard]] size_t NextLink(size_t i) const {
    return targets_[i] != nullptr && JsonMember(*targets_[i], "$ref") != nullptr
               ? IndexOf(targets_[i])
               : objects_.size();
  }

 private:
  [[nodiscard]] size_t IndexOf(const Value* value) const {
    return std::lower_bound(order_.begin(), order_.end(), std::make_pair(value, size_t{0}))->second;
  }

  std::vector<SchemaObject> objects_;
  std::vector<const Value*> targets_;
  std::vector<std::pair<const Value*, size_t>> order_;
};

// A cycle of schemas applied to the same value would never reach a deeper value, and
// validation would never end. Lists every schema after the ones it applies to the same value.
Status CheckNoCycle(const SameValueGraph& graph, std::vector<size_t>& finished) {
  enum : char { unseen, open, done };
  std::vector<char> state(graph.size(), unseen);
  for (size_t start = 0; start < graph.size(); ++start) {
    if (state[start] != unseen) continue;
    std::vector<std::pair<size_t, std::vector<size_t>>> path;
    path.emplace_back(start, graph.SameValueSchemas(start));
    state[start] = open;
    while (!path.empty()) {
      auto& [node, next] = path.back();
      if (next.empty()) {
        state[node] = done;
        finished.push_back(node);
        path.pop_back();
        continue;
      }
      const size_t child = next.back();
      next.pop_back();
      if (state[child] == open) {
        return Failure(
            L"The schema at '{}' refers back to itself without descending into the document.",
            Shown(graph.Location(child)));
      }
      if (state[child] == unseen) {
        state[child] = open;
        path.emplace_back(child, graph.SameValueSchemas(child));
      }
    }
  }
  return {};
}

// RapidJSON follows a reference to a reference by recursion, looking each one up linearly:
// a chain of some thousands of links takes seconds and a longer one overflows the stack.
// Without cycles every chain ends, so its length is counted once per reference.
Status CheckChains(const SameValueGraph& graph) {
  std::vector<size_t> links(graph.size(), 0);
  for (size_t start = 0; start < graph.size(); ++start) {
    if (!graph.IsReference(start) || links[start] != 0) continue;
    std::vector<size_t> chain;
    size_t i = start;
    for (; i < graph.size() && links[i] == 0; i = graph.NextLink(i)) chain.push_back(i);
    size_t length = i < graph.size() ? links[i] : 0;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) links[*it] = ++length;
    if (length > kMaxSchemaReferenceChain) {
      size_t cut = start;
      for (size_t hop = 0; hop < kMaxSchemaReferenceChain; ++hop) cut = graph.NextLink(cut);
      return Failure(L"The schema's chain of '$ref' references from '{}' exceeds {} links at '{}'.",
                     Shown(graph.Location(start)), kMaxSchemaReferenceChain,
                     Shown(graph.Location(cut)));
    }
  }
  size_t references = 0;
  for (size_t i = 0; i < graph.size(); ++i) {
    if (graph.IsReference(i) && ++references > kMaxSchemaReferences) {
      return Failure(
          L"The schema holds more than {} '$ref' references; the limit is exceeded at '{}'.",
          kMaxSchemaReferences, Shown(graph.Location(i)));
    }
  }
  return {};
}

// The validator runs every schema that applies to a value side by side, so a few levels of
// "allOf" naming one schema twice multiply into millions of them for a single value.
Status CheckFanOut(const SameValueGraph& graph, const std::vector<size_t>& finished) {
  std::vector<size_t> applied(graph.size(), 0);
  for (const size_t node : finished) {
    size_t total = 1;
    for (const size_t child : graph.SameValueSchemas(node)) {
      total = std::min(total + applied[child], kMaxSchemasPerValue + 1);
    }
    applied[node] = total;
    if (total > kMaxSchemasPerValue) {
      return Failure(L"The schema at '{}' applies more than {} schemas to one value.",
                     Shown(graph.Location(node)), kMaxSchemasPerValue);
    }
  }
  return {};
}

}  // namespace

Status CheckSchemaReferences(const Value& schema) {
  SameValueGraph graph(schema);
  if (Status resolved = graph.Resolve(schema); !resolved) return resolved;
  std::vector<size_t> finished;
  if (Status acyclic = CheckNoCycle(graph, finished); !acyclic) return acyclic;
  if (Status chains = CheckChains(graph); !chains) return chains;
  return CheckFanOut(graph, finished);
}

}  // namespace cmr

#include "common/schema_workload.h"

#include <fmt/xchar.h>
#include <rapidjson/pointer.h>

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "common/json_members.h"
#include "common/text.h"

namespace cmr {

namespace {

using rapidjson::SizeType;
using rapidjson::Value;

// Each schema applied to one value, with how many times it is applied.
using Applied = std::unordered_map<const Value*, size_t>;

// The schema a "$ref" stands for: RapidJSON takes the target in place of the whole object.
const Value* Resolved(const Value& root, const Value* schema) {
  while (schema != nullptr && schema->IsObject()) {
    const Value* ref = JsonMember(*schema, "$ref");
    if (ref == nullptr || !ref->IsString()) return schema;
    const std::string_view text(ref->GetString(), ref->GetStringLength());
    const rapidjson::Pointer pointer(text.data(), text.size());
    schema = text.starts_with('#') && pointer.IsValid() ? pointer.Get(root) : nullptr;
  }
  return schema != nullptr && schema->IsObject() ? schema : nullptr;
}

class Counter {
 public:
  explicit Counter(const Value& root) : root_(root) {}

  // Adds `count` copies of `schema` to `out`, with every schema they run beside it on the same
  // value; false once the total passes the limit.
  bool Apply(const Value* schema, size_t count, Applied& out) {
    std::vector<std::pair<const Value*, size_t>> pending{{schema, count}};
    while (!pending.empty()) {
      const auto [next, copies] = pending.back();
      pending.pop_back();
      const Info& info = InfoOf(next);
      if (info.schema == nullptr) continue;
      out[info.schema] += copies;
      total_ = std::min(total_ + copies, kMaxSchemaValidators + 1);
      if (total_ > kMaxSchemaValidators) return false;
      for (const Value* beside : info.beside) pending.emplace_back(beside, copies);
    }
    return true;
  }

  // The schemas applied to the member `name` of an object, or to its element `index` of an
  // array, by the schemas applied to that object or array.
  bool Descend(const Applied& parent, const Value* name, SizeType index, Applied& out) {
    Applied direct;
    for (const auto& entry : parent) {
      // Named, not bound: a lambda may not capture a structured binding before C++20's fix
      // reached every compiler (clang-tidy 14 refuses it).
      const Value* schema = entry.first;
      const size_t copies = entry.second;
      const auto add = [&](const Value* child) {
        if (child != nullptr && child->IsObject()) {
          size_t& slot = direct[child];
          slot = std::min(slot + copies, kMaxSchemaValidators + 1);
        }
      };
      if (name != nullptr) {
        const Value* properties = JsonMember(*schema, "properties");
        const Value* named =
            properties != nullptr ? JsonMember(*properties, name->GetString()) : nullptr;
        add(named != nullptr ? named : JsonMember(*schema, "additionalProperties"));
        for (const Value* pattern : InfoOf(schema).patterned) add(pattern);
      } else if (const Value* items = JsonMember(*schema, "items"); items != nullptr) {
        if (items->IsObject()) {
          add(items);
        } else if (items->IsArray() && index < items->Size()) {
          add(&(*items)[index]);
        } else if (items->IsArray()) {
          add(JsonMember(*schema, "additionalItems"));
        }
      }
    }
    for (const auto& [schema, copies] : direct) {
      if (!Apply(schema, copies, out)) return false;
    }
    return true;
  }

  size_t total() const { return total_; }

 private:
  // What the validator makes of one schema object, worked out once.
  struct Info {
    const Value* schema = nullptr;        // the object itself, or the target of its "$ref"
    std::vector<const Value*> beside;     // the schemas it runs on the same value
    std::vector<const Value*> patterned;  // its "patternProperties" schemas
  };

  const Info& InfoOf(const Value* value) {
    const auto [found, added] = infos_.try_emplace(value);
    Info& info = found->second;
    if (!added) return info;
    info.schema = Resolved(root_, value);
    if (info.schema == nullptr) return info;
    const Value& schema = *info.schema;
    for (const char* key : {"allOf", "anyOf", "oneOf"}) {
      const Value* list = JsonMember(schema, key);
      if (list == nullptr || !list->IsArray()) continue;
      for (const Value& item : list->GetArray()) info.beside.push_back(&item);
    }
    if (const Value* negated = JsonMember(schema, "not")) info.beside.push_back(negated);
    for (const char* key : {"dependencies", "patternProperties"}) {
      const Value* map = JsonMember(schema, key);
      if (map == nullptr || !map->IsObject()) continue;
      for (const auto& entry : map->GetObject()) {
        if (!entry.value.IsObject()) continue;
        (key[0] == 'd' ? info.beside : info.patterned).push_back(&entry.value);
      }
    }
    return info;
  }

  const Value& root_;
  std::unordered_map<const Value*, Info> infos_;
  size_t total_ = 0;
};

struct Frame {
  const Value* value;
  std::string at;
  Applied applied;
};

// Walks the document depth first without recursion; `at` names the value where the limit was
// passed.
bool Count(const Value& schema, const Value& document, Counter& counter, std::string& at) {
  std::vector<Frame> pending(1, Frame{&document, "", {}});
  if (!counter.Apply(&schema, 1, pending.back().applied)) return false;
  while (!pending.empty()) {
    Frame frame = std::move(pending.back());
    pending.pop_back();
    const Value& value = *frame.value;
    if (value.IsObject()) {
      for (const auto& member : value.GetObject()) {
        Frame child{&member.value, frame.at + "/" + member.name.GetString(), {}};
        if (!counter.Descend(frame.applied, &member.name, 0, child.applied)) {
          at = std::move(child.at);
          return false;
        }
        if (!child.applied.empty()) pending.push_back(std::move(child));
      }
    } else if (value.IsArray()) {
      for (SizeType i = 0; i < value.Size(); ++i) {
        Frame child{&value[i], fmt::format("{}/{}", frame.at, i), {}};
        if (!counter.Descend(frame.applied, nullptr, i, child.applied)) {
          at = std::move(child.at);
          return false;
        }
        if (!child.applied.empty()) pending.push_back(std::move(child));
      }
    }
  }
  return true;
}

}  // namespace

size_t SchemaValidatorCount(const Value& schema, const Value& document) {
  Counter counter(schema);
  std::string at;
  Count(schema, document, counter, at);
  return counter.total();
}

Status CheckSchemaWorkload(const Value& schema, const Value& document) {
  Counter counter(schema);
  std::string at;
  if (Count(schema, document, counter, at)) return {};
  return Failure(
      L"The schema would run more than {} schema validators over the document; the limit is "
      L"passed at '#{}'.",
      kMaxSchemaValidators, EscapeControlCharacters(FromUtf8(at)));
}

}  // namespace cmr

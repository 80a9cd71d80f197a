#include "common/schema_shape.h"

#include <fmt/xchar.h>
#include <rapidjson/internal/regex.h>
#include <rapidjson/pointer.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "common/json_members.h"
#include "common/text.h"

namespace cmr {

namespace {

using rapidjson::SizeType;
using rapidjson::Value;

std::string_view Text(const Value& value) {
  return std::string_view(value.GetString(), value.GetStringLength());
}

// A member name as a JSON pointer token: "~" and "/" are escaped so the pointer names it alone.
std::string Token(std::string_view name) {
  std::string out;
  for (const char c : name) {
    if (c == '~') {
      out += "~0";
    } else if (c == '/') {
      out += "~1";
    } else {
      out += c;
    }
  }
  return out;
}

std::wstring Shown(const std::string& pointer) {
  return EscapeControlCharacters(FromUtf8(pointer));
}

bool IsStringArray(const Value& value) {
  return value.IsArray() &&
         std::all_of(value.Begin(), value.End(), [](const Value& item) { return item.IsString(); });
}

bool IsTypeName(const Value& value) {
  static constexpr std::array<std::string_view, 7> kTypes = {"array",  "boolean", "integer", "null",
                                                             "number", "object",  "string"};
  return value.IsString() && std::find(kTypes.begin(), kTypes.end(), Text(value)) != kTypes.end();
}

// What each keyword the validator acts on must hold, as the refusal words it.
struct Expectation {
  const char* keyword;
  bool (*holds)(const Value&);
  const wchar_t* wording;
};

bool IsCount(const Value& v) {
  return v.IsUint64();
}
bool IsBoolean(const Value& v) {
  return v.IsBool();
}
bool IsNumber(const Value& v) {
  return v.IsNumber();
}

const Expectation kExpectations[] = {
    {"type",
     [](const Value& v) {
       return IsTypeName(v) ||
              (v.IsArray() && !v.Empty() && std::all_of(v.Begin(), v.End(), IsTypeName));
     },
     L"a type name or an array of type names"},
    {"enum", [](const Value& v) { return v.IsArray() && !v.Empty(); }, L"a non-empty array"},
    {"required", IsStringArray, L"an array of strings"},
    {"properties", [](const Value& v) { return v.IsObject(); }, L"an object of schemas"},
    {"patternProperties", [](const Value& v) { return v.IsObject(); }, L"an object of schemas"},
    {"definitions", [](const Value& v) { return v.IsObject(); }, L"an object of schemas"},
    {"dependencies",
     [](const Value& v) {
       return v.IsObject() && std::all_of(v.MemberBegin(), v.MemberEnd(), [](const auto& member) {
                return member.value.IsObject() || IsStringArray(member.value);
              });
     },
     L"an object of schemas or arrays of strings"},
    {"additionalProperties", [](const Value& v) { return v.IsBool() || v.IsObject(); },
     L"a boolean or a schema"},
    {"additionalItems", [](const Value& v) { return v.IsBool() || v.IsObject(); },
     L"a boolean or a schema"},
    {"items", [](const Value& v) { return v.IsObject() || v.IsArray(); },
     L"a schema or an array of schemas"},
    {"allOf", [](const Value& v) { return v.IsArray() && !v.Empty(); },
     L"a non-empty array of schemas"},
    {"anyOf", [](const Value& v) { return v.IsArray() && !v.Empty(); },
     L"a non-empty array of schemas"},
    {"oneOf", [](const Value& v) { return v.IsArray() && !v.Empty(); },
     L"a non-empty array of schemas"},
    {"not", [](const Value& v) { return v.IsObject(); }, L"a schema"},
    {"minLength", IsCount, L"a non-negative integer"},
    {"maxLength", IsCount, L"a non-negative integer"},
    {"minItems", IsCount, L"a non-negative integer"},
    {"maxItems", IsCount, L"a non-negative integer"},
    {"minProperties", IsCount, L"a non-negative integer"},
    {"maxProperties", IsCount, L"a non-negative integer"},
    {"minimum", IsNumber, L"a number"},
    {"maximum", IsNumber, L"a number"},
    {"multipleOf", [](const Value& v) { return v.IsNumber() && v.GetDouble() > 0; },
     L"a number greater than 0"},
    {"exclusiveMinimum", IsBoolean, L"a boolean"},
    {"exclusiveMaximum", IsBoolean, L"a boolean"},
    {"uniqueItems", IsBoolean, L"a boolean"},
    {"pattern", [](const Value& v) { return v.IsString(); }, L"a regular expression"},
    {"$ref", [](const Value& v) { return v.IsString(); }, L"a string"},
};

Status CheckPattern(const Value& pattern, const std::string& at) {
  // Bounded first: the engine copies out every repetition, so a short pattern such as
  // "((a{999}){999}){999}" would be built with a billion states.
  if (PatternStateBound(Text(pattern)) > kMaxPatternStates) {
    return Failure(L"The schema's pattern at '{}' expands to more than {} states.", Shown(at),
                   kMaxPatternStates);
  }
  const rapidjson::internal::GenericRegex<rapidjson::UTF8<>> regex(pattern.GetString());
  if (!regex.IsValid()) {
    return Failure(
        L"The schema's pattern at '{}' is not a regular expression the validator can compile.",
        Shown(at));
  }
  return {};
}

// RapidJSON builds a schema from every object of the document, data in "enum" included, and
// compiles each one's patterns, so the objects and the states of all patterns are counted there.
Status CheckSize(const Value& schema) {
  size_t count = 0;
  size_t states = 0;
  std::vector<std::pair<const Value*, std::string>> pending{{&schema, "#"}};
  while (!pending.empty()) {
    auto [value, at] = std::move(pending.back());
    pending.pop_back();
    // Children are pushed last first, so objects are counted in document order.
    if (value->IsObject()) {
      if (++count > kMaxSchemaObjects) {
        return Failure(L"The schema holds more than {} objects; the limit is exceeded at '{}'.",
                       kMaxSchemaObjects, Shown(at));
      }
      for (const char* keyword : {"pattern", "patternProperties"}) {
        const Value* found = JsonMember(*value, keyword);
        if (found != nullptr && found->IsString()) states += PatternStateBound(Text(*found));
        if (found != nullptr && found->IsObject()) {
          for (const auto& entry : found->GetObject())
            states += PatternStateBound(Text(entry.name));
        }
        if (states > kMaxSchemaPatternStates) {
          return Failure(
              L"The schema's patterns expand to more than {} states; the limit is exceeded at "
              L"'{}'.",
              kMaxSchemaPatternStates, Shown(at + "/" + keyword));
        }
      }
      for (auto member = value->MemberEnd(); member != value->MemberBegin();) {
        --member;
        pending.emplace_back(&member->value, at + "/" + Token(Text(member->name)));
      }
    } else if (value->IsArray()) {
      for (SizeType i = value->Size(); i > 0; --i) {
        pending.emplace_back(&(*value)[i - 1], fmt::format("{}/{}", at, i - 1));
      }
    }
  }
  return {};
}

}  // namespace

size_t PatternStateBound(std::string_view pattern) {
  static constexpr size_t kCap = size_t{1} << 40;
  const auto add = [](size_t a, size_t b) { return std::min(a + b, kCap); };
  const auto times = [](size_t a, size_t b) { return b != 0 && a > kCap / b ? kCap : a * b; };
  struct Open {
    size_t total;
    size_t last;
  };
  std::vector<Open> groups;
  size_t total = 0;  // states so far in the innermost open group
  size_t last = 0;   // states of the last atom, which a quantifier copies
  for (size_t i = 0; i < pattern.size(); ++i) {
    switch (pattern[i]) {
      case '(':
        groups.push_back({total, last});
        total = last = 0;
        break;
      case ')':
        if (groups.empty()) break;  // the engine refuses it
        last = total;
        total = add(groups.back().total, total);
        groups.pop_back();
        break;
      case '|': total = add(total, 1), last = 0; break;
      case '*':
      case '?': total = add(total, 1); break;
      case '+': total = add(total, add(last, 1)); break;
      case '{': {
        size_t j = i + 1, low = 0, high = 0;
        bool comma = false, bounded = false;
        for (; j < pattern.size() && pattern[j] >= '0' && pattern[j] <= '9'; ++j) {
          low = std::min(add(times(low, 10), size_t(pattern[j] - '0')), kCap);
        }
        if (j < pattern.size() && pattern[j] == ',') {
          comma = true;
          for (++j; j < pattern.size() && pattern[j] >= '0' && pattern[j] <= '9'; ++j) {
            high = add(times(high, 10), size_t(pattern[j] - '0'));
            bounded = true;
          }
        }
        if (j >= pattern.size() || pattern[j] != '}') {
          total = add(total, 1), last = 1;
          break;
        }
        i = j;
        const size_t copies = std::max<size_t>(1, comma ? (bounded ? high : add(low, 1)) : low);
        total = add(total, add(times(last, copies - 1), copies));
        last = times(last, copies);
        break;
      }
      case '[':
        while (i + 1 < pattern.size() && pattern[i + 1] != ']') i += pattern[i + 1] == '\\' ? 2 : 1;
        ++i;
        total = add(total, 1), last = 1;
        break;
      case '\\': ++i; [[fallthrough]];
      default: total = add(total, 1), last = 1; break;
    }
  }
  for (; !groups.empty(); groups.pop_back()) total = add(groups.back().total, total);
  return total;
}

Status CheckSchemaShape(const rapidjson::Value& schema) {
  if (Status size = CheckSize(schema); !size) return size;
  // Every position the validator reads a schema from, found without recursion; a "$ref" target
  // is one too, and the set keeps a schema reached twice from being checked twice.
  std::vector<std::pair<const Value*, std::string>> pending{{&schema, "#"}};
  std::unordered_set<const Value*> seen{&schema};
  const auto visit = [&](const Value& value, std::string at) {
    if (seen.insert(&value).second) pending.emplace_back(&value, std::move(at));
  };
  while (!pending.empty()) {
    auto [value, at] = std::move(pending.back());
    pending.pop_back();
    if (!value->IsObject()) {
      return Failure(L"The schema at '{}' must be a JSON object.", Shown(at));
    }
    for (const auto& member : value->GetObject()) {
      const std::string_view keyword = Text(member.name);
      const Value& content = member.value;
      const std::string where = at + "/" + Token(keyword);
      const auto expected =
          std::find_if(std::begin(kExpectations), std::end(kExpectations),
                       [&](const Expectation& e) { return keyword == e.keyword; });
      if (expected == std::end(kExpectations)) continue;
      if (!expected->holds(content)) {
        return Failure(L"The schema's '{}' at '{}' must be {}.", FromUtf8(keyword), Shown(where),
                       expected->wording);
      }
      if (keyword == "pattern") {
        if (Status pattern = CheckPattern(content, where); !pattern) return pattern;
      } else if (keyword == "$ref") {
        const rapidjson::Pointer pointer(content.GetString(), content.GetStringLength());
        const Value* target =
            Text(content).starts_with('#') && pointer.IsValid() ? pointer.Get(schema) : nullptr;
        if (target != nullptr) visit(*target, std::string(Text(content)));
      } else if (content.IsObject() && keyword != "required" && keyword != "enum") {
        const bool map = keyword == "properties" || keyword == "patternProperties" ||
                         keyword == "definitions" || keyword == "dependencies";
        if (!map) {
          visit(content, where);
          continue;
        }
        for (const auto& entry : content.GetObject()) {
          const std::string entryAt = where + "/" + Token(Text(entry.name));
          if (keyword == "patternProperties") {
            if (Status pattern = CheckPattern(entry.name, entryAt); !pattern) {
              return pattern;
            }
          }
          if (keyword != "dependencies" || entry.value.IsObject()) visit(entry.value, entryAt);
        }
      } else if (content.IsArray() && (keyword == "items" || keyword == "allOf" ||
                                       keyword == "anyOf" || keyword == "oneOf")) {
        for (SizeType i = 0; i < content.Size(); ++i) {
          visit(content[i], fmt::format("{}/{}", where, i));
        }
      }
    }
  }
  return {};
}

}  // namespace cmr

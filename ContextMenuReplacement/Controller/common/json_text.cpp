#include "common/json_text.h"

#include <fmt/xchar.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/pointer.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

namespace cmr {

namespace {

using rapidjson::SizeType;

// Stands between RapidJSON's reader and the document it builds, refusing what the reader lets
// through. It also knows where in the document the reader is, so a refusal names the key.
class CheckedHandler {
 public:
  CheckedHandler(rapidjson::Document& target, const rapidjson::MemoryStream& stream)
      : target_(target), stream_(stream) {}

  bool Null() { return Scalar() && target_.Null(); }
  bool Bool(bool value) { return Scalar() && target_.Bool(value); }
  bool Int(int value) { return Scalar() && target_.Int(value); }
  bool Uint(unsigned value) { return Scalar() && target_.Uint(value); }
  bool Int64(int64_t value) { return Scalar() && target_.Int64(value); }
  bool Uint64(uint64_t value) { return Scalar() && target_.Uint64(value); }
  bool Double(double value) { return Scalar() && target_.Double(value); }
  bool RawNumber(const char* text, SizeType length, bool copy) {
    return Scalar() && target_.RawNumber(text, length, copy);
  }
  bool String(const char* text, SizeType length, bool copy) {
    return Acceptable(text, length, false) && Scalar() && target_.String(text, length, copy);
  }
  bool Key(const char* text, SizeType length, bool copy) {
    Frame& frame = frames_.back();
    frame.key.assign(text, length);
    frame.awaitingKey = false;
    keys_.push_back({frame.key, stream_.Tell()});
    return Acceptable(text, length, true) && target_.Key(text, length, copy);
  }
  bool StartObject() { return Open(true) && target_.StartObject(); }
  bool StartArray() { return Open(false) && target_.StartArray(); }
  bool EndObject(SizeType count) {
    if (!UniqueKeys()) return false;
    Close();
    return target_.EndObject(count);
  }
  bool EndArray(SizeType count) {
    Close();
    return target_.EndArray(count);
  }

  // Set when this handler stopped the reader.
  [[nodiscard]] bool refused() const noexcept { return !refusal_.empty(); }
  [[nodiscard]] const std::wstring& refusal() const noexcept { return refusal_; }
  [[nodiscard]] size_t refusalOffset() const noexcept { return refusalOffset_; }

  // Where the reader stands, as the messages name it: the path of the value last begun, or
  // with `pending` of the value being read before the reader has handed it over.
  [[nodiscard]] std::wstring Where(bool pending) const {
    std::wstring path;
    for (size_t i = 0; i < frames_.size(); ++i) {
      const Frame& frame = frames_[i];
      const bool innermost = i + 1 == frames_.size();
      if (frame.object) {
        if (frame.awaitingKey) return Described(path, true);
        if (!path.empty()) path += L'.';
        path += FromUtf8(frame.key);
      } else if (innermost && pending) {
        path += fmt::format(L"[{}]", frame.count);
      } else if (frame.count > 0) {
        path += fmt::format(L"[{}]", frame.count - 1);
      }
    }
    return Described(path, false);
  }

 private:
  struct Frame {
    bool object = false;
    bool awaitingKey = true;  // objects: the next string read is a key
    size_t count = 0;         // arrays: values started so far
    std::string key;          // objects: the key of the value being read
    size_t firstKey = 0;      // objects: where this object's keys start in keys_
  };
  struct KeySeen {
    std::string name;
    size_t offset;
  };

  static std::wstring Described(const std::wstring& path, bool key) {
    const std::wstring shown = EscapeControlCharacters(path);
    if (key) return shown.empty() ? L"a key of the document" : fmt::format(L"a key of '{}'", shown);
    return shown.empty() ? L"the document" : fmt::format(L"'{}'", shown);
  }

  // A value begins at the current position.
  bool Scalar() {
    if (frames_.empty()) return true;
    Frame& frame = frames_.back();
    if (frame.object) {
      frame.awaitingKey = true;
    } else {
      ++frame.count;
    }
    return true;
  }

  bool Open(bool object) {
    if (!frames_.empty() && !frames_.back().object) ++frames_.back().count;
    if (frames_.size() >= kMaxJsonDepth) {
      return Refuse(fmt::format(L"The value at {} is nested deeper than {} levels.", Where(false),
                                kMaxJsonDepth));
    }
    Frame frame;
    frame.object = object;
    frame.firstKey = keys_.size();
    frames_.push_back(std::move(frame));
    return true;
  }

  // The enclosing object's next string is a key again only once this value is closed, so the
  // path of everything inside it names its key.
  void Close() {
    frames_.pop_back();
    if (!frames_.empty() && frames_.back().object) frames_.back().awaitingKey = true;
  }

  // A key has been recorded in its object when this runs; a value has not yet been begun.
  bool Acceptable(const char* text, SizeType length, bool key) {
    const auto subject = [&] {
      return key ? std::wstring(L"The key ") + Where(false)
                 : std::wstring(L"The text at ") + Where(true);
    };
    if (std::memchr(text, 0, length) != nullptr) {
      return Refuse(subject() + L" contains a NUL character (\\u0000).");
    }
    // A surrogate code point encoded on its own (ED A0..ED BF) is what "\uDC00" without a
    // leading high surrogate decodes to; raw ones are already refused as invalid UTF-8.
    for (SizeType i = 0; i + 1 < length; ++i) {
      if (static_cast<unsigned char>(text[i]) == 0xED &&
          static_cast<unsigned char>(text[i + 1]) >= 0xA0) {
        return Refuse(subject() + L" contains an unpaired surrogate.");
      }
    }
    return true;
  }

  // Sorting costs n log n whatever the keys, where a hash set could be driven to n squared.
  bool UniqueKeys() {
    Frame& frame = frames_.back();
    const auto first = keys_.begin() + static_cast<std::ptrdiff_t>(frame.firstKey);
    std::sort(first, keys_.end(), [](const KeySeen& a, const KeySeen& b) {
      return a.name != b.name ? a.name < b.name : a.offset < b.offset;
    });
    const auto repeated = std::adjacent_find(
        first, keys_.end(), [](const KeySeen& a, const KeySeen& b) { return a.name == b.name; });
    if (repeated != keys_.end()) {
      frame.key = repeated->name;
      frame.awaitingKey = false;
      const size_t offset = (repeated + 1)->offset;
      Refuse(fmt::format(L"The key {} appears more than once.", Where(false)));
      refusalOffset_ = offset;
      return false;
    }
    keys_.erase(first, keys_.end());
    return true;
  }

  bool Refuse(std::wstring message) {
    refusal_ = std::move(message);
    refusalOffset_ = stream_.Tell();
    return false;
  }

  rapidjson::Document& target_;
  const rapidjson::MemoryStream& stream_;
  std::vector<Frame> frames_;
  std::vector<KeySeen> keys_;  // keys of the open objects, innermost last
  std::wstring refusal_;
  size_t refusalOffset_ = 0;
};

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

template <unsigned kFlags>
struct Generator {
  rapidjson::MemoryStream& stream;
  rapidjson::ParseResult result{};

  bool operator()(rapidjson::Document& target) {
    CheckedHandler checked(target, stream);
    rapidjson::Reader reader;
    result = reader.Parse<kFlags>(stream, checked);
    if (checked.refused()) {
      refusal = checked.refusal();
      refusalOffset = checked.refusalOffset();
    } else if (result.IsError()) {
      where = checked.Where(true);
    }
    return !result.IsError();
  }

  std::wstring refusal{};
  size_t refusalOffset = 0;
  std::wstring where{};
};

template <unsigned kFlags>
bool ParseWith(std::string_view text, size_t skipped, rapidjson::Document& document,
               JsonParseFailure& failure) {
  rapidjson::MemoryStream stream(text.data(), text.size());
  Generator<kFlags> generator{stream};
  document.Populate(generator);
  if (!generator.result.IsError()) return true;
  if (!generator.refusal.empty()) {
    failure.offset = generator.refusalOffset + skipped;
    failure.description = generator.refusal;
    return false;
  }
  failure.offset = generator.result.Offset() + skipped;
  failure.description = FromUtf8(rapidjson::GetParseError_En(generator.result.Code()));
  if (generator.result.Code() == rapidjson::kParseErrorStringInvalidEncoding) {
    failure.description = fmt::format(L"Invalid UTF-8 in the text at {}.", generator.where);
  }
  return false;
}

}  // namespace

bool ParseJsonText(std::string_view text, bool allowComments, rapidjson::Document& document,
                   JsonParseFailure& failure) {
  size_t skipped = 0;
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    skipped = kByteOrderMark.size();
    text.remove_prefix(skipped);
  }
  // RapidJSON's memory stream reads a NUL byte as the end of the text, so without this check
  // whatever follows one would be ignored and a leading one would read as an empty document.
  if (const size_t nul = text.find('\0'); nul != std::string_view::npos) {
    failure.offset = nul + skipped;
    failure.description = L"The document contains a NUL byte.";
    return false;
  }
  // Iterative: the reader keeps its own stack on the heap, so the depth bound above is the
  // only limit and no text can exhaust the thread's stack.
  constexpr unsigned kStrict =
      rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
  constexpr unsigned kCommented = kStrict | rapidjson::kParseCommentsFlag;
  return allowComments ? ParseWith<kCommented>(text, skipped, document, failure)
                       : ParseWith<kStrict>(text, skipped, document, failure);
}

std::wstring JsonQuote(std::wstring_view text) {
  std::wstring out;
  out.reserve(text.size() + 2);
  out += L'"';
  for (const wchar_t c : text) {
    switch (c) {
      case L'"': out += L"\\\""; break;
      case L'\\': out += L"\\\\"; break;
      case L'\n': out += L"\\n"; break;
      case L'\r': out += L"\\r"; break;
      case L'\t': out += L"\\t"; break;
      case L'\b': out += L"\\b"; break;
      case L'\f': out += L"\\f"; break;
      default:
        if (c < 0x20) {
          out += fmt::format(L"\\u{:04x}", static_cast<unsigned>(c));
        } else {
          out += c;
        }
    }
  }
  out += L'"';
  return out;
}

std::wstring JsonStringArray(const MessageList& items) {
  std::wstring out = L"[";
  for (size_t i = 0; i < items.size(); ++i) {
    if (i != 0) out += L',';
    out += JsonQuote(items[i]);
  }
  out += L']';
  return out;
}

std::wstring EscapeControlCharacters(std::wstring_view text) {
  std::wstring out;
  out.reserve(text.size());
  for (const wchar_t c : text) {
    if (c < 0x20 || c == 0x7F || (c >= 0x80 && c < 0xA0)) {
      out += fmt::format(L"\\u{:04x}", static_cast<unsigned>(c));
    } else {
      out += c;
    }
  }
  return out;
}

const rapidjson::Value* JsonMember(const rapidjson::Value& object, const char* key) {
  if (!object.IsObject()) return nullptr;
  const auto found = object.FindMember(key);
  return found == object.MemberEnd() ? nullptr : &found->value;
}

bool JsonStringIs(const rapidjson::Value* value, std::string_view text) {
  return value != nullptr && value->IsString() &&
         std::string_view(value->GetString(), value->GetStringLength()) == text;
}

std::string_view JsonMemberText(const rapidjson::Value& object, const char* key) {
  const rapidjson::Value* value = JsonMember(object, key);
  return value != nullptr && value->IsString()
             ? std::string_view(value->GetString(), value->GetStringLength())
             : std::string_view();
}

std::wstring JsonWide(const rapidjson::Value& value) {
  if (!value.IsString()) return {};
  return FromUtf8(std::string_view(value.GetString(), value.GetStringLength()));
}

std::wstring SchemaReferenceProblem(const rapidjson::Value& schema) {
  // Every object of the schema with its location, found without recursion.
  struct Node {
    const rapidjson::Value* value;
    std::string location;
  };
  std::vector<Node> objects;
  std::vector<Node> pending{{&schema, "#"}};
  while (!pending.empty()) {
    Node node = std::move(pending.back());
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
  // Resolve each reference.
  std::vector<const rapidjson::Value*> targets(objects.size(), nullptr);
  for (size_t i = 0; i < objects.size(); ++i) {
    const rapidjson::Value* ref = JsonMember(*objects[i].value, "$ref");
    if (ref == nullptr) continue;
    const std::wstring where = EscapeControlCharacters(FromUtf8(objects[i].location));
    if (!ref->IsString()) {
      return fmt::format(L"The schema's '$ref' at '{}' is not a string.", where);
    }
    const std::string_view text(ref->GetString(), ref->GetStringLength());
    const rapidjson::Pointer pointer(text.data(), text.size());
    const rapidjson::Value* target =
        !text.empty() && text[0] == '#' && pointer.IsValid() ? pointer.Get(schema) : nullptr;
    if (target == nullptr || !target->IsObject()) {
      return fmt::format(L"The schema's '$ref' '{}' at '{}' does not name a schema within it.",
                         EscapeControlCharacters(FromUtf8(text)), where);
    }
    targets[i] = target;
  }
  // A reference, or an allOf/anyOf/oneOf/not, applies another schema to the same value; a
  // cycle of those would never reach a deeper value and validation would never end.
  std::vector<std::pair<const rapidjson::Value*, size_t>> order;
  order.reserve(objects.size());
  for (size_t i = 0; i < objects.size(); ++i) order.emplace_back(objects[i].value, i);
  std::sort(order.begin(), order.end());
  auto indexOf = [&](const rapidjson::Value* value) {
    const auto found =
        std::lower_bound(order.begin(), order.end(), std::make_pair(value, size_t{0}));
    return found->second;
  };
  auto sameValueSchemas = [&](size_t i) {
    std::vector<size_t> next;
    if (targets[i] != nullptr) next.push_back(indexOf(targets[i]));
    for (const char* key : {"allOf", "anyOf", "oneOf"}) {
      const rapidjson::Value* list = JsonMember(*objects[i].value, key);
      if (list == nullptr || !list->IsArray()) continue;
      for (const auto& item : list->GetArray()) {
        if (item.IsObject()) next.push_back(indexOf(&item));
      }
    }
    if (const rapidjson::Value* negated = JsonMember(*objects[i].value, "not");
        negated != nullptr && negated->IsObject()) {
      next.push_back(indexOf(negated));
    }
    return next;
  };
  enum : char { unseen, open, done };
  std::vector<char> state(objects.size(), unseen);
  std::vector<size_t> finished;  // every schema after the ones it applies to the same value
  for (size_t start = 0; start < objects.size(); ++start) {
    if (state[start] != unseen) continue;
    std::vector<std::pair<size_t, std::vector<size_t>>> path;
    path.emplace_back(start, sameValueSchemas(start));
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
        return fmt::format(
            L"The schema at '{}' refers back to itself without descending into "
            L"the document.",
            EscapeControlCharacters(FromUtf8(objects[child].location)));
      }
      if (state[child] == unseen) {
        state[child] = open;
        path.emplace_back(child, sameValueSchemas(child));
      }
    }
  }
  // RapidJSON follows a reference to a reference by recursion, looking each one up linearly:
  // a chain of some thousands of links takes seconds and a longer one overflows the stack.
  // Without cycles every chain ends, so its length is counted once per reference.
  std::vector<size_t> links(objects.size(), 0);
  const auto next = [&](size_t i) {
    return targets[i] != nullptr && JsonMember(*targets[i], "$ref") != nullptr ? indexOf(targets[i])
                                                                               : objects.size();
  };
  for (size_t start = 0; start < objects.size(); ++start) {
    if (targets[start] == nullptr || links[start] != 0) continue;
    std::vector<size_t> chain;
    size_t i = start;
    for (; i < objects.size() && links[i] == 0; i = next(i)) chain.push_back(i);
    size_t length = i < objects.size() ? links[i] : 0;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) links[*it] = ++length;
    if (length > kMaxSchemaReferenceChain) {
      size_t cut = start;
      for (size_t hop = 0; hop < kMaxSchemaReferenceChain; ++hop) cut = next(cut);
      return fmt::format(
          L"The schema's chain of '$ref' references from '{}' exceeds {} links at '{}'.",
          EscapeControlCharacters(FromUtf8(objects[start].location)), kMaxSchemaReferenceChain,
          EscapeControlCharacters(FromUtf8(objects[cut].location)));
    }
  }
  size_t references = 0;
  for (size_t i = 0; i < objects.size(); ++i) {
    if (targets[i] != nullptr && ++references > kMaxSchemaReferences) {
      return fmt::format(
          L"The schema holds more than {} '$ref' references; the limit is exceeded at '{}'.",
          kMaxSchemaReferences, EscapeControlCharacters(FromUtf8(objects[i].location)));
    }
  }
  // The validator runs every schema that applies to a value side by side, so a few levels of
  // "allOf" naming one schema twice multiply into millions of them for a single value.
  std::vector<size_t> applied(objects.size(), 0);
  for (const size_t node : finished) {
    size_t total = 1;
    for (const size_t child : sameValueSchemas(node)) {
      total = std::min(total + applied[child], kMaxSchemasPerValue + 1);
    }
    applied[node] = total;
    if (total > kMaxSchemasPerValue) {
      return fmt::format(L"The schema at '{}' applies more than {} schemas to one value.",
                         EscapeControlCharacters(FromUtf8(objects[node].location)),
                         kMaxSchemasPerValue);
    }
  }
  return {};
}

}  // namespace cmr

#include "common/json_text.h"

#include <fmt/xchar.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
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

}  // namespace cmr

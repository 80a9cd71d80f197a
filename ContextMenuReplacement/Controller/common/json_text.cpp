#include "common/json_text.h"

#include <fmt/xchar.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>

namespace cmr {

bool ParseJsonText(std::string_view text, bool allowComments, rapidjson::Document& document,
                   JsonParseFailure& failure) {
  constexpr unsigned kStrict = rapidjson::kParseDefaultFlags;
  constexpr unsigned kCommented = rapidjson::kParseDefaultFlags | rapidjson::kParseCommentsFlag;
  rapidjson::MemoryStream stream(text.data(), text.size());
  if (allowComments) {
    document.ParseStream<kCommented>(stream);
  } else {
    document.ParseStream<kStrict>(stream);
  }
  if (!document.HasParseError()) return true;
  failure.offset = document.GetErrorOffset();
  failure.description = FromUtf8(rapidjson::GetParseError_En(document.GetParseError()));
  return false;
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

}  // namespace cmr

#include "common/json_members.h"

namespace cmr {

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

const rapidjson::Value* JsonArrayMember(const rapidjson::Value& object, const char* key) {
  const rapidjson::Value* value = JsonMember(object, key);
  return value != nullptr && value->IsArray() ? value : nullptr;
}

rapidjson::Value* JsonMutableMember(rapidjson::Value& object, const char* key) {
  if (!object.IsObject()) return nullptr;
  const auto found = object.FindMember(key);
  return found == object.MemberEnd() ? nullptr : &found->value;
}

}  // namespace cmr

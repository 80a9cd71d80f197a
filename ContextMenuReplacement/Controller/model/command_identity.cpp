#include "model/command_identity.h"

#include <algorithm>

#include "common/json_members.h"

namespace cmr {
namespace {

constexpr size_t kBracedGuidLength = 38;

bool IsNameCharacter(wchar_t c) noexcept {
  return (c >= L'a' && c <= L'z') || (c >= L'0' && c <= L'9') || c == L'-' || c == L'.' ||
         c == L'_';
}

// At least one character, all of them name characters.
bool IsName(std::wstring_view text) noexcept {
  return !text.empty() && std::all_of(text.begin(), text.end(), IsNameCharacter);
}

bool StartsWith(std::wstring_view text, std::wstring_view prefix) noexcept {
  return text.substr(0, prefix.size()) == prefix;
}

}  // namespace

bool IsBracedLowercaseGuid(std::wstring_view text) noexcept {
  if (text.size() != kBracedGuidLength || text.front() != L'{' || text.back() != L'}') {
    return false;
  }
  for (size_t position = 1; position <= 36; ++position) {
    const wchar_t c = text[position];
    if (position == 9 || position == 14 || position == 19 || position == 24) {
      if (c != L'-') return false;
    } else if (!((c >= L'0' && c <= L'9') || (c >= L'a' && c <= L'f'))) {
      return false;
    }
  }
  return true;
}

IdentityKind ClassifyIdentity(std::wstring_view text) noexcept {
  // The forms are tried in a fixed order and a form that fails falls through to the next, so
  // a text is never half-accepted by an earlier prefix.
  constexpr std::wstring_view kWindows = L"windows:";
  constexpr std::wstring_view kProduct = L"product:";
  constexpr std::wstring_view kUser = L"user:";
  constexpr std::wstring_view kEphemeral = L"ephemeral:";
  constexpr std::wstring_view kCom = L"com:";
  constexpr std::wstring_view kCanonical = L":canonical:";
  constexpr std::wstring_view kCatalog = L":catalog:";

  if (StartsWith(text, kWindows) && IsName(text.substr(kWindows.size()))) {
    return IdentityKind::windows;
  }
  if (StartsWith(text, kProduct) && IsName(text.substr(kProduct.size()))) {
    return IdentityKind::product;
  }
  if (StartsWith(text, kUser) && IsBracedLowercaseGuid(text.substr(kUser.size()))) {
    return IdentityKind::user;
  }
  if (StartsWith(text, kEphemeral) && text.size() > kEphemeral.size()) {
    return IdentityKind::ephemeral;
  }
  if (StartsWith(text, kCom) &&
      IsBracedLowercaseGuid(text.substr(kCom.size(), kBracedGuidLength))) {
    const std::wstring_view rest = text.substr(kCom.size() + kBracedGuidLength);
    if (StartsWith(rest, kCanonical) && IsBracedLowercaseGuid(rest.substr(kCanonical.size()))) {
      return IdentityKind::comCanonical;
    }
    if (StartsWith(rest, kCatalog) && IsName(rest.substr(kCatalog.size()))) {
      return IdentityKind::comCatalog;
    }
  }
  return IdentityKind::invalid;
}

bool IsProviderWideComIdentity(std::wstring_view text) noexcept {
  return text.size() == 4 + kBracedGuidLength && StartsWith(text, L"com:") &&
         IsBracedLowercaseGuid(text.substr(4));
}

bool IsPersistable(IdentityKind kind) noexcept {
  return kind != IdentityKind::invalid && kind != IdentityKind::ephemeral &&
         static_cast<uint32_t>(kind) <= static_cast<uint32_t>(IdentityKind::user);
}

std::wstring MakeReferenceKey(const rapidjson::Value& object) {
  if (!object.IsObject()) return {};
  const auto provider = object.FindMember("provider_id");
  if (provider != object.MemberEnd() && provider->value.IsString()) {
    return L"provider:" + JsonWide(provider->value);
  }
  const auto command = object.FindMember("command_id");
  if (command != object.MemberEnd() && command->value.IsString()) {
    return L"command:" + JsonWide(command->value);
  }
  return {};
}

void SortIdentities(std::vector<std::wstring>& identities) {
  // std::wstring compares wchar_t values, which on Windows are the UTF-16 code units.
  std::sort(identities.begin(), identities.end());
}

}  // namespace cmr

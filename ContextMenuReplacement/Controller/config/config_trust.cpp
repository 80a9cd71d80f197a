#include "config/config_trust.h"

#include <aclapi.h>
#include <fmt/xchar.h>
#include <sddl.h>

#include <string>
#include <utility>
#include <vector>

#include "common/system_error.h"
#include "common/unique_handle.h"

namespace cmr {

namespace {

// The SID of the account this process runs as, copied out of the token; empty on failure.
std::vector<unsigned char> CurrentUserSid() {
  HANDLE rawToken = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &rawToken)) return {};
  UniqueHandle token(rawToken);
  DWORD size = 0;
  ::GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
  if (size == 0) return {};
  std::vector<unsigned char> buffer(size);
  if (!::GetTokenInformation(token.get(), TokenUser, buffer.data(), size, &size)) return {};
  const PSID sid = reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid;
  if (!::IsValidSid(sid)) return {};
  const DWORD length = ::GetLengthSid(sid);
  std::vector<unsigned char> copy(length);
  if (!::CopySid(length, copy.data(), sid)) return {};
  return copy;
}

bool MayWrite(PSID sid, PSID user, PSID owner) {
  if (::EqualSid(sid, user)) return true;
  if (::IsWellKnownSid(sid, WinLocalSystemSid)) return true;
  if (::IsWellKnownSid(sid, WinBuiltinAdministratorsSid)) return true;
  if (::IsWellKnownSid(sid, WinCreatorOwnerSid)) return true;
  // The owner may rewrite the ACL anyway, so its entry adds nothing, but only when the owner is
  // this user: a file owned by someone else is theirs to change.
  return owner && ::IsValidSid(owner) && ::EqualSid(owner, user) && ::EqualSid(sid, owner);
}

std::wstring AccountName(PSID sid) {
  wchar_t name[256] = {};
  wchar_t domain[256] = {};
  DWORD nameLength = 256;
  DWORD domainLength = 256;
  SID_NAME_USE use{};
  if (!::LookupAccountSidW(nullptr, sid, name, &nameLength, domain, &domainLength, &use)) {
    return DescribeSid(sid);
  }
  return fmt::format(L"{}\\{} ({})", domain, name, DescribeSid(sid));
}

}  // namespace

std::wstring DescribeSid(PSID sid) {
  wchar_t* text = nullptr;
  if (!sid || !::ConvertSidToStringSidW(sid, &text)) return L"<unprintable SID>";
  UniqueLocalMemory owner(text);
  return text;
}

Status ConfigurationFile::Open(const std::wstring& path) {
  path_ = path;
  handle_.reset(::CreateFileW(path.c_str(), GENERIC_READ | READ_CONTROL,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (handle_) return {};
  const DWORD error = ::GetLastError();
  return Status::Failure(
      fmt::format(L"Could not read the security descriptor of '{}': {}", path, ErrorText(error)),
      error);
}

bool ConfigurationFile::CheckTrust(MessageList& errors) const {
  PSID owner = nullptr;
  PACL dacl = nullptr;
  PSECURITY_DESCRIPTOR rawDescriptor = nullptr;
  const DWORD status = ::GetSecurityInfo(handle_.get(), SE_FILE_OBJECT,
                                         OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                                         &owner, nullptr, &dacl, nullptr, &rawDescriptor);
  if (status != ERROR_SUCCESS) {
    errors.push_back(fmt::format(L"Could not read the security descriptor of '{}': {}", path_,
                                 ErrorText(status)));
    return false;
  }
  UniqueLocalMemory descriptor(rawDescriptor);
  if (!dacl) return CheckDaclTrust(nullptr, nullptr, owner, errors);
  std::vector<unsigned char> user = CurrentUserSid();
  if (user.empty()) {
    errors.push_back(L"Could not determine the current user's SID.");
    return false;
  }
  return CheckDaclTrust(dacl, user.data(), owner, errors);
}

bool ConfigurationFile::Read(std::string& bytes) const {
  LARGE_INTEGER size{};
  if (!::GetFileSizeEx(handle_.get(), &size) || size.QuadPart > 0x7FFFFFFF) return false;
  std::string content(static_cast<size_t>(size.QuadPart), '\0');
  size_t done = 0;
  while (done < content.size()) {
    DWORD read = 0;
    if (!::ReadFile(handle_.get(), content.data() + done, static_cast<DWORD>(content.size() - done),
                    &read, nullptr) ||
        read == 0) {
      return false;
    }
    done += read;
  }
  bytes = std::move(content);
  return true;
}

bool CheckConfigurationTrust(const std::wstring& path, MessageList& errors) {
  ConfigurationFile file;
  if (Status opened = file.Open(path); !opened) {
    errors.push_back(opened.message());
    return false;
  }
  return file.CheckTrust(errors);
}

bool CheckDaclTrust(const ACL* dacl, PSID user, PSID owner, MessageList& errors) {
  if (!dacl) {
    errors.push_back(L"The file has a NULL DACL, which grants full control to everyone.");
    return false;
  }
  bool accepted = true;
  // The owner may rewrite the entries whenever it likes, so entries that look right today
  // prove nothing about a file someone else owns.
  if (owner && ::IsValidSid(owner) && !(user && ::EqualSid(owner, user)) &&
      !::IsWellKnownSid(owner, WinLocalSystemSid) &&
      !::IsWellKnownSid(owner, WinBuiltinAdministratorsSid)) {
    errors.push_back(fmt::format(
        L"{} owns this file and can change its permissions at any time. Because it names "
        L"executables that run on every right-click, only you, SYSTEM or Administrators may own "
        L"it.",
        AccountName(owner)));
    accepted = false;
  }
  for (DWORD index = 0; index < dacl->AceCount; ++index) {
    void* entry = nullptr;
    if (!::GetAce(const_cast<ACL*>(dacl), index, &entry)) continue;
    const auto* header = static_cast<const ACE_HEADER*>(entry);
    // Only plain allow entries grant anything this check cares about; deny entries can only
    // narrow access, and object or callback entries do not apply to a plain file.
    if (header->AceType != ACCESS_ALLOWED_ACE_TYPE) continue;
    const auto* allowed = static_cast<const ACCESS_ALLOWED_ACE*>(entry);
    if ((allowed->Mask & kTrustWriteMask) == 0) continue;
    const PSID sid = const_cast<DWORD*>(&allowed->SidStart);
    if (!::IsValidSid(sid)) continue;
    if (MayWrite(sid, user, owner)) continue;
    errors.push_back(fmt::format(
        L"{} can modify this file. Because it names executables that run on every right-click, "
        L"only you, SYSTEM and Administrators may have write access.",
        AccountName(sid)));
    accepted = false;
  }
  return accepted;
}

}  // namespace cmr

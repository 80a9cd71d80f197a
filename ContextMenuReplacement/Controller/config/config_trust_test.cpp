#include "config/config_trust.h"

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include <vector>

#include "common/file_io.h"
#include "common/unique_handle.h"

namespace cmr {
namespace {

const std::wstring kTail =
    L" can modify this file. Because it names executables that run on every right-click, only "
    L"you, SYSTEM and Administrators may have write access.";

std::wstring TrustFile(const wchar_t* name) {
  wchar_t temp[MAX_PATH + 1] = {};
  ::GetTempPathW(MAX_PATH, temp);
  const std::wstring folder = JoinPath(temp, L"cmr-trust");
  (void)EnsureDirectories(folder);
  const std::wstring path = JoinPath(folder, name);
  (void)DeleteFileIfPresent(path);
  MessageList ignored;
  EXPECT_TRUE(WriteWholeFile(path, "{}", ignored));
  return path;
}

std::wstring CurrentUserSidText() {
  HANDLE raw = nullptr;
  EXPECT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &raw));
  UniqueHandle token(raw);
  std::vector<unsigned char> buffer(512);
  DWORD size = 0;
  EXPECT_TRUE(::GetTokenInformation(token.get(), TokenUser, buffer.data(),
                                    static_cast<DWORD>(buffer.size()), &size));
  return DescribeSid(reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid);
}

// A security descriptor from SDDL, owning its memory.
struct Descriptor {
  UniqueLocalMemory memory;
  PACL dacl = nullptr;
  PSID owner = nullptr;
};

Descriptor FromSddl(const std::wstring& sddl) {
  Descriptor d;
  PSECURITY_DESCRIPTOR raw = nullptr;
  EXPECT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1,
                                                                     &raw, nullptr));
  d.memory.reset(raw);
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  EXPECT_TRUE(::GetSecurityDescriptorDacl(raw, &present, &d.dacl, &defaulted));
  EXPECT_TRUE(::GetSecurityDescriptorOwner(raw, &d.owner, &defaulted));
  return d;
}

// Replaces the file's DACL. Wine keeps a file's DACL in its Unix mode bits, so what is read back
// is what the file system really allows.
void SetDacl(const std::wstring& path, const std::wstring& sddl) {
  Descriptor d = FromSddl(sddl);
  ASSERT_EQ(::SetNamedSecurityInfoW(const_cast<wchar_t*>(path.c_str()), SE_FILE_OBJECT,
                                    DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                    nullptr, nullptr, d.dacl, nullptr),
            static_cast<DWORD>(ERROR_SUCCESS));
}

TEST(ConfigTrust, FileWritableByEveryoneIsRefusedAndReadOnlyIsAccepted) {
  const std::wstring path = TrustFile(L"menu.json");
  MessageList errors;
  EXPECT_TRUE(CheckConfigurationTrust(path, errors));
  EXPECT_TRUE(errors.empty());

  SetDacl(path, L"D:(A;;FA;;;" + CurrentUserSidText() + L")(A;;FA;;;WD)");
  EXPECT_FALSE(CheckConfigurationTrust(path, errors));
  ASSERT_EQ(errors.size(), 1u);
  // Wine resolves Everyone with an empty domain.
  EXPECT_EQ(errors[0], L"\\Everyone (S-1-1-0)" + kTail);

  errors.clear();
  SetDacl(path, L"D:(A;;FA;;;" + CurrentUserSidText() + L")(A;;FRFX;;;WD)");
  EXPECT_TRUE(CheckConfigurationTrust(path, errors));
  EXPECT_TRUE(errors.empty());
}

TEST(ConfigTrust, MissingFileReportsTheDescriptorFailure) {
  MessageList errors;
  EXPECT_FALSE(CheckConfigurationTrust(L"C:\\no\\such\\menu.json", errors));
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(
      errors[0].rfind(L"Could not read the security descriptor of 'C:\\no\\such\\menu.json': ", 0),
      0u);
}

TEST(ConfigTrust, EachOffendingEntryIsNamedOnceAndOthersAreIgnored) {
  const std::wstring user = CurrentUserSidText();
  Descriptor owner = FromSddl(L"O:" + user + L"D:");
  // Allowed: user, SYSTEM, Administrators, CREATOR OWNER, read-only Everyone, a deny entry,
  // FILE_DELETE_CHILD alone. Offenders: Everyone with write data, Users with append data.
  Descriptor d = FromSddl(L"O:" + user + L"D:(A;;FA;;;" + user +
                          L")(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;CO)(A;;FR;;;WD)(D;;FA;;;WD)"
                          L"(A;;0x40;;;AN)(A;;0x2;;;WD)(A;;0x4;;;BU)");
  MessageList errors;
  EXPECT_FALSE(CheckDaclTrust(d.dacl, owner.owner, d.owner, errors));
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_EQ(errors[0], L"\\Everyone (S-1-1-0)" + kTail);
  EXPECT_EQ(errors[1], L"BUILTIN\\Users (S-1-5-32-545)" + kTail);
}

TEST(ConfigTrust, OwnerCountsOnlyWhenItIsTheCurrentUser) {
  const std::wstring user = CurrentUserSidText();
  Descriptor me = FromSddl(L"O:" + user + L"D:");
  MessageList errors;
  Descriptor owned = FromSddl(L"O:" + user + L"D:(A;;FA;;;" + user + L")");
  EXPECT_TRUE(CheckDaclTrust(owned.dacl, me.owner, owned.owner, errors));
  Descriptor foreign = FromSddl(L"O:S-1-5-21-1-2-3-4444D:(A;;FA;;;S-1-5-21-1-2-3-4444)");
  EXPECT_FALSE(CheckDaclTrust(foreign.dacl, me.owner, foreign.owner, errors));
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_NE(errors[0].find(L"S-1-5-21-1-2-3-4444"), std::wstring::npos);
}

TEST(ConfigTrust, NullDaclIsRefusedAndEmptyDaclAccepted) {
  Descriptor me = FromSddl(L"O:" + CurrentUserSidText() + L"D:");
  MessageList errors;
  EXPECT_FALSE(CheckDaclTrust(nullptr, me.owner, me.owner, errors));
  EXPECT_EQ(errors,
            MessageList{L"The file has a NULL DACL, which grants full control to everyone."});
  errors.clear();
  EXPECT_TRUE(CheckDaclTrust(me.dacl, me.owner, me.owner, errors));
  EXPECT_TRUE(errors.empty());
}

TEST(ConfigTrust, DescribeSid) {
  Descriptor d = FromSddl(L"O:WDD:");
  EXPECT_EQ(DescribeSid(d.owner), L"S-1-1-0");
  EXPECT_EQ(DescribeSid(nullptr), L"<unprintable SID>");
}

}  // namespace
}  // namespace cmr

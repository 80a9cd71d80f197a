#include "config/config_trust.h"

#include <gtest/gtest.h>
#include <sddl.h>

#include <vector>

#include "common/unique_handle.h"

// A file's real DACL under Wine (refusal with the account named, read-only Everyone accepted) is
// checked end to end by `config check`; these rows need descriptors no file system would keep.

namespace cmr {
namespace {

const std::wstring kTail =
    L" can modify this file. Because it names executables that run on every right-click, only "
    L"you, SYSTEM and Administrators may have write access.";
const std::wstring kOwnerTail =
    L" owns this file and can change its permissions at any time. Because it names executables "
    L"that run on every right-click, only you, SYSTEM or Administrators may own it.";

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
  BOOL present = FALSE, defaulted = FALSE;
  EXPECT_TRUE(::GetSecurityDescriptorDacl(raw, &present, &d.dacl, &defaulted));
  EXPECT_TRUE(::GetSecurityDescriptorOwner(raw, &d.owner, &defaulted));
  return d;
}

TEST(ConfigTrust, EachOffendingEntryIsNamedOnceAndOthersAreIgnored) {
  const std::wstring user = CurrentUserSidText();
  const std::wstring foreign = L"S-1-5-21-1-2-3-4444";
  Descriptor me = FromSddl(L"O:" + user + L"D:");
  const struct {
    const char* name;
    std::wstring sddl;
    MessageList errors;  // a foreign account only has to be named
  } rows[] = {
      {"allowed entries and two offenders",
       L"O:" + user + L"D:(A;;FA;;;" + user +
           L")(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;CO)(A;;FR;;;WD)(D;;FA;;;WD)(A;;0x40;;;AN)"
           L"(A;;0x2;;;WD)(A;;0x4;;;BU)",
       {L"\\Everyone (S-1-1-0)" + kTail, L"BUILTIN\\Users (S-1-5-32-545)" + kTail}},
      {"an empty DACL", L"O:" + user + L"D:", {}},
      {"owned by you", L"O:" + user + L"D:(A;;FA;;;" + user + L")", {}},
      {"owned by SYSTEM", L"O:SYD:(A;;FA;;;" + user + L")", {}},
      // Any other owner can rewrite the entries at will.
      {"owned by another account",
       L"O:" + foreign + L"D:(A;;FA;;;" + user + L")",
       {foreign + kOwnerTail}},
      {"owned and writable by another account",
       L"O:" + foreign + L"D:(A;;FA;;;" + foreign + L")",
       {foreign + kOwnerTail, foreign}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Descriptor d = FromSddl(row.sddl);
    MessageList errors;
    EXPECT_EQ(CheckDaclTrust(d.dacl, me.owner, d.owner, errors), row.errors.empty());
    ASSERT_EQ(errors.size(), row.errors.size());
    for (size_t i = 0; i < errors.size(); ++i) {
      if (row.errors[i] == foreign) {  // named as the lookup finds it
        EXPECT_NE(errors[i].find(foreign), std::wstring::npos);
      } else {
        EXPECT_EQ(errors[i], row.errors[i]);
      }
    }
  }
  MessageList errors;
  EXPECT_FALSE(CheckDaclTrust(nullptr, me.owner, me.owner, errors));
  EXPECT_EQ(errors,
            MessageList{L"The file has a NULL DACL, which grants full control to everyone."});
  errors.clear();
  EXPECT_FALSE(CheckConfigurationTrust(L"C:\\no\\such\\menu.json", errors));
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_TRUE(errors[0].starts_with(
      L"Could not read the security descriptor of 'C:\\no\\such\\menu.json': "));
}

}  // namespace
}  // namespace cmr

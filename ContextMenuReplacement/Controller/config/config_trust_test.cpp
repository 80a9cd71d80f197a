#include "config/config_trust.h"

#include <fmt/xchar.h>
#include <gtest/gtest.h>
#include <sddl.h>

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

// The user is a parameter of the walk, so any account can play the current user; accounts no
// lookup resolves are named by their SID.
TEST(ConfigTrust, EachOffendingEntryIsNamedOnceAndOthersAreIgnored) {
  const std::wstring user = L"S-1-5-21-1-2-3-1000", foreign = L"S-1-5-21-1-2-3-4444";
  Descriptor me = FromSddl(L"O:" + user + L"D:");
  const struct {
    const char* name;
    std::wstring sddl;
    MessageList errors;
  } rows[] = {
      {"owned by you: allowed entries and two offenders",
       L"O:" + user + L"D:(A;;FA;;;" + user +
           L")(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;CO)(A;;FR;;;WD)(D;;FA;;;WD)(A;;0x40;;;AN)"
           L"(A;;0x2;;;WD)(A;;0x4;;;BU)",
       {L"\\Everyone (S-1-1-0)" + kTail, L"BUILTIN\\Users (S-1-5-32-545)" + kTail}},
      {"an empty DACL", L"O:" + user + L"D:", {}},
      {"no DACL",
       L"O:" + user,
       {L"The file has a NULL DACL, which grants full control to everyone."}},
      {"owned by SYSTEM", L"O:SYD:(A;;FA;;;" + user + L")", {}},
      {"owned by Administrators", L"O:BAD:(A;;FA;;;" + user + L")", {}},
      {"owned by another account", L"O:" + foreign + L"D:", {foreign + kOwnerTail}},
      {"CREATOR OWNER alone", L"O:" + user + L"D:(A;;FA;;;CO)", {}},
      {"a deny entry alone", L"O:" + user + L"D:(D;;FA;;;WD)", {}},
      // Any other owner can rewrite the entries at will, and its own entry counts against it.
      {"owned and writable by another account",
       L"O:" + foreign + L"D:(A;;FA;;;" + foreign + L")",
       {foreign + kOwnerTail, foreign + kTail}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Descriptor d = FromSddl(row.sddl);
    MessageList errors;
    EXPECT_EQ(CheckDaclTrust(d.dacl, me.owner, d.owner, errors), row.errors.empty());
    EXPECT_EQ(errors, row.errors);
  }
  // Each write bit alone makes an entry an offender; no other bit does.
  for (DWORD bit = 1; bit != 0; bit <<= 1) {
    Descriptor d = FromSddl(L"O:" + user + fmt::format(L"D:(A;;0x{:X};;;WD)", bit));
    MessageList errors;
    EXPECT_EQ(CheckDaclTrust(d.dacl, me.owner, d.owner, errors), (bit & 0x500D0116) == 0) << bit;
  }
  MessageList errors;
  EXPECT_FALSE(CheckConfigurationTrust(L"C:\\no\\such\\menu.json", errors));
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_TRUE(errors[0].starts_with(
      L"Could not read the security descriptor of 'C:\\no\\such\\menu.json': "));
}

}  // namespace
}  // namespace cmr

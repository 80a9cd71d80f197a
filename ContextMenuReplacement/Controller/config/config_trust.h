#pragma once
// The trust check on files that name executables: the Hook starts the programs a menu
// configuration names from inside Explorer, so a file another account can modify would let that
// account run programs as this user.

#include <string>

#include "common/status.h"
#include "common/text.h"
#include "common/win32.h"

namespace cmr {

// Access bits that let an entry change the file's content, its ACL or its owner, or delete it.
// FILE_DELETE_CHILD alone does not count: it concerns a folder's children, not this file.
inline constexpr DWORD kTrustWriteMask = FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_EA |
                                         FILE_WRITE_ATTRIBUTES | DELETE | WRITE_DAC | WRITE_OWNER |
                                         GENERIC_ALL | GENERIC_WRITE;

// True when only the current user, SYSTEM, Administrators, CREATOR OWNER (and the owner, when
// that is the current user) may write the file. Every access-allowed entry granting write access
// to anyone else adds one message naming the account; a failure to read the descriptor or the
// user's SID adds one message. Deny and object entries are ignored. Nothing is ever changed.
[[nodiscard]] bool CheckConfigurationTrust(const std::wstring& path, MessageList& errors);

// The walk over one DACL, apart from reading it from a file: a NULL DACL is refused with its own
// message; every access-allowed entry granting write access to an account other than `user`,
// SYSTEM, Administrators, CREATOR OWNER (and `owner`, when that is `user`) adds one message.
[[nodiscard]] bool CheckDaclTrust(const ACL* dacl, PSID user, PSID owner, MessageList& errors);

// "S-1-..." for a SID, or "<unprintable SID>".
[[nodiscard]] std::wstring DescribeSid(PSID sid);

}  // namespace cmr

#pragma once
// The trust check on files that name executables: the Hook starts the programs a menu
// configuration names from inside Explorer, so a file another account can modify would let that
// account run programs as this user.

#include <string>

#include "common/status.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "common/win32.h"

namespace cmr {

// Access bits that let an entry change the file's content, its ACL or its owner, or delete it.
// FILE_DELETE_CHILD alone does not count: it concerns a folder's children, not this file.
inline constexpr DWORD kTrustWriteMask = FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_EA |
                                         FILE_WRITE_ATTRIBUTES | DELETE | WRITE_DAC | WRITE_OWNER |
                                         GENERIC_ALL | GENERIC_WRITE;

// A configuration file held open, so that the file whose owner and DACL are checked is the
// file whose bytes are read: a second open by path could reach a file swapped in between.
class ConfigurationFile {
 public:
  // Opens the file for reading (sharing read and write, as editors expect). A failure says that
  // the descriptor could not be read, since that is the first thing the open serves, and carries
  // the Win32 code so that a caller can tell a missing file apart.
  [[nodiscard]] Status Open(const std::wstring& path);
  // The trust check below, on the owner and DACL of the open handle.
  [[nodiscard]] bool CheckTrust(MessageList& errors) const;
  // The whole content through the open handle; false when it cannot be read.
  [[nodiscard]] bool Read(std::string& bytes) const;

 private:
  std::wstring path_;
  UniqueHandle handle_;
};

// True when only the current user, SYSTEM, Administrators, CREATOR OWNER (and the owner, when
// that is the current user) may write the file, and the file is owned by one of the first three.
// Every access-allowed entry granting write access to anyone else adds one message naming the
// account; a failure to read the descriptor or the user's SID adds one message. Deny and object
// entries are ignored. Nothing is ever changed.
[[nodiscard]] bool CheckConfigurationTrust(const std::wstring& path, MessageList& errors);

// The walk over one DACL, apart from reading it from a file: a NULL DACL is refused with its own
// message; an `owner` other than `user`, SYSTEM or Administrators adds one message (it can
// rewrite the entries at any time); every access-allowed entry granting write access to an
// account other than `user`, SYSTEM, Administrators, CREATOR OWNER (and `owner`, when that is
// `user`) adds one message.
[[nodiscard]] bool CheckDaclTrust(const ACL* dacl, PSID user, PSID owner, MessageList& errors);

// "S-1-..." for a SID, or "<unprintable SID>".
[[nodiscard]] std::wstring DescribeSid(PSID sid);

}  // namespace cmr

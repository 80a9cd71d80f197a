#pragma once
// Whether the product's installer is at work, so that a repair run at logon or by the Settings
// application does not publish or inject underneath it.
//
// The installer records itself under HKLM\SOFTWARE\Orvanta\Brenlowpack\InstallerMaintenance
// (64-bit view): `Process` REG_DWORD, its process id, and `Created` REG_QWORD, that process's
// creation FILETIME. The recorded id alone proves nothing: ids are reused, and an installer that
// crashed never clears its record. Only a process with that id, that creation time, still
// running, counts; one that cannot be looked at because access is denied counts too, since an
// elevated installer is exactly what a normal user may not open.

#include <cstdint>
#include <optional>

#include "common/win32.h"

namespace cmr {

// Windows' "another installation is already in progress": the caller retries later.
inline constexpr int kInstallerBusyExitCode = 1618;

inline constexpr wchar_t kInstallerMaintenanceKeyPath[] =
    L"SOFTWARE\\Orvanta\\Brenlowpack\\InstallerMaintenance";

// What the platform said about the recorded installer, gathered in the order the decision uses.
struct InstallerFacts {
  uint32_t processId = 0;            // `Process`; 0 when missing, of another type, or 0
  std::optional<uint64_t> recorded;  // `Created`
  DWORD openError = ERROR_SUCCESS;   // opening the process for limited query and synchronise
  std::optional<uint64_t> created;   // its creation time; empty when the times could not be read
  bool stillRunning = false;         // a zero-timeout wait on it timed out
};

// True when the installer is to be taken as at work.
[[nodiscard]] bool InstallerBusy(const InstallerFacts& facts) noexcept;

// Reads the record and looks at the process it names; stops gathering at the first fact that
// already decides.
[[nodiscard]] InstallerFacts ReadInstallerFacts();

}  // namespace cmr

#pragma once
// The boot-time restore: a one-shot RunOnce entry that starts the controller with
// `boot-restore` at the next logon, so that the user's own menu preference comes back even when
// the product never gets to run its disable (an unclean shutdown, files removed while the
// feature was on). The same restore routine serves disable, uninstall and a failed enable.
//
// A preference that the user changed after we wrote ours is theirs: the restore then stands
// down and touches nothing in the override key.
//
// RunOnce entry: HKCU\Software\Microsoft\Windows\CurrentVersion\RunOnce, REG_SZ value
// BnlxContextMenuReplacementRestore = "\"<own module path>\" boot-restore".

#include <string>
#include <string_view>

#include "common/status.h"

namespace cmr {

inline constexpr wchar_t kRunOnceKeyPath[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
inline constexpr wchar_t kBootRestoreValueName[] = L"BnlxContextMenuReplacementRestore";

// The module file name the running process reports (at most 260 characters).
[[nodiscard]] std::wstring OwnExecutablePath();
// The RunOnce command line for an executable path.
[[nodiscard]] std::wstring BootRestoreCommand(std::wstring_view executablePath);

// Failure: "Could not open RunOnce: <code>" or "Could not write the RunOnce entry: <code>".
[[nodiscard]] Status arm_boot_restore();
// A RunOnce key that cannot be opened, or a value already gone, is success (nothing to disarm).
// Failure: "Could not remove the RunOnce entry: <code>".
[[nodiscard]] Status disarm_boot_restore();
// The RunOnce key opens for reading and holds a value of that name, of any type.
[[nodiscard]] bool is_boot_restore_armed();

struct RestoreOutcome {
  bool hadApplied = false;       // the state recorded an applied suppression
  bool restored = false;         // the prior preference was put back
  bool leftAlone = false;        // the override no longer held what we wrote
  bool nothingRecorded = false;  // no applied suppression was recorded
  std::wstring message;          // one sentence for the user and the log
};

// Puts back the recorded prior preference when the override still holds exactly what we
// wrote, stands down otherwise. Whenever an applied suppression was recorded, the state then
// loses SuppressionApplied and the boot restore is disarmed, even when putting the prior back
// failed: a restore is attempted once, never retried at every logon. The message is logged with
// the "[state]" tag, at WARNING when putting the prior back failed.
[[nodiscard]] RestoreOutcome restore();

// The `boot-restore` verb: re-arms while the feature is still wanted and installed, restores
// otherwise, prints one line, and always returns 0 so the logon runner sees no failure.
int RunBootRestoreVerb();

}  // namespace cmr

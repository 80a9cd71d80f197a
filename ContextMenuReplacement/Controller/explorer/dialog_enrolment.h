#pragma once
// `inject-dialog <hwnd>`: enrols the Hook into the one program that owns a File Open or Save
// dialog, so that the shell view inside the dialog gets the replacement menu too. The tray
// program calls it with the handle of a dialog that has just appeared. The Hook then runs inside
// an arbitrary program, so the verb is hedged by rules, applied in this order; the first that
// refuses prints its line and ends the verb, with exit code 0 (a refusal is a normal outcome):
//   the feature is on in Settings        "inject-dialog: Ravelin is not enabled in Settings;
//                                         nothing to do."
//   the window is a dialog ("#32770")    "inject-dialog: window 0x<hwnd> is not a dialog."
//   the owner is not Explorer            "inject-dialog: pid <pid> is Explorer, which 'enable'
//                                         already covers."
//   the dialog settings admit it         "inject-dialog: <program> (pid <pid>) is not eligible
//                                         under the '<dialogs.mode>' dialog setting."
//   no crash record excludes it          "inject-dialog: <program> crashed while the hook was
//                                         loaded in it and stays off until it is allowed again
//                                         in Settings."
//   same integrity level as ours         "... runs at a different integrity level ..."
//   a native x64 process                 "... is not the controller's architecture, or could not
//                                         be opened; ..."
//   a shell view appears within 20 x 50 ms  "inject-dialog: window 0x<hwnd> in <program> has no
//                                         Shell view; not a file dialog."
// The wait for the shell view begins with the daily log line "[dialogs] Waiting for the shell
// view of window 0x<hwnd> in <program> (pid <pid>)". A handle text that names no window exits 1,
// and so does a Hook that cannot be loaded or enrolled. An enrolled dialog is written to the dialog
// enrolment log (explorer/dialog_enrolment_log.h); the exit code is then the post-enrolment step's.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/status.h"
#include "common/win32.h"
#include "config/menu_configuration.h"

namespace cmr {

// The shell view of a file dialog may be created a moment after the dialog itself.
inline constexpr int kShellViewAttempts = 20;
inline constexpr DWORD kShellViewIntervalMs = 50;

// What is known about the dialog window and the process that owns it.
struct DialogCandidate {
  uint64_t window = 0;
  std::wstring className;
  DWORD processId = 0;
  std::wstring program;             // image file name, lower-cased; empty when unreadable
  bool sameIntegrity = false;       // at the controller's integrity level
  bool nativeArchitecture = false;  // opened, and a native x64 process
};

// What the user and the watchdog decided.
struct DialogRules {
  bool enabled = false;  // the feature is on in Settings
  DialogSettings settings;
  std::vector<std::wstring> crashExcluded;  // program names, compared exactly
};

// The dialog settings alone: "off" admits nothing, "allowlist" only the allow list, any other
// mode everything but the deny list; names compare case-insensitively. An empty name and
// "explorer.exe" are never admitted.
[[nodiscard]] bool IsEligibleProgram(std::wstring_view program, const DialogSettings& settings);

// Fails with the line of the first rule that refuses the dialog.
[[nodiscard]] Status DialogRefusal(const DialogCandidate& dialog, const DialogRules& rules);

// An unsigned number, hexadecimal after "0x" (or "0X"), decimal otherwise; nothing else.
[[nodiscard]] std::optional<uint64_t> ParseWindowHandle(std::wstring_view text);

// The verb; `handleText` is its one argument. Returns the exit code.
[[nodiscard]] int RunInjectDialogVerb(const std::wstring& handleText);

}  // namespace cmr

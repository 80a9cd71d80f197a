#pragma once
// `dialog-crashes`: the programs whose file dialogs are no longer enrolled because one of them
// crashed with the hook loaded.
//
// Record format (written by the tray program, read here and by the dialog enrolment):
//   HKCU\Software\Orvanta\Brenlowpack\Ravelin\DialogCrashExclusions
//     <program file name>   REG_QWORD   FILETIME (UTC) of the crash
//   One value per program, named by the image's file name as the tray program saw it
//   ("notepad.exe"); names are compared exactly. A value of another type or size still
//   excludes its program, but its time reads as unknown.
//
// Console texts:
//   (no records)  "No program is excluded from file-dialog enrolment after a crash."
//   (records)     "Programs excluded from file-dialog enrolment after a crash:"
//                 "  '<program>' crashed at <YYYY-MM-DD HH:MM:SS> UTC." per program, or
//                 "  '<program>' crashed at an unrecorded time."
//   --json        [{"program":"notepad.exe","crashedAt":"2026-11-20T10:15:00Z"}], crashedAt
//                 null when unknown; one line.
//   clear         "Program '<name>' may enrol its file dialogs again; its crash record was
//                 removed." (exit 0) or "No crash record exists for program '<name>'." (1)
//   bad arguments "Unknown dialog-crashes argument '<arg>'.", "dialog-crashes clear needs a
//                 program name.", "Unexpected argument '<arg>'." (all exit 1)

#include <string>
#include <vector>

namespace cmr {

inline constexpr wchar_t kDialogCrashExclusionsKey[] =
    L"Software\\Orvanta\\Brenlowpack\\Ravelin\\DialogCrashExclusions";

// The programs whose records exclude them, names as stored; empty when the key is missing or
// cannot be read (the enrolment then has nothing to exclude).
[[nodiscard]] std::vector<std::wstring> DialogCrashExcludedPrograms();

// `args` are the arguments after the verb. Returns the exit code.
[[nodiscard]] int RunDialogCrashesVerb(const std::vector<std::wstring>& args);

}  // namespace cmr

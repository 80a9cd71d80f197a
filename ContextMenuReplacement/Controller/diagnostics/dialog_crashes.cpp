#include "diagnostics/dialog_crashes.h"

#include <optional>

#include "common/console.h"
#include "common/json_writer.h"
#include "common/system_error.h"
#include "diagnostics/record_registry.h"

namespace cmr {
namespace {

int ListCrashes(bool json) {
  Result<UniqueHkey> key = OpenRecordKey(kDialogCrashExclusionsKey);
  if (!key) {
    PrintLine(L"%s", key.message());
    return 1;
  }
  Result<std::vector<RegistryValueEntry>> values =
      ListValues(key.value().get(), kDialogCrashExclusionsKey);
  if (!values) {
    PrintLine(L"%s", values.message());
    return 1;
  }
  if (json) {
    std::wstring line = L"[";
    for (const RegistryValueEntry& entry : values.value()) {
      const std::optional<uint64_t> time = QwordOf(entry);
      if (line.size() > 1) line += L',';
      line += L"{\"program\":" + JsonQuote(entry.name) + L",\"crashedAt\":" +
              (time ? FileTimeJson(*time) : std::wstring(L"null")) + L"}";
    }
    PrintJsonLine(line + L"]");
    return 0;
  }
  if (values->empty()) {
    PrintLine(L"No program is excluded from file-dialog enrolment after a crash.");
    return 0;
  }
  PrintLine(L"Programs excluded from file-dialog enrolment after a crash:");
  for (const RegistryValueEntry& entry : values.value()) {
    if (const std::optional<uint64_t> time = QwordOf(entry)) {
      PrintLine(L"  '%s' crashed at %s UTC.", entry.name, FileTimeText(*time));
    } else {
      PrintLine(L"  '%s' crashed at an unrecorded time.", entry.name);
    }
  }
  return 0;
}

int ClearCrash(const std::wstring& program) {
  Result<UniqueHkey> key = OpenRecordKey(kDialogCrashExclusionsKey, true);
  if (!key) {
    PrintLine(L"%s", key.message());
    return 1;
  }
  // Value names compare case-insensitively in the registry; the record is matched exactly so
  // that "Notepad.exe" never clears "notepad.exe".
  Result<std::vector<RegistryValueEntry>> values =
      ListValues(key.value().get(), kDialogCrashExclusionsKey);
  bool present = false;
  if (values) {
    for (const RegistryValueEntry& entry : values.value()) present |= entry.name == program;
  }
  if (!present) {
    PrintLine(L"No crash record exists for program '%s'.", program);
    return 1;
  }
  if (const LSTATUS result = ::RegDeleteValueW(key.value().get(), program.c_str());
      result != ERROR_SUCCESS) {
    PrintLine(
        L"%s",
        Win32Message(fmt::format(L"Could not remove the crash record of '{}'", program), result));
    return 1;
  }
  PrintLine(L"Program '%s' may enrol its file dialogs again; its crash record was removed.",
            program);
  return 0;
}

}  // namespace

std::vector<std::wstring> DialogCrashExcludedPrograms() {
  std::vector<std::wstring> programs;
  Result<UniqueHkey> key = OpenRecordKey(kDialogCrashExclusionsKey);
  if (!key) return programs;
  Result<std::vector<RegistryValueEntry>> values =
      ListValues(key.value().get(), kDialogCrashExclusionsKey);
  if (!values) return programs;
  for (RegistryValueEntry& entry : values.value()) programs.push_back(std::move(entry.name));
  return programs;
}

int RunDialogCrashesVerb(const std::vector<std::wstring>& args) {
  return RunRecordVerb({L"dialog-crashes", L"dialog-crashes clear needs a program name.", true,
                        ListCrashes, ClearCrash},
                       args);
}

}  // namespace cmr

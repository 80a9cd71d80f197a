#include "explorer/dialog_enrolment.h"

#include <fmt/xchar.h>

#include <algorithm>

#include "common/console.h"
#include "common/data_paths.h"
#include "common/log.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "config/settings_file.h"
#include "diagnostics/dialog_crashes.h"
#include "explorer/dialog_enrolment_log.h"
#include "explorer/explorer_discovery.h"
#include "explorer/hook_builds.h"
#include "explorer/hook_loader.h"
#include "explorer/post_enrolment.h"

namespace cmr {

namespace {

constexpr wchar_t kDialogClass[] = L"#32770";
constexpr wchar_t kShellViewClass[] = L"SHELLDLL_DefView";

bool Contains(const std::vector<std::wstring>& names, std::wstring_view program) {
  return std::any_of(names.begin(), names.end(),
                     [&](const std::wstring& name) { return EqualsIgnoreCase(name, program); });
}

HWND WindowOf(uint64_t handle) {
  return reinterpret_cast<HWND>(static_cast<uintptr_t>(handle));
}

unsigned long long HandleText(uint64_t window) {
  return static_cast<unsigned long long>(window);
}

// The mandatory label's RID (low, medium, high, system...); absent when the token is unreadable,
// which is what a process above our level looks like from here.
std::optional<DWORD> IntegrityLevel(HANDLE process) {
  HANDLE rawToken = nullptr;
  if (!::OpenProcessToken(process, TOKEN_QUERY, &rawToken)) return std::nullopt;
  UniqueHandle token(rawToken);
  DWORD size = 0;
  ::GetTokenInformation(token.get(), TokenIntegrityLevel, nullptr, 0, &size);
  std::vector<unsigned char> buffer(size);
  if (size == 0 ||
      !::GetTokenInformation(token.get(), TokenIntegrityLevel, buffer.data(), size, &size)) {
    return std::nullopt;
  }
  const PSID sid = reinterpret_cast<const TOKEN_MANDATORY_LABEL*>(buffer.data())->Label.Sid;
  const UCHAR count = *::GetSidSubAuthorityCount(sid);
  if (count == 0) return std::nullopt;
  return *::GetSidSubAuthority(sid, count - 1);
}

// AMD64 and not emulated. IsWow64Process2 reports the process's own machine only for an
// emulated process (the native machine otherwise); systems without it only answer whether the
// process runs under WOW64.
bool IsNativeX64(HANDLE process) {
  using IsWow64Process2Function = BOOL(WINAPI*)(HANDLE, USHORT*, USHORT*);
  const auto isWow64Process2 =
      reinterpret_cast<IsWow64Process2Function>(reinterpret_cast<void (*)()>(
          ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "IsWow64Process2")));
  if (isWow64Process2) {
    USHORT processMachine = IMAGE_FILE_MACHINE_UNKNOWN;
    USHORT nativeMachine = IMAGE_FILE_MACHINE_UNKNOWN;
    if (!isWow64Process2(process, &processMachine, &nativeMachine)) return false;
    const USHORT machine =
        processMachine == IMAGE_FILE_MACHINE_UNKNOWN ? nativeMachine : processMachine;
    return machine == IMAGE_FILE_MACHINE_AMD64;
  }
  BOOL wow64 = FALSE;
  return ::IsWow64Process(process, &wow64) && !wow64;
}

DialogCandidate Inspect(HWND window, DWORD processId) {
  DialogCandidate dialog;
  dialog.window = reinterpret_cast<uintptr_t>(window);
  wchar_t className[256] = {};
  dialog.className.assign(className, std::max(::GetClassNameW(window, className, 256), 0));
  dialog.processId = processId;
  dialog.program = LowerCaseImageName(processId);
  UniqueHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
  // A process that cannot be opened is left to the architecture rule, whose line says so.
  dialog.sameIntegrity =
      !process || IntegrityLevel(process.get()) == IntegrityLevel(::GetCurrentProcess());
  dialog.nativeArchitecture = process && IsNativeX64(process.get());
  return dialog;
}

DialogRules ReadRules() {
  // The settings file is read whole, by the reader of the other settings; only the on/off
  // state and the dialog settings matter here, so errors in other keys do not.
  MenuConfiguration configuration;
  MessageList errors;
  MessageList warnings;
  (void)ReadSettingsFile(SettingsFileWithShippedFallback(), configuration, errors, warnings);
  return {configuration.enabled, std::move(configuration.dialogs), DialogCrashExcludedPrograms()};
}

BOOL CALLBACK FindShellView(HWND child, LPARAM found) {
  wchar_t className[64] = {};
  const int length = ::GetClassNameW(child, className, 64);
  if (std::wstring_view(className, std::max(length, 0)) != kShellViewClass) return TRUE;
  *reinterpret_cast<bool*>(found) = true;
  return FALSE;
}

// A file dialog nests its shell view several windows deep, so every descendant is searched.
bool WaitForShellView(HWND dialog) {
  for (int attempt = 0; attempt < kShellViewAttempts; ++attempt) {
    if (!::IsWindow(dialog)) return false;
    bool found = false;
    ::EnumChildWindows(dialog, FindShellView, reinterpret_cast<LPARAM>(&found));
    if (found) return true;
    ::Sleep(kShellViewIntervalMs);
  }
  return false;
}

int Enrol(const DialogCandidate& dialog, DWORD threadId) {
  const Result<HookModule> hook = LoadHook();
  // The bootstrap goes to the dialog itself: the thread may own no other window.
  const Status enrolled =
      hook ? EnrolThread(hook.value(), threadId, WindowOf(dialog.window)) : hook.status();
  if (!enrolled) {
    if (!hook) {
      WriteLogLine(LogLevel::error, L"[dialogs] " + hook.message());
    } else {
      PrintLine(L"%s", enrolled.message());
    }
    PrintLine(L"inject-dialog: could not load the hook into %s (pid %lu).", dialog.program,
              dialog.processId);
    return 1;
  }
  if (EarlierBuildHookLoaded(dialog.processId)) {
    PrintLine(
        L"inject-dialog: %s (pid %lu) still holds the hook from an earlier build; this build "
        L"stays inert there until the application restarts.",
        dialog.program, dialog.processId);
  }
  if (Status recorded = RecordDialogEnrolment(dialog.processId, dialog.window, dialog.program);
      !recorded) {
    WriteLogLine(LogLevel::warning, L"[dialogs] " + recorded.message());
  }
  WriteLogLine(LogLevel::info, fmt::format(L"[dialogs] Enrolled {} (pid {}), window 0x{:X}",
                                           dialog.program, dialog.processId, dialog.window));
  return PostEnrolment(dialog.processId);
}

}  // namespace

bool IsEligibleProgram(std::wstring_view program, const DialogSettings& settings) {
  if (program.empty() || EqualsIgnoreCase(program, L"explorer.exe")) return false;
  if (settings.mode == L"off") return false;
  if (settings.mode == L"allowlist") return Contains(settings.allowedProcessNames, program);
  return !Contains(settings.excludedProcessNames, program);
}

Status DialogRefusal(const DialogCandidate& dialog, const DialogRules& rules) {
  if (!rules.enabled) {
    return Status::Failure(L"inject-dialog: Ravelin is not enabled in Settings; nothing to do.");
  }
  if (dialog.className != kDialogClass) {
    return Status::Failure(FormatConsoleText(L"inject-dialog: window 0x%llX is not a dialog.",
                                             HandleText(dialog.window)));
  }
  if (IsExplorerImageName(dialog.program)) {
    return Status::Failure(FormatConsoleText(
        L"inject-dialog: pid %lu is Explorer, which 'enable' already covers.", dialog.processId));
  }
  if (!IsEligibleProgram(dialog.program, rules.settings)) {
    return Status::Failure(FormatConsoleText(
        L"inject-dialog: %s (pid %lu) is not eligible under the '%s' dialog setting.",
        dialog.program, dialog.processId, rules.settings.mode));
  }
  if (std::find(rules.crashExcluded.begin(), rules.crashExcluded.end(), dialog.program) !=
      rules.crashExcluded.end()) {
    return Status::Failure(FormatConsoleText(
        L"inject-dialog: %s crashed while the hook was loaded in it and stays off until it is "
        L"allowed again in Settings.",
        dialog.program));
  }
  if (!dialog.sameIntegrity) {
    return Status::Failure(FormatConsoleText(
        L"inject-dialog: %s (pid %lu) runs at a different integrity level (as administrator, or "
        L"sandboxed); its dialogs keep Windows' menu.",
        dialog.program, dialog.processId));
  }
  if (!dialog.nativeArchitecture) {
    return Status::Failure(FormatConsoleText(
        L"inject-dialog: %s (pid %lu) is not the controller's architecture, or could not be "
        L"opened; its dialogs keep Windows' menu.",
        dialog.program, dialog.processId));
  }
  return {};
}

std::optional<uint64_t> ParseWindowHandle(std::wstring_view text) {
  int base = 10;
  if (text.size() > 2 && text[0] == L'0' && (text[1] == L'x' || text[1] == L'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  if (text.empty()) return std::nullopt;
  uint64_t value = 0;
  for (const wchar_t c : text) {
    int digit = -1;
    if (c >= L'0' && c <= L'9') digit = c - L'0';
    if (base == 16 && c >= L'a' && c <= L'f') digit = c - L'a' + 10;
    if (base == 16 && c >= L'A' && c <= L'F') digit = c - L'A' + 10;
    if (digit < 0) return std::nullopt;
    if (value > (UINT64_MAX - digit) / base) return std::nullopt;
    value = value * base + digit;
  }
  return value;
}

int RunInjectDialogVerb(const std::wstring& handleText) {
  const std::optional<uint64_t> handle = ParseWindowHandle(handleText);
  if (!handle || *handle == 0 || !::IsWindow(WindowOf(*handle))) {
    PrintLine(L"inject-dialog: '%s' is not a window.", handleText);
    return 1;
  }
  const HWND window = WindowOf(*handle);
  DWORD processId = 0;
  const DWORD threadId = ::GetWindowThreadProcessId(window, &processId);
  const DialogCandidate dialog = Inspect(window, processId);
  if (const Status refusal = DialogRefusal(dialog, ReadRules()); !refusal) {
    PrintLine(L"%s", refusal.message());
    return 0;
  }
  WriteLogLine(LogLevel::info,
               fmt::format(L"[dialogs] Waiting for the shell view of window 0x{:X} in {} (pid {})",
                           dialog.window, dialog.program, dialog.processId));
  if (!WaitForShellView(window)) {
    PrintLine(L"inject-dialog: window 0x%llX in %s has no Shell view; not a file dialog.",
              HandleText(dialog.window), dialog.program);
    return 0;
  }
  return Enrol(dialog, threadId);
}

}  // namespace cmr

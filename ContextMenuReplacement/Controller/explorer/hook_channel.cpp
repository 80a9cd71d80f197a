#include "explorer/hook_channel.h"

#include <tlhelp32.h>

#include <set>
#include <vector>

#include "common/console.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/system_error.h"
#include "common/text.h"
#include "explorer/explorer_discovery.h"
#include "state/lifecycle_state.h"

namespace cmr {

namespace {

constexpr std::wstring_view kAnyBuildPrefix = L"Brenlow.ContextMenuReplacement.Hook";
constexpr std::wstring_view kAnyBuildSuffix = L".dll";

bool StartsWithIgnoreCase(std::wstring_view text, std::wstring_view prefix) {
  return text.size() >= prefix.size() && EqualsIgnoreCase(text.substr(0, prefix.size()), prefix);
}

bool EndsWithIgnoreCase(std::wstring_view text, std::wstring_view suffix) {
  return text.size() >= suffix.size() &&
         EqualsIgnoreCase(text.substr(text.size() - suffix.size()), suffix);
}

// The file names of the modules loaded in one process; empty when its module list is unreadable.
std::vector<std::wstring> ModuleNames(DWORD processId) {
  std::vector<std::wstring> names;
  UniqueHandle snapshot(
      ::CreateToolhelp32Snapshot(TH32CS_SNAPMODULE | TH32CS_SNAPMODULE32, processId));
  if (!snapshot) return names;
  MODULEENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  for (BOOL more = ::Module32FirstW(snapshot.get(), &entry); more;
       more = ::Module32NextW(snapshot.get(), &entry)) {
    names.emplace_back(entry.szModule);
  }
  return names;
}

bool AnyEarlierBuildLoaded(const std::vector<ExplorerThread>& threads) {
  std::set<DWORD> processes;
  for (const ExplorerThread& t : threads) processes.insert(t.processId);
  for (const DWORD processId : processes) {
    if (EarlierBuildHookLoaded(processId)) return true;
  }
  return false;
}

struct HookWindow {
  HWND window;
  DWORD processId;
};

// Message-only windows are not top-level windows: they are found only by searching under
// HWND_MESSAGE, one after the other.
std::vector<HookWindow> HookWindows() {
  std::vector<HookWindow> windows;
  HWND after = nullptr;
  while ((after = ::FindWindowExW(HWND_MESSAGE, after, kHookWindowClass, nullptr)) != nullptr) {
    DWORD processId = 0;
    ::GetWindowThreadProcessId(after, &processId);
    windows.push_back({after, processId});
  }
  return windows;
}

}  // namespace

Result<HookModule> LoadHook() {
  const std::wstring path = JoinPath(ExecutableFolder(), kHookModuleFileName);
  HookModule hook;
  hook.module.reset(::LoadLibraryW(path.c_str()));
  if (!hook.module) {
    const DWORD error = ::GetLastError();
    return Status::Failure(FormatConsoleText(L"Could not load %s: %s", path, ErrorText(error)));
  }
  // Through the generic function pointer type, which converts to any other without a warning.
  hook.bootstrap = reinterpret_cast<HOOKPROC>(
      reinterpret_cast<void (*)()>(::GetProcAddress(hook.module.get(), kBootstrapProcedureName)));
  if (!hook.bootstrap) {
    return Status::Failure(L"Hook DLL does not export the bootstrap procedure");
  }
  hook.bootstrapMessage = ::RegisterWindowMessageW(kBootstrapMessageName);
  if (hook.bootstrapMessage == 0) {
    const DWORD error = ::GetLastError();
    return Status::Failure(
        FormatConsoleText(L"RegisterWindowMessage failed: %s", ErrorText(error)));
  }
  return hook;
}

bool EnrolThread(const HookModule& hook, DWORD threadId, HWND window) {
  UniqueHhook installed(
      ::SetWindowsHookExW(WH_CALLWNDPROC, hook.bootstrap, hook.module.get(), threadId));
  if (!installed) {
    const DWORD error = ::GetLastError();
    PrintLine(L"  thread %lu: SetWindowsHookEx failed: %s", threadId, ErrorText(error));
    return false;
  }
  DWORD_PTR reply = 0;
  const LRESULT sent = ::SendMessageTimeoutW(window, hook.bootstrapMessage, 0, 0, SMTO_ABORTIFHUNG,
                                             kHookMessageTimeoutMs, &reply);
  // The hook only has to live for this one send: the Hook pins itself in Explorer when the
  // bootstrap message reaches it, so nothing stays hooked from the controller's side.
  installed.reset();
  if (sent == 0) {
    PrintLine(L"  thread %lu: init message timed out or was rejected", threadId);
    return false;
  }
  return true;
}

bool IsEarlierBuildHookName(std::wstring_view name) noexcept {
  return name.size() >= kAnyBuildPrefix.size() + kAnyBuildSuffix.size() &&
         StartsWithIgnoreCase(name, kAnyBuildPrefix) && EndsWithIgnoreCase(name, kAnyBuildSuffix) &&
         !EqualsIgnoreCase(name, kHookModuleFileName);
}

bool EarlierBuildHookLoaded() {
  return AnyEarlierBuildLoaded(EnumerateExplorer());
}

bool EarlierBuildHookLoaded(DWORD processId) {
  for (const std::wstring& name : ModuleNames(processId)) {
    if (IsEarlierBuildHookName(name)) return true;
  }
  return false;
}

int SendCommand(uint32_t code, std::wstring_view label, intptr_t argument, DWORD processId) {
  const UINT message = ::RegisterWindowMessageW(kCommandMessageName);
  if (message == 0) {
    const DWORD error = ::GetLastError();
    PrintLine(L"RegisterWindowMessage failed: %s", ErrorText(error));
    return 1;
  }
  size_t delivered = 0;
  for (const HookWindow& target : HookWindows()) {
    if (processId != 0 && target.processId != processId) continue;
    DWORD_PTR reply = 0;
    if (::SendMessageTimeoutW(target.window, message, code, argument, SMTO_ABORTIFHUNG,
                              kHookMessageTimeoutMs, &reply) == 0) {
      PrintLine(L"  pid %lu: %s timed out", target.processId, label);
      continue;
    }
    ++delivered;
  }
  if (delivered == 0) {
    PrintLine(L"No initialized hook found. Run 'enable' first.");
    return 1;
  }
  return 0;
}

int PostEnrolment(DWORD processId, const EnrolmentResend& resend) {
  if (resend.refusalArmed) {
    PrintLine(L"");
    if (SendCommand(hook_command::kSuppression, L"activation refusal", 1, processId) != 0) {
      PrintLine(L"Could not arm activation refusal; the feature would be silently inert.");
      return 1;
    }
    PrintLine(L"Refusal is per view, so it affects windows opened from now on.");
  }
  if (resend.replacementMode && *resend.replacementMode != 0) {
    PrintLine(L"");
    if (SendCommand(hook_command::kReplacementMode, L"replacement mode (resend)",
                    static_cast<intptr_t>(*resend.replacementMode), processId) != 0) {
      PrintLine(L"Could not resend the replacement mode; newly enrolled processes would be inert.");
      return 1;
    }
  }
  return 0;
}

int PostEnrolment(DWORD processId) {
  const LifecycleState state = ReadState();
  EnrolmentResend resend;
  resend.refusalArmed =
      state.featureEnabled &&
      state.suppressionStrategy == static_cast<uint32_t>(SuppressionStrategy::refusal);
  resend.replacementMode = ReadLastReplacementMode();
  return PostEnrolment(processId, resend);
}

int Inject() {
  Result<HookModule> hook = LoadHook();
  if (!hook) {
    PrintLine(L"%s", hook.message());
    return 1;
  }
  const std::vector<ExplorerThread> threads = EnumerateExplorer();
  if (threads.empty()) {
    PrintLine(L"No Explorer shell windows found. Is Explorer running?");
    return 1;
  }
  size_t enrolled = 0;
  for (const ExplorerThread& t : threads) {
    if (EnrolThread(hook.value(), t.threadId, t.window)) ++enrolled;
  }
  if (AnyEarlierBuildLoaded(threads)) {
    PrintLine(
        L"Explorer is still running the Ravelin hook from an earlier build; this build's hook "
        L"stays inert there until Explorer restarts.");
  }
  if (enrolled == 0) {
    PrintLine(
        L"Nothing was enrolled. Check that the controller and Explorer are the same architecture "
        L"and integrity level.");
    return 1;
  }
  return PostEnrolment(0);
}

}  // namespace cmr

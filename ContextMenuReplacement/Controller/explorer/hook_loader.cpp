#include "explorer/hook_loader.h"

#include <vector>

#include "common/console.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/system_error.h"
#include "explorer/explorer_discovery.h"
#include "explorer/hook_builds.h"
#include "explorer/hook_channel.h"
#include "explorer/post_enrolment.h"

namespace cmr {

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

Status EnrolThread(const HookModule& hook, DWORD threadId, HWND window) {
  UniqueHhook installed(
      ::SetWindowsHookExW(WH_CALLWNDPROC, hook.bootstrap, hook.module.get(), threadId));
  if (!installed) {
    const DWORD error = ::GetLastError();
    return Status::Failure(
        FormatConsoleText(L"  thread %lu: SetWindowsHookEx failed: %s", threadId, ErrorText(error)),
        error);
  }
  DWORD_PTR reply = 0;
  const LRESULT sent = ::SendMessageTimeoutW(window, hook.bootstrapMessage, 0, 0, SMTO_ABORTIFHUNG,
                                             kHookMessageTimeoutMs, &reply);
  // The hook only has to live for this one send: the Hook pins itself in Explorer when the
  // bootstrap message reaches it, so nothing stays hooked from the controller's side.
  installed.reset();
  if (sent == 0) {
    return Status::Failure(
        FormatConsoleText(L"  thread %lu: init message timed out or was rejected", threadId));
  }
  return {};
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
    if (const Status sent = EnrolThread(hook.value(), t.threadId, t.window); !sent) {
      PrintLine(L"%s", sent.message());
    } else {
      ++enrolled;
    }
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

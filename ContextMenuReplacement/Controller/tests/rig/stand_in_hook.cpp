// Stand-in for the Hook module: on the bootstrap message it pins itself and creates its
// message-only window; it journals every bootstrap and command it receives. In a stand-in
// Explorer started with --hook-hangs it stops answering commands; "shutdown" (code 3) removes
// its window.
#include <windows.h>

#include "tests/rig/rig_journal.h"

namespace {

HMODULE g_self = nullptr;
HWND g_window = nullptr;
UINT g_commandMessage = 0;

LRESULT CALLBACK HookWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == g_commandMessage && message != 0) {
    RigJournal("command pid=%lu code=%llu arg=%lld", ::GetCurrentProcessId(),
               static_cast<unsigned long long>(wParam), static_cast<long long>(lParam));
    // Shutdown makes this Hook inert: its window goes until the next bootstrap.
    if (wParam == 3) {
      g_window = nullptr;
      ::DestroyWindow(window);
      return 1;
    }
    // The switch lives in the host program, not in the environment: Wine's desktop process
    // inherits the environment of whichever program first made a window.
    const auto* hangs = reinterpret_cast<const int*>(
        ::GetProcAddress(::GetModuleHandleW(nullptr), "rig_hook_hangs"));
    if (hangs && *hangs) {
      HANDLE shutdown = RigShutdownEvent();
      ::WaitForSingleObject(shutdown, 60000);
      ::CloseHandle(shutdown);
    }
    return 1;
  }
  return ::DefWindowProcW(window, message, wParam, lParam);
}

[[maybe_unused]] void Initialise() {
  if (g_window) return;
  HMODULE pinned = nullptr;
  ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(&HookWindowProc), &pinned);
  g_commandMessage = ::RegisterWindowMessageW(L"BnlxCmrReplacement.Command");
  WNDCLASSW windowClass{};
  windowClass.lpfnWndProc = HookWindowProc;
  windowClass.hInstance = g_self;
  windowClass.lpszClassName = L"BnlxCmrReplacementMessageWindow";
  ::RegisterClassW(&windowClass);
  g_window = ::CreateWindowExW(0, windowClass.lpszClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE,
                               nullptr, g_self, nullptr);
}

}  // namespace

#ifndef CMR_RIG_NO_EXPORT
extern "C" __declspec(dllexport) LRESULT CALLBACK
    replacement_bootstrap_procedure(int code, WPARAM wParam, LPARAM lParam) {
  static const UINT bootstrap = ::RegisterWindowMessageW(L"BnlxCmrReplacement.BootstrapInit");
  const auto* call = reinterpret_cast<const CWPSTRUCT*>(lParam);
  if (code == HC_ACTION && call && call->message == bootstrap) {
    RigJournal("bootstrap pid=%lu thread=%lu", ::GetCurrentProcessId(), ::GetCurrentThreadId());
    Initialise();
  }
  return ::CallNextHookEx(nullptr, code, wParam, lParam);
}
#endif

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) g_self = instance;
  return TRUE;
}

// Stand-in for a program showing a File Open dialog: a "#32770" dialog whose shell view
// (SHELLDLL_DefView, nested one window deep as in a real file dialog) appears after a delay.
//   --view-after <ms>   create the shell view that long after the dialog (default: never)
//   --plain             a plain top-level window instead of a dialog
// Journals "ready pid=<pid> hwnd=0x<window>" and "view pid=<pid>"; leaves on the rig's
// shutdown event.
#include <windows.h>

#include <string>

#include "tests/rig/rig_journal.h"

namespace {

int g_viewAfterMs = -1;

INT_PTR CALLBACK DialogProc(HWND dialog, UINT message, WPARAM, LPARAM) {
  if (message != WM_TIMER) return message == WM_INITDIALOG;
  ::KillTimer(dialog, 1);
  HINSTANCE instance = ::GetModuleHandleW(nullptr);
  HWND host = ::CreateWindowExW(0, L"Static", L"", WS_CHILD | WS_VISIBLE, 0, 0, 100, 100, dialog,
                                nullptr, instance, nullptr);
  ::CreateWindowExW(0, L"SHELLDLL_DefView", L"", WS_CHILD | WS_VISIBLE, 0, 0, 100, 100, host,
                    nullptr, instance, nullptr);
  RigJournal("view pid=%lu", ::GetCurrentProcessId());
  return TRUE;
}

HWND CreateStandInWindow(HINSTANCE instance, bool plain) {
  WNDCLASSW windowClass{};
  windowClass.lpfnWndProc = ::DefWindowProcW;
  windowClass.hInstance = instance;
  windowClass.lpszClassName = plain ? L"CmrRigPlainWindow" : L"SHELLDLL_DefView";
  ::RegisterClassW(&windowClass);
  if (plain) {
    return ::CreateWindowExW(0, windowClass.lpszClassName, L"plain", WS_OVERLAPPEDWINDOW, 0, 0, 200,
                             100, nullptr, nullptr, instance, nullptr);
  }
  // An empty template: no controls, no menu, the standard dialog class, no title.
  alignas(DWORD) WORD dialogTemplate[16] = {};
  auto* header = reinterpret_cast<DLGTEMPLATE*>(dialogTemplate);
  header->style = WS_POPUP | WS_CAPTION;
  header->cx = 200;
  header->cy = 100;
  HWND dialog = ::CreateDialogIndirectParamW(instance, header, nullptr, DialogProc, 0);
  if (dialog && g_viewAfterMs >= 0) ::SetTimer(dialog, 1, g_viewAfterMs, nullptr);
  return dialog;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int) {
  int count = 0;
  wchar_t** argv = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  bool plain = false;
  for (int i = 1; i < count; ++i) {
    const std::wstring word = argv[i];
    if (word == L"--plain") plain = true;
    if (word == L"--view-after" && i + 1 < count) g_viewAfterMs = std::stoi(argv[++i]);
  }
  ::LocalFree(argv);
  HWND window = CreateStandInWindow(instance, plain);
  RigJournal("ready pid=%lu hwnd=0x%llX", ::GetCurrentProcessId(),
             static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(window)));
  HANDLE shutdown = RigShutdownEvent();
  while (::MsgWaitForMultipleObjects(1, &shutdown, FALSE, INFINITE, QS_ALLINPUT) != WAIT_OBJECT_0) {
    MSG message;
    while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) ::DispatchMessageW(&message);
  }
  ::CloseHandle(shutdown);
  return 0;
}

// Stand-in for a program showing a File Open dialog: a "#32770" dialog whose shell view
// (SHELLDLL_DefView, nested one window deep as in a real file dialog) appears after a delay.
//   --view-after <ms>   create the shell view that long after the dialog (default: never)
//   --view-on-signal    ... counting from when the named event CmrRig.DialogView is set
//   --plain             a plain top-level window instead of a dialog
//   --load <dll>        load a module (an earlier Hook build) at start
// Journals "ready pid=<pid> hwnd=0x<window>" and "view pid=<pid>"; leaves on the rig's
// shutdown event.
#include <windows.h>

#include <string>

#include "tests/rig/rig_journal.h"

namespace {

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
  return ::CreateDialogIndirectParamW(instance, header, nullptr, DialogProc, 0);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int) {
  int count = 0;
  wchar_t** argv = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  bool plain = false;
  bool onSignal = false;
  int viewAfterMs = -1;
  for (int i = 1; i < count; ++i) {
    const std::wstring word = argv[i];
    if (word == L"--plain") plain = true;
    if (word == L"--view-on-signal") onSignal = true;
    if (word == L"--load" && i + 1 < count) ::LoadLibraryW(argv[++i]);
    if (word == L"--view-after" && i + 1 < count) viewAfterMs = std::stoi(argv[++i]);
  }
  ::LocalFree(argv);
  HWND window = CreateStandInWindow(instance, plain);
  if (viewAfterMs >= 0 && !onSignal) ::SetTimer(window, 1, viewAfterMs, nullptr);
  RigJournal("ready pid=%lu hwnd=0x%llX", ::GetCurrentProcessId(),
             static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(window)));
  HANDLE events[2] = {RigShutdownEvent(),
                      ::CreateEventW(nullptr, TRUE, FALSE, L"CmrRig.DialogView")};
  DWORD waitingFor = onSignal ? 2 : 1;
  for (DWORD woken; (woken = ::MsgWaitForMultipleObjects(waitingFor, events, FALSE, INFINITE,
                                                         QS_ALLINPUT)) != WAIT_OBJECT_0;) {
    if (waitingFor == 2 && woken == WAIT_OBJECT_0 + 1) {
      ::SetTimer(window, 1, viewAfterMs, nullptr);
      waitingFor = 1;
    }
    MSG message;
    while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) ::DispatchMessageW(&message);
  }
  ::CloseHandle(events[0]);
  ::CloseHandle(events[1]);
  return 0;
}

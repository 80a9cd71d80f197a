// Stand-in for explorer.exe. Options come from the command line and, for instances the
// controller starts as the shell, from CMR_RIG_EXPLORER in the environment:
//   --shell             desktop (Progman with a SHELLDLL_DefView child, made the shell window)
//                       and taskbar (Shell_TrayWnd) on the main thread
//   --folder <path>     a CabinetWClass window showing <path> (also any bare word)
//   --threads <n>       n more UI threads, each with a folder window
//   --hang-every <n>    the desktop answers n-1 WM_NULLs, then takes 300 ms over the next one,
//                       and so on: a shell that answers twice and then hangs, with n = 3
//   --respawn <ms>      when this process is ended, a watcher starts a new one after <ms>
//   --hook-hangs        the Hook loaded here stops answering commands
//   --load <dll>        load a module (an earlier Hook build) at start
// It leaves when the rig's shutdown event is set, and journals what it does.
#include <windows.h>

#include <string>
#include <vector>

#include "tests/rig/rig_journal.h"
#include "tests/support/child_process.h"

// Read by the stand-in Hook loaded into this process.
extern "C" {
__declspec(dllexport) int rig_hook_hangs = 0;
}

namespace {

struct Options {
  bool shell = false;
  std::vector<std::wstring> folders;
  int threads = 0;
  int hangEvery = 0;
  int respawnMs = -1;
};

Options g_options;
LONG g_nullsAnswered = 0;

std::string Narrow(const std::wstring& text) {
  std::string out;
  for (wchar_t c : text) out += c < 128 ? static_cast<char>(c) : '?';
  return out;
}

LRESULT CALLBACK DesktopProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  // Longer than the controller's 200 ms responsiveness test.
  if (message == WM_NULL && g_options.hangEvery > 0 &&
      ::InterlockedIncrement(&g_nullsAnswered) % g_options.hangEvery == 0) {
    ::Sleep(300);
  }
  return ::DefWindowProcW(window, message, wParam, lParam);
}

void RegisterClasses(HINSTANCE instance) {
  const wchar_t* names[] = {L"Progman", L"SHELLDLL_DefView", L"Shell_TrayWnd", L"CabinetWClass"};
  for (const wchar_t* name : names) {
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = name == names[0] ? DesktopProc : ::DefWindowProcW;
    windowClass.hInstance = instance;
    windowClass.lpszClassName = name;
    ::RegisterClassW(&windowClass);
  }
}

void OpenFolderWindow(const std::wstring& folder) {
  HWND window = ::CreateWindowExW(0, L"CabinetWClass", folder.c_str(), WS_OVERLAPPEDWINDOW, 0, 0,
                                  320, 200, nullptr, nullptr, ::GetModuleHandleW(nullptr), nullptr);
  ::ShowWindow(window, SW_SHOWNOACTIVATE);
  RigJournal("folder pid=%lu hwnd=0x%llX %s", ::GetCurrentProcessId(),
             static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(window)),
             Narrow(folder).c_str());
}

void PumpUntilShutdown() {
  HANDLE shutdown = RigShutdownEvent();
  for (;;) {
    if (::MsgWaitForMultipleObjects(1, &shutdown, FALSE, INFINITE, QS_ALLINPUT) == WAIT_OBJECT_0) {
      break;
    }
    MSG message;
    while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      ::TranslateMessage(&message);
      ::DispatchMessageW(&message);
    }
  }
  ::CloseHandle(shutdown);
}

HANDLE g_threadReady = nullptr;

DWORD WINAPI FolderThread(void* context) {
  const int index = static_cast<int>(reinterpret_cast<intptr_t>(context));
  OpenFolderWindow(L"C:\\rig\\thread" + std::to_wstring(index));
  ::ReleaseSemaphore(g_threadReady, 1, nullptr);
  PumpUntilShutdown();
  return 0;
}

std::wstring Self() {
  wchar_t self[MAX_PATH];
  ::GetModuleFileNameW(nullptr, self, MAX_PATH);
  return self;
}

// Waits for the shell process to end, then starts its successor: Windows brings a killed
// shell back the same way, from outside it.
int Watch(DWORD processId, int delayMs) {
  HANDLE process = ::OpenProcess(SYNCHRONIZE, FALSE, processId);
  HANDLE waits[2] = {process, RigShutdownEvent()};
  if (!process || ::WaitForMultipleObjects(2, waits, FALSE, INFINITE) != WAIT_OBJECT_0) return 0;
  if (::WaitForSingleObject(waits[1], delayMs) == WAIT_OBJECT_0) return 0;
  if (const cmr::Child child = cmr::StartChild(Self())) RigJournal("respawned pid=%lu", child.id);
  return 0;
}

void ReadOptions(const std::vector<std::wstring>& words) {
  for (size_t i = 0; i < words.size(); ++i) {
    const std::wstring& w = words[i];
    const bool hasNext = i + 1 < words.size();
    if (w.rfind(L"--", 0) != 0) g_options.folders.push_back(w);
    if (w == L"--shell") g_options.shell = true;
    if (w == L"--hook-hangs") rig_hook_hangs = 1;
    if (w == L"--folder" && hasNext) g_options.folders.push_back(words[++i]);
    if (w == L"--threads" && hasNext) g_options.threads = std::stoi(words[++i]);
    if (w == L"--hang-every" && hasNext) g_options.hangEvery = std::stoi(words[++i]);
    if (w == L"--respawn" && hasNext) g_options.respawnMs = std::stoi(words[++i]);
    if (w == L"--load" && hasNext) ::LoadLibraryW(words[++i].c_str());
  }
}

// The words of a command line after the first, which names the program.
std::vector<std::wstring> Arguments(const std::wstring& line) {
  std::vector<std::wstring> words;
  int count = 0;
  if (wchar_t** argv = ::CommandLineToArgvW(line.c_str(), &count)) {
    for (int i = 1; i < count; ++i) words.emplace_back(argv[i]);
    ::LocalFree(argv);
  }
  return words;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int) {
  std::vector<std::wstring> args = Arguments(::GetCommandLineW());
  if (args.size() == 3 && args[0] == L"--watch") {
    return Watch(static_cast<DWORD>(std::stoul(args[1])), std::stoi(args[2]));
  }
  // Started without options, as the shell is: the test's options for shells come from the
  // environment.
  wchar_t shellOptions[1024] = {};
  if (args.empty() && ::GetEnvironmentVariableW(L"CMR_RIG_EXPLORER", shellOptions, 1024)) {
    args = Arguments(L"x " + std::wstring(shellOptions));
  }
  ReadOptions(args);
  RegisterClasses(instance);
  RigJournal("start pid=%lu", ::GetCurrentProcessId());
  if (g_options.shell) {
    HWND desktop = ::CreateWindowExW(0, L"Progman", L"Program Manager", WS_POPUP, 0, 0, 64, 64,
                                     nullptr, nullptr, instance, nullptr);
    ::CreateWindowExW(0, L"SHELLDLL_DefView", L"", WS_CHILD, 0, 0, 64, 64, desktop, nullptr,
                      instance, nullptr);
    // Not declared by the MinGW headers; user32 exports it.
    using SetShellWindowProc = BOOL(WINAPI*)(HWND);
    auto setShellWindow = reinterpret_cast<SetShellWindowProc>(reinterpret_cast<void (*)()>(
        ::GetProcAddress(::GetModuleHandleW(L"user32.dll"), "SetShellWindow")));
    if (setShellWindow) setShellWindow(desktop);
    ::CreateWindowExW(0, L"Shell_TrayWnd", L"", WS_POPUP, 0, 0, 64, 16, nullptr, nullptr, instance,
                      nullptr);
    RigJournal("shell pid=%lu", ::GetCurrentProcessId());
  }
  for (const std::wstring& folder : g_options.folders) OpenFolderWindow(folder);
  g_threadReady = ::CreateSemaphoreW(nullptr, 0, g_options.threads + 1, nullptr);
  for (int i = 0; i < g_options.threads; ++i) {
    ::CloseHandle(
        ::CreateThread(nullptr, 0, FolderThread, reinterpret_cast<void*>(intptr_t{i}), 0, nullptr));
  }
  for (int i = 0; i < g_options.threads; ++i) ::WaitForSingleObject(g_threadReady, 10000);
  if (g_options.respawnMs >= 0) {
    cmr::StartChild(Self(), {L"--watch", std::to_wstring(::GetCurrentProcessId()),
                             std::to_wstring(g_options.respawnMs)});
  }
  RigJournal("ready pid=%lu", ::GetCurrentProcessId());
  PumpUntilShutdown();
  return 0;
}

#include "explorer/explorer_restart.h"

#include <fmt/xchar.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <set>
#include <thread>

#include "common/console.h"
#include "common/log.h"
#include "common/named_mutex.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "explorer/explorer_discovery.h"

namespace cmr {

namespace {

constexpr wchar_t kRestartMutexName[] = L"Local\\BWX.ExplorerRestart";
constexpr DWORD kResponsiveTimeoutMs = 200;
constexpr DWORD kPollIntervalMs = 250;
constexpr int kPassesNeeded = 3;
constexpr DWORD kSelfReturnLimitMs = 8000;
constexpr DWORD kFallbackRoundLimitMs = 12000;
constexpr int kFallbackRounds = 2;
constexpr DWORD kTerminateWaitMs = 2000;
constexpr DWORD kHiddenWindowRecheckMs = 500;
// The shell's window list is read across processes; a hung Explorer must not hold the restart.
constexpr auto kCaptureLimit = std::chrono::seconds(10);

// The restart's progress lines go to the console and the log alike.
void RestartLog(std::wstring_view text) {
  PrintLine(L"%s", text);
  WriteLogLine(LogLevel::info, fmt::format(L"[Explorer restart] {}", text));
}

// Runs the capture on a worker and waits for it up to the limit. A capture stuck in another
// process is abandoned, never waited for: the worker owns everything it touches.
Result<std::vector<explorer_restart::folder>> CaptureWithLimit(const FolderCapture& capture) {
  using Folders = Result<std::vector<explorer_restart::folder>>;
  auto task = std::make_shared<std::packaged_task<Folders()>>(capture);
  std::future<Folders> result = task->get_future();
  std::thread([task] { (*task)(); }).detach();
  if (result.wait_for(kCaptureLimit) != std::future_status::ready) {
    return Status::Failure(L"Folder capture timed out");
  }
  return result.get();
}

struct FolderWindow {
  HWND window;
  bool visible;
};

BOOL CALLBACK CollectFolderWindow(HWND window, LPARAM context) {
  wchar_t className[256] = {};
  const int length = ::GetClassNameW(window, className, 256);
  const std::wstring_view name(className, length > 0 ? length : 0);
  if (name == L"CabinetWClass" || name == L"ExploreWClass") {
    reinterpret_cast<std::vector<FolderWindow>*>(context)->push_back(
        {window, ::IsWindowVisible(window) != FALSE});
  }
  return TRUE;
}

// Every folder window the capture did not list must be one Explorer keeps hidden; a visible one
// would be lost by the restart.
bool CrossCheckCapture(const std::vector<explorer_restart::folder>& captured) {
  std::vector<FolderWindow> windows;
  ::EnumWindows(CollectFolderWindow, reinterpret_cast<LPARAM>(&windows));
  const bool allHidden =
      !windows.empty() &&
      std::none_of(windows.begin(), windows.end(), [](const FolderWindow& w) { return w.visible; });
  if (allHidden) {
    // A window that is being shown right now is still invisible for a moment.
    ::Sleep(kHiddenWindowRecheckMs);
    for (FolderWindow& w : windows) {
      w.visible = ::IsWindow(w.window) && ::IsWindowVisible(w.window);
    }
  }
  size_t setAside = 0;
  for (const FolderWindow& w : windows) {
    const bool listed =
        std::any_of(captured.begin(), captured.end(),
                    [&](const explorer_restart::folder& f) { return f.window == w.window; });
    if (listed) continue;
    if (w.visible) {
      RestartLog(L"Folder capture is incomplete; Explorer was left running.");
      return false;
    }
    ++setAside;
  }
  if (setAside != 0) {
    RestartLog(L"Setting aside " + std::to_wstring(setAside) +
               L" hidden folder window(s) that Explorer does not list.");
  }
  return true;
}

struct ShellLaunch {
  std::wstring windowsDirectory;
  std::wstring shellPath;
  UniqueHandle userToken;  // set only when the controller runs with a full elevated token
};

bool RunsFullyElevated() {
  HANDLE raw = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &raw)) return false;
  UniqueHandle token(raw);
  TOKEN_ELEVATION_TYPE type = TokenElevationTypeDefault;
  DWORD size = 0;
  return ::GetTokenInformation(token.get(), TokenElevationType, &type, sizeof(type), &size) &&
         type == TokenElevationTypeFull;
}

// The token of the process that owns the shell window, so that a shell the controller has to
// start itself runs as the ordinary user and not elevated.
UniqueHandle ShellOwnerToken() {
  DWORD processId = 0;
  if (HWND shell = ::GetShellWindow(); !shell || !::GetWindowThreadProcessId(shell, &processId)) {
    return {};
  }
  UniqueHandle process(::OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, processId));
  HANDLE raw = nullptr;
  if (!process || !::OpenProcessToken(process.get(),
                                      TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_ASSIGN_PRIMARY, &raw)) {
    return {};
  }
  UniqueHandle token(raw);
  HANDLE primary = nullptr;
  if (!::DuplicateTokenEx(token.get(), MAXIMUM_ALLOWED, nullptr, SecurityImpersonation,
                          TokenPrimary, &primary)) {
    return {};
  }
  return UniqueHandle(primary);
}

// Of the given processes, those of this session whose image is the shell itself, opened for
// ending and waiting. Nothing is selected while this session is unknown or 0.
std::vector<UniqueHandle> SelectShellProcesses(const std::vector<DWORD>& processIds,
                                               const std::wstring& shellPath) {
  std::vector<UniqueHandle> selected;
  DWORD ownSession = 0;
  if (!::ProcessIdToSessionId(::GetCurrentProcessId(), &ownSession) || ownSession == 0) {
    return selected;
  }
  for (const DWORD processId : processIds) {
    DWORD session = 0;
    if (!::ProcessIdToSessionId(processId, &session) || session != ownSession) continue;
    UniqueHandle process(::OpenProcess(
        PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_TERMINATE | SYNCHRONIZE, FALSE, processId));
    if (!process) continue;
    wchar_t path[MAX_PATH * 4];
    DWORD size = static_cast<DWORD>(std::size(path));
    if (!::QueryFullProcessImageNameW(process.get(), 0, path, &size)) continue;
    if (!EqualsIgnoreCase(std::wstring_view(path, size), shellPath)) continue;
    selected.push_back(std::move(process));
  }
  return selected;
}

bool ShellAnswers() {
  return IsResponsive(::GetShellWindow()) && IsResponsive(::FindWindowW(L"Shell_TrayWnd", nullptr));
}

// Three consecutive passes of both the desktop and the taskbar; any failure starts the count
// again, so a shell that answers twice and then hangs is not taken for back.
bool WaitForResponsiveShell(DWORD limitMs) {
  const ULONGLONG start = ::GetTickCount64();
  int passes = 0;
  for (;;) {
    passes = ShellAnswers() ? passes + 1 : 0;
    if (passes == kPassesNeeded) return true;
    if (::GetTickCount64() - start >= limitMs) return false;
    ::Sleep(kPollIntervalMs);
  }
}

enum class LaunchAs { controller, tokenWithLogon, tokenAsUser };

// Starts the shell with `arguments` after its quoted path; the Win32 error, or ERROR_SUCCESS.
DWORD StartShell(const ShellLaunch& launch, const std::wstring& arguments, LaunchAs as) {
  std::wstring commandLine = L"\"" + launch.shellPath + L"\"" + arguments;
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  wchar_t desktop[] = L"winsta0\\default";
  startup.lpDesktop = desktop;
  // No standard handles: the shell outlives the controller and must not hold the pipe a caller
  // reads the controller's output from (Wine hands them to a child unless told otherwise).
  startup.dwFlags = STARTF_USESTDHANDLES;
  PROCESS_INFORMATION info{};
  const wchar_t* path = launch.shellPath.c_str();
  const wchar_t* directory = launch.windowsDirectory.c_str();
  BOOL started = FALSE;
  switch (as) {
    case LaunchAs::controller:
      started = ::CreateProcessW(path, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                 directory, &startup, &info);
      break;
    case LaunchAs::tokenWithLogon:
      started = ::CreateProcessWithTokenW(launch.userToken.get(), 0, path, commandLine.data(), 0,
                                          nullptr, directory, &startup, &info);
      break;
    case LaunchAs::tokenAsUser:
      started = ::CreateProcessAsUserW(launch.userToken.get(), path, commandLine.data(), nullptr,
                                       nullptr, FALSE, 0, nullptr, directory, &startup, &info);
      break;
  }
  if (!started) return ::GetLastError();
  // The controller never waits on a shell it starts.
  ::CloseHandle(info.hThread);
  ::CloseHandle(info.hProcess);
  return ERROR_SUCCESS;
}

void LaunchShellFallback(const ShellLaunch& launch) {
  RestartLog(L"Desktop/taskbar have not returned; launching the Windows shell fallback.");
  if (!launch.userToken) {
    if (const DWORD error = StartShell(launch, L"", LaunchAs::controller); error != ERROR_SUCCESS) {
      RestartLog(L"Windows shell fallback launch failed, error " + std::to_wstring(error));
    }
    return;
  }
  DWORD error = StartShell(launch, L"", LaunchAs::tokenWithLogon);
  if (error == ERROR_SUCCESS) return;
  RestartLog(L"Shell token launch failed, error " + std::to_wstring(error) +
             L"; retrying directly as the same user (Windows directory: " +
             launch.windowsDirectory + L")");
  error = StartShell(launch, L"", LaunchAs::tokenAsUser);
  if (error != ERROR_SUCCESS) {
    RestartLog(L"Windows shell fallback launch failed, error " + std::to_wstring(error));
  }
}

// The shell opens a folder window for a location given on its command line.
bool ReopenFolder(const ShellLaunch& launch, const explorer_restart::folder& folder) {
  return StartShell(launch, L" \"" + folder.location + L"\"", LaunchAs::controller) ==
         ERROR_SUCCESS;
}

bool RunRestartSequence(const std::vector<DWORD>& processIds, const FolderCapture& capture) {
  // Held for the whole sequence; released and closed on every way out.
  NamedMutex mutex(kRestartMutexName);
  if (!mutex.created()) return false;
  if (!mutex.Take(0)) {
    RestartLog(L"An Explorer restart is already in progress.");
    return false;
  }

  Result<std::vector<explorer_restart::folder>> folders = CaptureWithLimit(capture);
  if (!folders) {
    WriteLogLine(LogLevel::info, L"[Explorer restart] " + folders.message());
    RestartLog(L"Folder capture failed or timed out; Explorer was left running.");
    return false;
  }
  if (!CrossCheckCapture(folders.value())) return false;

  ShellLaunch launch;
  wchar_t directory[MAX_PATH + 1] = {};
  const UINT length = ::GetWindowsDirectoryW(directory, MAX_PATH + 1);
  if (length == 0 || length > MAX_PATH) return false;
  launch.windowsDirectory.assign(directory, length);
  launch.shellPath = launch.windowsDirectory + L"\\explorer.exe";

  std::vector<UniqueHandle> selected = SelectShellProcesses(processIds, launch.shellPath);
  if (RunsFullyElevated()) launch.userToken = ShellOwnerToken();

  RestartLog(L"Captured folder locations; restarting Explorer.");
  for (const UniqueHandle& process : selected) ::TerminateProcess(process.get(), 0);
  for (const UniqueHandle& process : selected) {
    ::WaitForSingleObject(process.get(), kTerminateWaitMs);
  }

  bool back = WaitForResponsiveShell(kSelfReturnLimitMs);
  for (int round = 0; !back && round < kFallbackRounds; ++round) {
    LaunchShellFallback(launch);
    back = WaitForResponsiveShell(kFallbackRoundLimitMs);
  }
  if (!back) {
    RestartLog(
        L"Explorer recovery failed: no responsive desktop/taskbar. Start explorer.exe from Task "
        L"Manager.");
    return false;
  }

  RestartLog(L"Desktop and taskbar are responsive; restoring folder locations.");
  bool allReopened = true;
  for (const explorer_restart::folder& folder : folders.value()) {
    allReopened = ReopenFolder(launch, folder) && allReopened;
  }
  RestartLog(allReopened ? L"Explorer restart completed; folder locations restored."
                         : L"Explorer returned, but some folder locations could not be restored.");
  return true;
}

}  // namespace

bool IsResponsive(HWND window) {
  if (!window) return false;
  DWORD_PTR reply = 0;
  return ::SendMessageTimeoutW(window, WM_NULL, 0, 0, SMTO_BLOCK | SMTO_ABORTIFHUNG,
                               kResponsiveTimeoutMs, &reply) != 0;
}

bool RestartExplorer() {
  return RestartExplorer(CaptureFolderWindows);
}

bool RestartExplorer(const FolderCapture& capture) {
  std::set<DWORD> seen;
  std::vector<DWORD> processIds;
  for (const ExplorerThread& t : EnumerateExplorer()) {
    if (seen.insert(t.processId).second) processIds.push_back(t.processId);
  }
  return RunRestartSequence(processIds, capture);
}

int RunRestartExplorerVerb() {
  return RestartExplorer() ? 0 : 1;
}

}  // namespace cmr

#include "explorer/explorer_discovery.h"

#include <algorithm>
#include <cwctype>
#include <iterator>
#include <map>

#include "common/console.h"
#include "common/file_io.h"
#include "common/file_time.h"
#include "common/unique_handle.h"

namespace cmr {

namespace {

constexpr std::wstring_view kShellWindowClasses[] = {L"Progman", L"WorkerW", L"CabinetWClass",
                                                     L"Shell_TrayWnd"};

struct WalkState {
  std::vector<ExplorerThread> threads;
  // One image query per process, however many windows it owns.
  std::map<DWORD, bool> isExplorer;
};

BOOL CALLBACK VisitTopLevelWindow(HWND window, LPARAM context) {
  auto& state = *reinterpret_cast<WalkState*>(context);
  DWORD processId = 0;
  const DWORD threadId = ::GetWindowThreadProcessId(window, &processId);
  wchar_t className[256] = {};
  const int length = ::GetClassNameW(window, className, 256);
  if (length <= 0 || !IsShellWindowClass(std::wstring_view(className, length))) return TRUE;

  auto known = state.isExplorer.find(processId);
  if (known == state.isExplorer.end()) {
    const bool explorer = IsExplorerImageName(FileNameOf(ProcessImagePath(processId)));
    known = state.isExplorer.emplace(processId, explorer).first;
  }
  if (!known->second) return TRUE;

  // The first qualifying window of a thread wins: a thread that owns both the desktop and the
  // taskbar is enrolled once.
  const bool seen = std::any_of(state.threads.begin(), state.threads.end(),
                                [&](const ExplorerThread& t) { return t.threadId == threadId; });
  if (!seen)
    state.threads.push_back({threadId, processId, window, std::wstring(className, length)});
  return TRUE;  // never stop early
}

}  // namespace

bool IsShellWindowClass(std::wstring_view className) noexcept {
  return std::find(std::begin(kShellWindowClasses), std::end(kShellWindowClasses), className) !=
         std::end(kShellWindowClasses);
}

bool IsExplorerImageName(std::wstring_view fileName) noexcept {
  constexpr std::wstring_view kExplorer = L"explorer.exe";
  if (fileName.size() != kExplorer.size()) return false;
  for (size_t i = 0; i < fileName.size(); ++i) {
    if (static_cast<wchar_t>(::towlower(fileName[i])) != kExplorer[i]) return false;
  }
  return true;
}

std::wstring ProcessImagePath(DWORD processId) {
  UniqueHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
  if (!process) return {};
  wchar_t path[MAX_PATH * 4];
  DWORD size = static_cast<DWORD>(std::size(path));
  if (!::QueryFullProcessImageNameW(process.get(), 0, path, &size)) return {};
  return std::wstring(path, size);
}

std::wstring LowerCaseImageName(DWORD processId) {
  std::wstring name(FileNameOf(ProcessImagePath(processId)));
  for (wchar_t& unit : name) unit = static_cast<wchar_t>(::towlower(unit));
  return name;
}

std::vector<ExplorerThread> EnumerateExplorer() {
  WalkState state;
  ::EnumWindows(VisitTopLevelWindow, reinterpret_cast<LPARAM>(&state));
  return std::move(state.threads);
}

std::vector<uint64_t> ExplorerProcessStartTimes() {
  std::vector<uint64_t> times;
  for (const ExplorerThread& entry : EnumerateExplorer()) {
    uint64_t created = 0;
    UniqueHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, entry.processId));
    FILETIME creation{}, exit{}, kernel{}, user{};
    if (process && ::GetProcessTimes(process.get(), &creation, &exit, &kernel, &user)) {
      created = FileTimeToInteger(creation);
    }
    times.push_back(created);
  }
  return times;
}

int RunProbe() {
  const std::vector<ExplorerThread> threads = EnumerateExplorer();
  PrintLine(L"Explorer UI threads hosting a shell window: %zu", threads.size());
  for (const ExplorerThread& t : threads) {
    PrintLine(L"  pid %lu thread %lu  %s  hwnd=0x%llX", t.processId, t.threadId, t.className,
              static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(t.window)));
  }
  if (threads.empty()) {
    PrintLine(L"No Explorer shell windows found. Is Explorer running?");
    return 1;
  }
  PrintLine(L"");
  PrintLine(L"Probe injects nothing. Run 'enable' to load the Ravelin hook.");
  return 0;
}

}  // namespace cmr

#include "tests/e2e/explorer_rig.h"

#include <gtest/gtest.h>
#include <tlhelp32.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "explorer/explorer_discovery.h"
#include "explorer/hook_channel.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {

namespace {

std::wstring Quote(const std::wstring& text) {
  return L"\"" + text + L"\"";
}

// Every stand-in Hook goes inert through its own shutdown command, so no test leaves one
// answering in a process it did not start (Wine's desktop takes the Hook too).
void ShutDownHooks() {
  const UINT message = ::RegisterWindowMessageW(kCommandMessageName);
  HWND after = nullptr;
  std::vector<HWND> windows;
  while ((after = ::FindWindowExW(HWND_MESSAGE, after, kHookWindowClass, nullptr)) != nullptr) {
    windows.push_back(after);
  }
  for (HWND window : windows) {
    DWORD_PTR reply = 0;
    ::SendMessageTimeoutW(window, message, hook_command::kShutdown, 0, SMTO_ABORTIFHUNG, 2000,
                          &reply);
  }
}

constexpr wchar_t kShellWindowsServerKey[] =
    L"Software\\Classes\\CLSID\\{9BA05972-F6A8-11CF-A442-00A0C90A8F39}\\InprocServer32";

std::wstring ShellWindowsServer() {
  wchar_t value[MAX_PATH] = {};
  DWORD size = sizeof(value);
  if (::RegGetValueW(HKEY_LOCAL_MACHINE, kShellWindowsServerKey, nullptr, RRF_RT_REG_SZ, nullptr,
                     value, &size) != ERROR_SUCCESS) {
    return {};
  }
  return value;
}

void SetShellWindowsServer(const std::wstring& path) {
  // Wine reads class registrations from the machine's classes only, never the user's.
  EXPECT_EQ(
      ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kShellWindowsServerKey, nullptr, REG_SZ, path.c_str(),
                        static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t))),
      ERROR_SUCCESS);
}

std::wstring ShellPath() {
  wchar_t windows[MAX_PATH] = {};
  ::GetWindowsDirectoryW(windows, MAX_PATH);
  return JoinPath(windows, L"explorer.exe");
}

// Any process running a stand-in image, windows made yet or not: a shell the controller has
// just started must see the shutdown event before the rig lets it go.
bool AnyStandInProcess() {
  UniqueHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  const std::wstring rig = ExplorerRig::Folder() + L"\\";
  for (BOOL more = ::Process32FirstW(snapshot.get(), &entry); more;
       more = ::Process32NextW(snapshot.get(), &entry)) {
    const std::wstring path = ProcessImagePath(entry.th32ProcessID);
    if (EqualsIgnoreCase(path, ShellPath()) ||
        (path.size() > rig.size() && EqualsIgnoreCase(path.substr(0, rig.size()), rig))) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::string Pid(DWORD processId) {
  return "pid=" + std::to_string(processId);
}

ExplorerRig::ExplorerRig()
    : journal_(JoinPath(ScratchFolder(L"explorer-rig"), L"journal.txt")),
      shutdown_(::CreateEventW(nullptr, TRUE, FALSE, L"CmrRig.Shutdown")) {
  // A stand-in of an earlier test may still hold the event while it leaves.
  ::ResetEvent(shutdown_.get());
  ::SetEnvironmentVariableW(L"CMR_RIG_JOURNAL", journal_.c_str());
  ::SetEnvironmentVariableW(L"CMR_RIG_EXPLORER", nullptr);
}

ExplorerRig::~ExplorerRig() {
  ShutDownHooks();
  ::SetEvent(shutdown_.get());
  for (const UniqueHandle& process : started_) ::WaitForSingleObject(process.get(), 10000);
  // Shells the controller started end on the same event.
  const ULONGLONG deadline = ::GetTickCount64() + 20000;
  while (AnyStandInProcess() && ::GetTickCount64() < deadline) ::Sleep(50);
  EXPECT_FALSE(AnyStandInProcess()) << "a stand-in Explorer did not leave";
  if (!replacedServer_.empty()) SetShellWindowsServer(replacedServer_);
  ::SetEnvironmentVariableW(L"CMR_RIG_JOURNAL", nullptr);
  ::SetEnvironmentVariableW(L"CMR_RIG_EXPLORER", nullptr);
}

std::wstring ExplorerRig::Folder() {
  return JoinPath(ParentFolder(ExecutableFolder()), L"rig");
}

std::wstring ExplorerRig::Explorer() {
  return JoinPath(Folder(), L"explorer.exe");
}

void ExplorerRig::InstallShell() {
  const std::wstring shell = ShellPath();
  // A shell an earlier test left starting cannot be overwritten, and needs not be.
  if (ReadBytes(shell) == ReadBytes(Explorer())) return;
  ASSERT_TRUE(::CopyFileW(Explorer().c_str(), shell.c_str(), FALSE))
      << "could not put the stand-in at " << ToUtf8(shell) << ": " << ::GetLastError();
}

void ExplorerRig::RegisterShellWindowList() {
  const std::wstring standIn = JoinPath(Folder(), L"stand_in_shell_windows.dll");
  if (replacedServer_.empty()) replacedServer_ = ShellWindowsServer();
  // A run stopped halfway left the stand-in registered: what it replaced was Wine's own.
  if (EqualsIgnoreCase(replacedServer_, standIn)) {
    replacedServer_ = L"C:\\windows\\system32\\ieframe.dll";
  }
  ASSERT_FALSE(replacedServer_.empty());
  SetShellWindowsServer(standIn);
}

void ExplorerRig::SetShellOptions(const std::wstring& options) {
  ::SetEnvironmentVariableW(L"CMR_RIG_EXPLORER", options.c_str());
}

DWORD ExplorerRig::Start(const std::vector<std::wstring>& args, const std::wstring& image) {
  std::wstring line = Quote(image);
  for (const std::wstring& arg : args) line += L" " + Quote(arg);
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;  // none: Wine would pass ours on
  PROCESS_INFORMATION info{};
  bool started = false;
  for (int attempt = 0; attempt < 5 && !started; ++attempt) {
    if (attempt != 0) ::Sleep(200);
    started = ::CreateProcessW(image.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr,
                               nullptr, &startup, &info);
  }
  if (!started) {
    ADD_FAILURE() << "could not start " << ToUtf8(image) << ": " << ::GetLastError();
    return 0;
  }
  ::CloseHandle(info.hThread);
  started_.emplace_back(info.hProcess);
  EXPECT_TRUE(WaitFor("ready " + Pid(info.dwProcessId))) << Journal();
  return info.dwProcessId;
}

std::string ExplorerRig::Journal() const {
  const Result<std::string> bytes = ReadWholeFile(journal_);
  return bytes ? bytes.value() : std::string();
}

size_t ExplorerRig::Count(const std::string& text) const {
  const std::string journal = Journal();
  size_t count = 0;
  for (size_t at = journal.find(text); at != std::string::npos; at = journal.find(text, at + 1)) {
    ++count;
  }
  return count;
}

std::string ExplorerRig::LineAfter(const std::string& prefix) const {
  // Built up rather than "\n" + text, which GCC 12 takes for an overlapping copy.
  std::string journal(1, '\n');
  journal += Journal();
  std::string line(1, '\n');
  line += prefix;
  const size_t at = journal.find(line);
  if (at == std::string::npos) return {};
  const size_t start = at + line.size();
  return journal.substr(start, journal.find('\n', start) - start);
}

bool ExplorerRig::WaitFor(const std::string& text, size_t count, unsigned timeoutMs) const {
  const ULONGLONG deadline = ::GetTickCount64() + timeoutMs;
  while (Count(text) < count) {
    if (::GetTickCount64() >= deadline) return false;
    ::Sleep(20);
  }
  return true;
}

}  // namespace cmr::e2e

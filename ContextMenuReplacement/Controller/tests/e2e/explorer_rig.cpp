#include "tests/e2e/explorer_rig.h"

#include <gtest/gtest.h>
#include <tlhelp32.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "explorer/explorer_discovery.h"
#include "explorer/hook_channel.h"
#include "tests/support/child_process.h"

namespace cmr::e2e {

namespace {

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
    ::SendMessageTimeoutW(window, message, hook_command::kShutdown, 0, SMTO_ABORTIFHUNG, 2000,
                          nullptr);
  }
}

constexpr wchar_t kShellWindowsServerKey[] =
    L"Software\\Classes\\CLSID\\{9BA05972-F6A8-11CF-A442-00A0C90A8F39}\\InprocServer32";

std::wstring ShellWindowsServer() {
  wchar_t value[MAX_PATH] = {};  // stays empty when there is none
  DWORD size = sizeof(value);
  ::RegGetValueW(HKEY_LOCAL_MACHINE, kShellWindowsServerKey, nullptr, RRF_RT_REG_SZ, nullptr, value,
                 &size);
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
  EXPECT_TRUE(WaitUntil([] { return !AnyStandInProcess(); }, 20000))
      << "a stand-in Explorer did not leave";
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

DWORD ExplorerRig::StartShell(const std::vector<std::wstring>& args,
                              const std::wstring& nextShells) {
  const std::wstring shell = ShellPath();
  // A shell an earlier test left starting cannot be overwritten, and needs not be.
  EXPECT_TRUE(ReadBytes(shell) == ReadBytes(Explorer()) ||
              ::CopyFileW(Explorer().c_str(), shell.c_str(), FALSE))
      << "could not put the stand-in at " << ToUtf8(shell) << ": " << ::GetLastError();
  const std::wstring standIn = JoinPath(Folder(), L"stand_in_shell_windows.dll");
  if (replacedServer_.empty()) replacedServer_ = ShellWindowsServer();
  // A run stopped halfway left the stand-in registered: what it replaced was Wine's own.
  if (EqualsIgnoreCase(replacedServer_, standIn)) {
    replacedServer_ = L"C:\\windows\\system32\\ieframe.dll";
  }
  EXPECT_FALSE(replacedServer_.empty());
  SetShellWindowsServer(standIn);
  ::SetEnvironmentVariableW(L"CMR_RIG_EXPLORER", nextShells.c_str());
  return Start(args, shell);
}

DWORD ExplorerRig::Start(const std::vector<std::wstring>& args, const std::wstring& image) {
  Child child = StartChild(image, args);
  if (!child) {
    ADD_FAILURE() << "could not start " << ToUtf8(image) << ": " << ::GetLastError();
    return 0;
  }
  started_.push_back(std::move(child.process));
  EXPECT_TRUE(WaitFor("ready " + Pid(child.id))) << Journal();
  return child.id;
}

std::string ExplorerRig::Journal() const {
  return ReadBytes(journal_);
}

bool ExplorerRig::WaitFor(const std::string& text, size_t count, unsigned timeoutMs) const {
  return WaitUntil([&] { return Count(text) >= count; }, timeoutMs);
}

}  // namespace cmr::e2e

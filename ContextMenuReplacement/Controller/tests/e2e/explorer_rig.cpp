#include "tests/e2e/explorer_rig.h"

#include <gtest/gtest.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
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

bool AnyStandInWindow() {
  return ::FindWindowW(L"Progman", nullptr) || ::FindWindowW(L"CabinetWClass", nullptr);
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
  const ULONGLONG deadline = ::GetTickCount64() + 10000;
  while (AnyStandInWindow() && ::GetTickCount64() < deadline) ::Sleep(50);
  EXPECT_FALSE(AnyStandInWindow()) << "a stand-in Explorer did not leave";
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
  wchar_t windows[MAX_PATH] = {};
  ::GetWindowsDirectoryW(windows, MAX_PATH);
  const std::wstring shell = JoinPath(windows, L"explorer.exe");
  ASSERT_TRUE(::CopyFileW(Explorer().c_str(), shell.c_str(), FALSE))
      << "could not put the stand-in at " << ToUtf8(shell) << ": " << ::GetLastError();
}

void ExplorerRig::SetShellOptions(const std::wstring& options) {
  ::SetEnvironmentVariableW(L"CMR_RIG_EXPLORER", options.c_str());
}

DWORD ExplorerRig::Start(const std::vector<std::wstring>& args, const std::wstring& image) {
  std::wstring line = Quote(image);
  for (const std::wstring& arg : args) line += L" " + Quote(arg);
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
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

bool ExplorerRig::WaitFor(const std::string& text, size_t count, unsigned timeoutMs) const {
  const ULONGLONG deadline = ::GetTickCount64() + timeoutMs;
  while (Count(text) < count) {
    if (::GetTickCount64() >= deadline) return false;
    ::Sleep(20);
  }
  return true;
}

}  // namespace cmr::e2e

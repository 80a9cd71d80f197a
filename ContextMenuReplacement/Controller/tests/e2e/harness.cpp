#include "tests/e2e/harness.h"

#include <gtest/gtest.h>

#include <mutex>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "tests/support/staged_install.h"
#include "common/text.h"

namespace cmr::e2e {

namespace {

std::wstring QuoteArgument(const std::wstring& arg) {
  if (!arg.empty() && arg.find_first_of(L" \t\"") == std::wstring::npos) return arg;
  // CommandLineToArgvW rules: backslashes double only before a quote.
  std::wstring out = L"\"";
  size_t backslashes = 0;
  for (const wchar_t c : arg) {
    if (c == L'\\') {
      ++backslashes;
      continue;
    }
    out.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
    backslashes = 0;
    out += c;
  }
  out.append(backslashes * 2, L'\\');
  out += L'"';
  return out;
}

std::wstring CommandLine(const std::wstring& exePath, const std::vector<std::wstring>& args) {
  std::wstring line = QuoteArgument(exePath);
  for (const std::wstring& arg : args) line += L" " + QuoteArgument(arg);
  return line;
}

// Starts the controller with standard output on a new pipe; returns the read end.
UniqueHandle Start(const std::wstring& exePath, const std::vector<std::wstring>& args,
                   UniqueHandle& process) {
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  if (!::CreatePipe(&readEnd, &writeEnd, &inherit, 0)) return {};
  UniqueHandle reader(readEnd);
  UniqueHandle writer(writeEnd);
  ::SetHandleInformation(reader.get(), HANDLE_FLAG_INHERIT, 0);
  UniqueHandle nul(::CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                                 OPEN_EXISTING, 0, nullptr));

  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = nul.get();
  startup.hStdOutput = writer.get();
  startup.hStdError = writer.get();
  PROCESS_INFORMATION info{};
  std::wstring line = CommandLine(exePath, args);
  // Under a loaded machine Wine now and then refuses a process start that succeeds a moment
  // later; a test is about the controller, not about that.
  bool started = false;
  for (int attempt = 0; attempt < 5 && !started; ++attempt) {
    if (attempt != 0) ::Sleep(200);
    started = ::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                               ParentFolder(exePath).c_str(), &startup, &info);
  }
  if (!started) {
    ADD_FAILURE() << "could not start the controller: error " << ::GetLastError();
    return {};
  }
  ::CloseHandle(info.hThread);
  process.reset(info.hProcess);
  return reader;
}

}  // namespace

std::wstring InstallFolder() {
  return StagedInstallFolder();
}

std::wstring ControllerPath() {
  return JoinPath(InstallFolder(), L"ContextMenuReplacement.Controller.exe");
}

RunResult RunController(const std::vector<std::wstring>& args, DWORD timeoutMs) {
  return RunControllerAt(ControllerPath(), args, timeoutMs);
}

RunResult RunControllerAt(const std::wstring& exePath, const std::vector<std::wstring>& args,
                          DWORD timeoutMs) {
  RunResult result;
  UniqueHandle process;
  UniqueHandle reader = Start(exePath, args, process);
  if (!reader) return result;
  // Read until the child closes its end; the pipe's write end was ours only until the child
  // inherited it, so end-of-file comes when the child exits.
  char buffer[4096];
  DWORD got = 0;
  while (::ReadFile(reader.get(), buffer, sizeof(buffer), &got, nullptr) && got > 0) {
    result.output.append(buffer, got);
  }
  if (::WaitForSingleObject(process.get(), timeoutMs) != WAIT_OBJECT_0) {
    ::TerminateProcess(process.get(), 0xDEAD);
  }
  ::GetExitCodeProcess(process.get(), &result.exitCode);
  return result;
}

struct RunningController::Shared {
  std::mutex mutex;
  std::string output;
  HANDLE pipe = nullptr;
};

namespace {

DWORD WINAPI ReadLoop(void* context) {
  auto* shared = static_cast<RunningController::Shared*>(context);
  char buffer[4096];
  DWORD got = 0;
  while (::ReadFile(shared->pipe, buffer, sizeof(buffer), &got, nullptr) && got > 0) {
    std::lock_guard lock(shared->mutex);
    shared->output.append(buffer, got);
  }
  return 0;
}

}  // namespace

RunningController::RunningController(const std::vector<std::wstring>& args) : shared_(new Shared) {
  UniqueHandle reader = Start(ControllerPath(), args, process_);
  shared_->pipe = reader.release();
  if (shared_->pipe) readThread_.reset(::CreateThread(nullptr, 0, ReadLoop, shared_, 0, nullptr));
}

RunningController::~RunningController() {
  Stop();
  if (shared_->pipe) ::CloseHandle(shared_->pipe);
  delete shared_;
}

void RunningController::Stop() {
  if (process_) {
    ::TerminateProcess(process_.get(), 0);
    ::WaitForSingleObject(process_.get(), 10000);
    process_.reset();
  }
  if (readThread_) {
    ::WaitForSingleObject(readThread_.get(), 10000);
    readThread_.reset();
  }
}

bool RunningController::WaitForOutput(const std::string& text, DWORD timeoutMs, size_t from) {
  const ULONGLONG deadline = ::GetTickCount64() + timeoutMs;
  for (;;) {
    {
      std::lock_guard lock(shared_->mutex);
      if (shared_->output.size() >= from && shared_->output.find(text, from) != std::string::npos) {
        return true;
      }
    }
    if (::GetTickCount64() >= deadline) return false;
    ::Sleep(20);
  }
}

std::string RunningController::Output() {
  std::lock_guard lock(shared_->mutex);
  return shared_->output;
}

void DeleteTree(const std::wstring& folder) {
  WIN32_FIND_DATAW data{};
  UniqueFind find(::FindFirstFileW(JoinPath(folder, L"*").c_str(), &data));
  if (find) {
    do {
      const std::wstring name = data.cFileName;
      if (name == L"." || name == L"..") continue;
      const std::wstring path = JoinPath(folder, name);
      if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
        DeleteTree(path);
      } else {
        ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        ::DeleteFileW(path.c_str());
      }
    } while (::FindNextFileW(find.get(), &data));
  }
  ::RemoveDirectoryW(folder.c_str());
}

void ResetUserData() {
  DeleteTree(JoinPath(DataRoot(), L"Orvanta"));
}

std::string ReadBytes(const std::wstring& path) {
  const Result<std::string> bytes = ReadWholeFile(path);
  return bytes ? bytes.value() : "<unreadable>";
}

void WriteBytes(const std::wstring& path, const std::string& bytes) {
  (void)EnsureDirectories(ParentFolder(path));
  (void)AtomicWriteFile(path, bytes);
}

std::wstring ScratchFolder(const std::wstring& name) {
  wchar_t temp[MAX_PATH + 1] = {};
  ::GetTempPathW(MAX_PATH, temp);
  const std::wstring folder = JoinPath(JoinPath(temp, L"cmr-e2e"), name);
  DeleteTree(folder);
  (void)EnsureDirectories(folder);
  return folder;
}

std::string Lines(const std::vector<std::string>& lines) {
  std::string out;
  for (const std::string& line : lines) out += line + "\n";
  return out;
}

}  // namespace cmr::e2e

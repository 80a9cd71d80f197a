#include "tests/e2e/harness.h"

#include <gtest/gtest.h>

#include <mutex>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "tests/support/child_process.h"
#include "tests/support/golden_file.h"
#include "tests/support/staged_install.h"

namespace cmr::e2e {

std::wstring InstallFolder() {
  return StagedInstallFolder();
}

std::wstring ControllerPath() {
  return JoinPath(InstallFolder(), L"ContextMenuReplacement.Controller.exe");
}

std::wstring ControllerCopy(const std::wstring& folderName,
                            const std::vector<std::wstring>& beside) {
  const std::wstring folder = ScratchFolder(folderName);
  const std::wstring exe = JoinPath(folder, L"ContextMenuReplacement.Controller.exe");
  EXPECT_TRUE(::CopyFileW(ControllerPath().c_str(), exe.c_str(), FALSE));
  for (const std::wstring& file : beside) {
    const bool relative = file.size() < 2 || file[1] != L':';
    const std::wstring to = JoinPath(folder, relative ? file : std::wstring(FileNameOf(file)));
    EXPECT_TRUE(EnsureDirectories(ParentFolder(to)).ok());
    EXPECT_TRUE(
        ::CopyFileW((relative ? JoinPath(InstallFolder(), file) : file).c_str(), to.c_str(), FALSE))
        << ToUtf8(file);
  }
  return exe;
}

RunResult RunController(const std::vector<std::wstring>& args, DWORD timeoutMs) {
  return RunControllerAt(ControllerPath(), args, timeoutMs);
}

RunResult RunControllerAt(const std::wstring& exePath, const std::vector<std::wstring>& args,
                          DWORD timeoutMs, const std::string& input,
                          const std::function<void()>& beforeItRuns) {
  RunningController running(args, exePath, input, beforeItRuns);
  const DWORD exitCode = running.Wait(timeoutMs);
  running.Stop();
  return {exitCode, running.Output()};
}

struct RunningController::Shared {
  std::mutex mutex;
  std::string output;
  UniqueHandle pipe;
};

RunningController::RunningController(const std::vector<std::wstring>& args,
                                     const std::wstring& exePath, const std::string& input,
                                     const std::function<void()>& beforeItRuns)
    : shared_(new Shared) {
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  UniqueHandle writer, inputReader, inputWriter;
  if (!::CreatePipe(shared_->pipe.put(), writer.put(), &inherit, 0)) return;
  ::SetHandleInformation(shared_->pipe.get(), HANDLE_FLAG_INHERIT, 0);
  if (!input.empty()) {
    // Large enough that the whole input fits before the child reads any of it.
    if (!::CreatePipe(inputReader.put(), inputWriter.put(), &inherit, 1 << 16)) return;
    ::SetHandleInformation(inputWriter.get(), HANDLE_FLAG_INHERIT, 0);
    DWORD written = 0;
    ::WriteFile(inputWriter.get(), input.data(), static_cast<DWORD>(input.size()), &written,
                nullptr);
  }
  const std::wstring folder = ParentFolder(exePath);
  Child child = StartChild(exePath, args,
                           {inputReader.get(), writer.get(), bool(beforeItRuns), folder.c_str()});
  if (!child) {
    ADD_FAILURE() << "could not start " << ToUtf8(exePath) << ": error " << ::GetLastError();
    return;
  }
  if (beforeItRuns) {
    beforeItRuns();
    ::ResumeThread(child.thread.get());
  }
  process_ = std::move(child.process);
  // The child holds its own copies of the pipe ends now; closing ours (on the way out) is what
  // ends its input and lets the reader see the end of its output when it exits.
  const auto readLoop = [](void* context) -> DWORD {
    auto* shared = static_cast<Shared*>(context);
    char buffer[4096];
    DWORD got = 0;
    while (::ReadFile(shared->pipe.get(), buffer, sizeof(buffer), &got, nullptr) && got > 0) {
      std::lock_guard lock(shared->mutex);
      shared->output.append(buffer, got);
    }
    return 0;
  };
  readThread_.reset(::CreateThread(nullptr, 0, readLoop, shared_, 0, nullptr));
}

RunningController::~RunningController() {
  Stop();
  delete shared_;
}

void RunningController::Stop() {
  // Once stopped (or never started) the handles are empty and every call here fails harmlessly.
  ::TerminateProcess(process_.get(), 0xDEAD);
  ::WaitForSingleObject(process_.get(), 10000);
  process_.reset();
  ::WaitForSingleObject(readThread_.get(), 10000);
  readThread_.reset();
}

DWORD RunningController::Wait(DWORD timeoutMs) {
  DWORD code = 0xFFFFFFFF;
  if (process_ && ::WaitForSingleObject(process_.get(), timeoutMs) == WAIT_OBJECT_0) {
    ::GetExitCodeProcess(process_.get(), &code);
  }
  return code;
}

bool RunningController::WaitForOutput(const std::string& text, DWORD timeoutMs, size_t from) {
  return WaitUntil([&] { return Output().find(text, from) != std::string::npos; }, timeoutMs);
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

std::string Golden(const std::wstring& name) {
  return ReadBytes(GoldenFile(name));
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

bool WaitUntil(const std::function<bool()>& done, DWORD timeoutMs) {
  const ULONGLONG deadline = ::GetTickCount64() + timeoutMs;
  while (!done()) {
    if (::GetTickCount64() >= deadline) return false;
    ::Sleep(20);
  }
  return true;
}

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

size_t Count(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

}  // namespace cmr::e2e

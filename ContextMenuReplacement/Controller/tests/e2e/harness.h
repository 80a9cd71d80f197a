#pragma once
// Runs the real controller as a child process, the way the Settings application does: output
// through a pipe, exit code from the process.

#include <cstdint>
#include <string>
#include <vector>

#include "common/unique_handle.h"

namespace cmr::e2e {

struct RunResult {
  DWORD exitCode = 0xFFFFFFFF;
  std::string output;  // the bytes written to standard output (UTF-8)
};

// The staged install tree: the exe with Content and Schema beside it.
std::wstring InstallFolder();
std::wstring ControllerPath();

RunResult RunController(const std::vector<std::wstring>& args, DWORD timeoutMs = 60000);
// The same with a copy of the controller at another path (an installation missing a file).
RunResult RunControllerAt(const std::wstring& exePath, const std::vector<std::wstring>& args,
                          DWORD timeoutMs = 60000);

// A controller that keeps running (config watch); its output is collected by a reader thread.
class RunningController {
 public:
  explicit RunningController(const std::vector<std::wstring>& args);
  ~RunningController();
  RunningController(const RunningController&) = delete;
  RunningController& operator=(const RunningController&) = delete;

  // Waits until the collected output contains `text` (counting from byte `from`), up to the
  // time limit. Returns whether it appeared.
  bool WaitForOutput(const std::string& text, DWORD timeoutMs, size_t from = 0);
  std::string Output();
  void Stop();

  struct Shared;

 private:
  UniqueHandle process_;
  UniqueHandle readThread_;
  Shared* shared_;
};

// Removes the per-user product data (<LocalAppData>\Orvanta) so each test starts clean.
void ResetUserData();
// Deletes a folder tree; a missing folder is fine.
void DeleteTree(const std::wstring& folder);

std::string ReadBytes(const std::wstring& path);
void WriteBytes(const std::wstring& path, const std::string& bytes);

// A scratch folder for a test's own files, emptied on creation.
std::wstring ScratchFolder(const std::wstring& name);

// The output with every "\n" turned into the platform-neutral expectation (the controller
// writes bare line feeds; this only exists to make failures readable).
std::string Lines(const std::vector<std::string>& lines);

}  // namespace cmr::e2e

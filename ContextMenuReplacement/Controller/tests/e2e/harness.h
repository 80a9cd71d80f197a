#pragma once
// Runs the real controller as a child process, the way the Settings application does: output
// through a pipe, exit code from the process.

#include <functional>
#include <string>
#include <vector>

#include "common/unique_handle.h"

namespace cmr::e2e {

struct RunResult {
  DWORD exitCode = 0xFFFFFFFF;
  std::string output;  // the bytes written to standard output (UTF-8)
  // A run stands for its output where the output is searched (Has, Count).
  operator const std::string&() const { return output; }
};

// The staged install tree: the exe with Content and Schema beside it.
std::wstring InstallFolder();
std::wstring ControllerPath();

// A copy of the controller in the scratch folder `folderName` (an installation missing a file)
// with `beside` copied too: a relative path from the install folder to the same place beside the
// copy, an absolute one beside the copy under its own name.
std::wstring ControllerCopy(const std::wstring& folderName,
                            const std::vector<std::wstring>& beside = {});

RunResult RunController(const std::vector<std::wstring>& args, DWORD timeoutMs = 60000);
// The same with another exe (a controller copy), with `input` on standard input through a pipe
// that ends after it (NUL when empty), and with `beforeItRuns` called while the process exists
// but has not run yet.
RunResult RunControllerAt(const std::wstring& exePath, const std::vector<std::wstring>& args,
                          DWORD timeoutMs = 60000, const std::string& input = {},
                          const std::function<void()>& beforeItRuns = {});

// A controller that keeps running (config watch); its output is collected by a reader thread.
class RunningController {
 public:
  explicit RunningController(const std::vector<std::wstring>& args,
                             const std::wstring& exePath = ControllerPath(),
                             const std::string& input = {},
                             const std::function<void()>& beforeItRuns = {});
  ~RunningController();
  RunningController(const RunningController&) = delete;
  RunningController& operator=(const RunningController&) = delete;

  // Waits until the collected output contains `text` (counting from byte `from`), up to the
  // time limit. Returns whether it appeared.
  bool WaitForOutput(const std::string& text, DWORD timeoutMs, size_t from = 0);
  std::string Output();
  // Waits for the controller to end by itself; its exit code, or 0xFFFFFFFF after the time limit.
  DWORD Wait(DWORD timeoutMs);
  // Ends the controller if it still runs and collects the rest of its output.
  void Stop();

 private:
  struct Shared;
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
// A data file kept beside the tests in golden/: expected bytes or an input document.
std::string Golden(const std::wstring& name);

// A scratch folder for a test's own files, emptied on creation.
std::wstring ScratchFolder(const std::wstring& name);

// Polls `done` until it holds or the time limit passes; returns whether it held.
bool WaitUntil(const std::function<bool()>& done, DWORD timeoutMs);

// Whether `text` holds `part`, and how many times (overlapping occurrences included).
bool Has(const std::string& text, const std::string& part);
size_t Count(const std::string& text, const std::string& part);

}  // namespace cmr::e2e

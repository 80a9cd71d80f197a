#pragma once
// Starts a program for a test, a benchmark or a stand-in: arguments quoted so that
// CommandLineToArgvW gives them back unchanged, standard handles chosen by the caller and NUL
// for the rest (so nothing the child starts in turn, Wine's desktop process for one, can hold a
// caller's pipe open), optionally suspended, in a chosen working folder.

#include <string>
#include <vector>

#include "common/unique_handle.h"

namespace cmr {

struct ChildOptions {
  HANDLE input = nullptr;           // nullptr: NUL
  HANDLE output = nullptr;          // standard output and error; nullptr: NUL
  bool suspended = false;           // the caller resumes `thread`
  const wchar_t* folder = nullptr;  // nullptr: the caller's working folder
};

struct Child {
  UniqueHandle process;
  UniqueHandle thread;
  DWORD id = 0;
  explicit operator bool() const { return process.valid(); }
};

inline std::wstring QuoteArgument(const std::wstring& arg) {
  // Backslashes double only before a quote.
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

// `line` is the whole command line, program first. Empty when the program cannot be started;
// GetLastError() then says why.
inline Child StartCommandLine(std::wstring line, const ChildOptions& options = {}) {
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  UniqueHandle nul(::CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, OPEN_EXISTING, 0,
                                 nullptr));
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = options.input != nullptr ? options.input : nul.get();
  startup.hStdOutput = startup.hStdError = options.output != nullptr ? options.output : nul.get();
  PROCESS_INFORMATION info{};
  // Under a loaded machine Wine now and then refuses a process start that succeeds a moment
  // later; a test is about the program, not about that.
  bool started = false;
  for (int attempt = 0; attempt < 5 && !started; ++attempt) {
    if (attempt != 0) ::Sleep(200);
    started = ::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE,
                               options.suspended ? CREATE_SUSPENDED : 0, nullptr, options.folder,
                               &startup, &info);
  }
  if (!started) return {};
  return {UniqueHandle(info.hProcess), UniqueHandle(info.hThread), info.dwProcessId};
}

inline Child StartChild(const std::wstring& exe, const std::vector<std::wstring>& args = {},
                        const ChildOptions& options = {}) {
  std::wstring line = QuoteArgument(exe);
  for (const std::wstring& arg : args) line += L" " + QuoteArgument(arg);
  return StartCommandLine(std::move(line), options);
}

}  // namespace cmr

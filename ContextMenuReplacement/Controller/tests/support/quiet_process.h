#pragma once
// Starts a program with every standard handle on NUL, as the Settings application starts the
// controller with its output redirected, and so that nothing the program starts in turn (Wine's
// desktop process, for one) can hold a caller's pipe open.

#include <string>

#include "common/unique_handle.h"

namespace cmr {

// An empty handle when the program cannot be started.
inline UniqueHandle StartQuietly(const std::wstring& exe, const std::wstring& arguments = L"") {
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  UniqueHandle nul(::CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, OPEN_EXISTING, 0,
                                 nullptr));
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = startup.hStdOutput = startup.hStdError = nul.get();
  PROCESS_INFORMATION info{};
  std::wstring line = L"\"" + exe + L"\" " + arguments;
  if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &info)) {
    return {};
  }
  ::CloseHandle(info.hThread);
  return UniqueHandle(info.hProcess);
}

}  // namespace cmr

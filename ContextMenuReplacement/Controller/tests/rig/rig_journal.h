#pragma once
// The rig's journal: one line per event, appended whole by any stand-in process, read by tests.
// Its path comes from the environment (CMR_RIG_JOURNAL), which every stand-in inherits even when
// the controller starts it as the shell.

#include <windows.h>

#include <cstdio>
#include <cwchar>

inline void RigJournal(const char* format, ...) {
  wchar_t path[MAX_PATH];
  if (!::GetEnvironmentVariableW(L"CMR_RIG_JOURNAL", path, MAX_PATH)) return;
  char line[1024];
  va_list args;
  va_start(args, format);
  int length = std::vsnprintf(line, sizeof(line) - 1, format, args);
  va_end(args);
  if (length < 0) return;
  if (length > static_cast<int>(sizeof(line)) - 2) length = sizeof(line) - 2;
  line[length++] = '\n';
  // Wine does not make FILE_APPEND_DATA writes atomic between processes: two stand-ins starting
  // together lost a line to each other. A named mutex serialises the appends.
  HANDLE turn = ::CreateMutexW(nullptr, FALSE, L"CmrRig.JournalAppend");
  if (turn) ::WaitForSingleObject(turn, 5000);
  HANDLE file = ::CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) {
    DWORD written = 0;
    ::WriteFile(file, line, static_cast<DWORD>(length), &written, nullptr);
    ::CloseHandle(file);
  }
  if (turn) {
    ::ReleaseMutex(turn);
    ::CloseHandle(turn);
  }
}

// Set by a test when every stand-in it caused to run should leave.
inline HANDLE RigShutdownEvent() {
  return ::CreateEventW(nullptr, TRUE, FALSE, L"CmrRig.Shutdown");
}

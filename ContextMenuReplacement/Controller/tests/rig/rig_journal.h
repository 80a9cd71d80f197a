#pragma once
// The rig's journal: one line per event, appended whole by any stand-in process, read by tests.
// Its path comes from the environment (CMR_RIG_JOURNAL), which every stand-in inherits even when
// the controller starts it as the shell.

#include <windows.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "common/file_io.h"

inline void RigJournal(const char* format, ...) {
  wchar_t path[MAX_PATH];
  if (!::GetEnvironmentVariableW(L"CMR_RIG_JOURNAL", path, MAX_PATH)) return;
  char line[1024];
  va_list args;
  va_start(args, format);
  const int length = std::vsnprintf(line, sizeof(line), format, args);
  va_end(args);
  if (length < 0) return;
  // The program's own appender: its turn keeps two stand-ins' lines whole under Wine, which does
  // not make append-only writes atomic between processes.
  (void)cmr::AppendToFile(path,
                          std::string(line, std::min<size_t>(length, sizeof(line) - 1)) + "\n");
}

// Set by a test when every stand-in it caused to run should leave.
inline HANDLE RigShutdownEvent() {
  return ::CreateEventW(nullptr, TRUE, FALSE, L"CmrRig.Shutdown");
}

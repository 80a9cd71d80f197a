#pragma once
// Everything the controller does to Explorer starts from one list: the Explorer UI threads that
// own a shell window, in the order the top-level window enumeration meets them.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/win32.h"

namespace cmr {

struct ExplorerThread {
  DWORD threadId = 0;      // the UI thread that owns the window
  DWORD processId = 0;     // the Explorer process
  HWND window = nullptr;   // the first shell window found for that thread
  std::wstring className;  // that window's class
};

// Progman, WorkerW, CabinetWClass or Shell_TrayWnd, compared exactly.
[[nodiscard]] bool IsShellWindowClass(std::wstring_view className) noexcept;
// The image file name, lower-cased unit by unit, is exactly "explorer.exe".
[[nodiscard]] bool IsExplorerImageName(std::wstring_view fileName) noexcept;

// Full image path of a process, queried with limited-information rights; empty when the
// process cannot be opened or read.
[[nodiscard]] std::wstring ProcessImagePath(DWORD processId);

// The file name of a process's image, lower-cased unit by unit; empty when the process cannot
// be opened or read.
[[nodiscard]] std::wstring LowerCaseImageName(DWORD processId);

// Walks every top-level window and keeps the first qualifying window of each Explorer thread.
// Never fails: no Explorer gives an empty list.
[[nodiscard]] std::vector<ExplorerThread> EnumerateExplorer();

// Creation time (FILETIME as a 64-bit count) of each discovered entry's process, one value per
// entry in discovery order; 0 for a process that cannot be opened or read.
[[nodiscard]] std::vector<uint64_t> ExplorerProcessStartTimes();

// The probe verb: prints the list; 0 with at least one entry, 1 with none. Changes nothing.
int RunProbe();

}  // namespace cmr

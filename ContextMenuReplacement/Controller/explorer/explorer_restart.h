#pragma once
// Restarts Explorer for the current session without losing the user's open folder windows and
// without leaving the user without a desktop or taskbar. Every failure before the first
// terminate leaves Explorer untouched; after it the sequence always tries to bring a shell back
// before it reports failure. Progress lines go to the console and the log.

#include <functional>
#include <string>
#include <vector>

#include "common/status.h"
#include "common/win32.h"

namespace cmr {

namespace explorer_restart {
// One open folder window's location, as a parsing name the shell reopens.
struct folder {
  HWND window = nullptr;
  std::wstring location;
};
}  // namespace explorer_restart

using FolderCapture = std::function<Result<std::vector<explorer_restart::folder>>()>;

// The folder windows the shell's window list reports, read through each window's view.
[[nodiscard]] Result<std::vector<explorer_restart::folder>> CaptureFolderWindows();

// False for a null window; else whether WM_NULL came back within 200 ms (block, abort-if-hung).
[[nodiscard]] bool IsResponsive(HWND window);

// Discovers the Explorer processes that host shell windows and restarts them. True when the
// shell came back responsive, even if some folder could not be reopened (a line says so).
[[nodiscard]] bool RestartExplorer();
// The same sequence with another source of the open folder windows.
[[nodiscard]] bool RestartExplorer(const FolderCapture& capture);

// The restart-explorer verb: 0 when the restart succeeded, else 1.
int RunRestartExplorerVerb();

}  // namespace cmr

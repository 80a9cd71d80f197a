#include "explorer/hook_channel.h"

#include <vector>

#include "common/console.h"
#include "common/system_error.h"

namespace cmr {

namespace {

struct HookWindow {
  HWND window;
  DWORD processId;
};

// Message-only windows are not top-level windows: they are found only by searching under
// HWND_MESSAGE, one after the other.
std::vector<HookWindow> HookWindows() {
  std::vector<HookWindow> windows;
  HWND after = nullptr;
  while ((after = ::FindWindowExW(HWND_MESSAGE, after, kHookWindowClass, nullptr)) != nullptr) {
    DWORD processId = 0;
    ::GetWindowThreadProcessId(after, &processId);
    windows.push_back({after, processId});
  }
  return windows;
}

}  // namespace

int SendCommand(uint32_t code, std::wstring_view label, intptr_t argument, DWORD processId) {
  const UINT message = ::RegisterWindowMessageW(kCommandMessageName);
  if (message == 0) {
    const DWORD error = ::GetLastError();
    PrintLine(L"RegisterWindowMessage failed: %s", ErrorText(error));
    return 1;
  }
  size_t delivered = 0;
  for (const HookWindow& target : HookWindows()) {
    if (processId != 0 && target.processId != processId) continue;
    DWORD_PTR reply = 0;
    if (::SendMessageTimeoutW(target.window, message, code, argument, SMTO_ABORTIFHUNG,
                              kHookMessageTimeoutMs, &reply) == 0) {
      PrintLine(L"  pid %lu: %s timed out", target.processId, label);
      continue;
    }
    ++delivered;
  }
  if (delivered == 0) {
    PrintLine(L"No initialized hook found. Run 'enable' first.");
    return 1;
  }
  return 0;
}

}  // namespace cmr

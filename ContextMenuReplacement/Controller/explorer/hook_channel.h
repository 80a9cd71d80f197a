#pragma once
// The Hook is commanded through the message-only window each initialised Hook creates. Every
// send is synchronous, abort-if-hung, with a 5000 ms timeout, so a hung Explorer thread delays
// the controller but never blocks it.

#include <cstdint>
#include <string_view>

#include "common/win32.h"

namespace cmr {

inline constexpr wchar_t kCommandMessageName[] = L"BnlxCmrReplacement.Command";
inline constexpr wchar_t kHookWindowClass[] = L"BnlxCmrReplacementMessageWindow";
inline constexpr UINT kHookMessageTimeoutMs = 5000;

// Command codes (wParam of the command message); the argument travels in lParam.
namespace hook_command {
inline constexpr uint32_t kModuleRescan = 1;
inline constexpr uint32_t kStatus = 2;
inline constexpr uint32_t kShutdown = 3;
inline constexpr uint32_t kTopologyDump = 4;
inline constexpr uint32_t kSuppression = 5;  // 0 off, 1 REGDB_E_CLASSNOTREG, 2 E_FAIL
inline constexpr uint32_t kFlashCounterReset = 6;
inline constexpr uint32_t kContextCapture = 7;  // flags: 1 log, 2 overlay, 4 IShellWindows fallback
inline constexpr uint32_t kReplacementMode = 8;  // 0 off, 2 forced failure, 3 native, 4 modern
inline constexpr uint32_t kCommandDiscovery = 9;
}  // namespace hook_command

// Sends one command to every initialised Hook of `processId` (0: of every process). Prints one
// line per timed-out Hook; 0 when at least one Hook took it, else 1.
int SendCommand(uint32_t code, std::wstring_view label, intptr_t argument, DWORD processId);

}  // namespace cmr

#pragma once
// The Hook is loaded into Explorer through a per-thread window-procedure hook around one
// registered "bootstrap" message, and commanded afterwards through the message-only window each
// initialised Hook creates. Every send is synchronous, abort-if-hung, with a 5000 ms timeout, so
// a hung Explorer thread delays the controller but never blocks it.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/status.h"
#include "common/unique_handle.h"

namespace cmr {

inline constexpr wchar_t kHookModuleFileName[] =
    L"Brenlow.ContextMenuReplacement.Hook.1.0.10.0.dll";
inline constexpr char kBootstrapProcedureName[] = "replacement_bootstrap_procedure";
inline constexpr wchar_t kBootstrapMessageName[] = L"BnlxCmrReplacement.BootstrapInit";
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

// The Hook loaded into the controller's own process, freed when the owner goes.
struct HookModule {
  UniqueHmodule module;
  HOOKPROC bootstrap = nullptr;
  UINT bootstrapMessage = 0;
};

// Loads the Hook from the controller's own folder. On failure the message is the line to print
// ("Could not load %s: %s", the missing export, the failed registration) and nothing stays loaded.
[[nodiscard]] Result<HookModule> LoadHook();

// Hooks one Explorer thread around one bootstrap send and unhooks at once; prints its own
// failure line. True when the bootstrap message was delivered.
[[nodiscard]] bool EnrolThread(const HookModule& hook, DWORD threadId, HWND window);

// True for a module file name of any Hook build ("Brenlow.ContextMenuReplacement.Hook*.dll",
// ASCII letters compared case-insensitively) that is not this build's Hook.
[[nodiscard]] bool IsEarlierBuildHookName(std::wstring_view moduleFileName) noexcept;
// Whether that process has such a module loaded; false when its module list is unreadable.
[[nodiscard]] bool EarlierBuildHookLoaded(DWORD processId);

// Whether a module of an earlier Hook build is loaded in any discovered Explorer process: this
// build's Hook stays inert beside it until Explorer restarts.
[[nodiscard]] bool EarlierBuildHookLoaded();

// Sends one command to every initialised Hook of `processId` (0: of every process). Prints one
// line per timed-out Hook; 0 when at least one Hook took it, else 1.
int SendCommand(uint32_t code, std::wstring_view label, intptr_t argument, DWORD processId);

// What the post-enrolment step resends, as read from the lifecycle state.
struct EnrolmentResend {
  bool refusalArmed = false;             // feature enabled with the activation-refusal strategy
  std::optional<DWORD> replacementMode;  // LastReplacementMode when stored as a REG_DWORD
};

// Brings newly enrolled Hooks of `processId` (0: all) up to the recorded modes; 0 or 1.
int PostEnrolment(DWORD processId, const EnrolmentResend& resend);
// The same, with what the lifecycle state records.
int PostEnrolment(DWORD processId);

// Loads the Hook into every Explorer UI thread, warns about an earlier build still loaded, and
// runs the post-enrolment step for every process; 0 or 1. Used by `enable` and the inject verb.
int Inject();

}  // namespace cmr

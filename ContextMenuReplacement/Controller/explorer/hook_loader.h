#pragma once
// The Hook is loaded into Explorer through a per-thread window-procedure hook around one
// registered "bootstrap" message; once there it pins itself and creates its command window.

#include "common/status.h"
#include "common/unique_handle.h"

namespace cmr {

inline constexpr wchar_t kHookModuleFileName[] =
    L"Brenlow.ContextMenuReplacement.Hook.1.0.10.0.dll";
inline constexpr char kBootstrapProcedureName[] = "replacement_bootstrap_procedure";
inline constexpr wchar_t kBootstrapMessageName[] = L"BnlxCmrReplacement.BootstrapInit";

// The Hook loaded into the controller's own process, freed when the owner goes.
struct HookModule {
  UniqueHmodule module;
  HOOKPROC bootstrap = nullptr;
  UINT bootstrapMessage = 0;
};

// Loads the Hook from the controller's own folder. On failure the message is the line to print
// ("Could not load %s: %s", the missing export, the failed registration) and nothing stays loaded.
[[nodiscard]] Result<HookModule> LoadHook();

// Hooks one Explorer thread around one bootstrap send and unhooks at once. Fails with the
// indented line that names the thread and what went wrong.
[[nodiscard]] Status EnrolThread(const HookModule& hook, DWORD threadId, HWND window);

// Loads the Hook into every Explorer UI thread, warns about an earlier build still loaded, and
// runs the post-enrolment step for every process; 0 or 1. Used by `enable` and the inject verb.
int Inject();

}  // namespace cmr

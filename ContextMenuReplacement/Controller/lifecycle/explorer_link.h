#pragma once
// What the lifecycle verbs need from Explorer control, as a handful of operations with a plain
// result. They stand between the lifecycle decisions and explorer/ so those decisions read as
// one sequence and the Explorer side can change without touching them.

#include <cstdint>
#include <vector>

namespace cmr {

struct HookCommand {
  uint32_t code;
  const wchar_t* label;
  uint32_t argument;
};
inline constexpr HookCommand kHookStatusCommand{2, L"status", 0};
inline constexpr HookCommand kHookShutdownCommand{3, L"shutdown", 0};

// Creation FILETIMEs of the discovered Explorer processes in discovery order; 0 for one whose
// time could not be read. Empty when Explorer is not running.
[[nodiscard]] std::vector<uint64_t> ExplorerStartTimes();
[[nodiscard]] size_t ExplorerUiThreadCount();
// The Explorer restart; false when it failed (its own lines say why).
[[nodiscard]] bool RestartExplorerShell();
// Loads the Hook into every Explorer UI thread; 0 or the enrolment's non-zero result.
[[nodiscard]] int InjectHook();
// An earlier build's Hook is loaded in Explorer.
[[nodiscard]] bool EarlierBuildHookInExplorer();
// Switches every Hook to the native adapter plus first-party modern commands and records that
// mode for later repairs, as the replacement verb does for "modern"; its result.
[[nodiscard]] int SendModernReplacementMode();
// To every Hook process: 0 delivered to at least one, 1 otherwise.
[[nodiscard]] int SendHookCommand(const HookCommand& command);

}  // namespace cmr

#pragma once
// What the lifecycle verbs and the repair run need from Explorer, as one interface. The shipped
// link drives explorer/; a test installs its own to fail any single Explorer step of enable,
// disable or reconcile in-process and look at what the lifecycle left behind.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace cmr {

struct HookCommand {
  uint32_t code;
  const wchar_t* label;
  uint32_t argument;
};

class ExplorerLink {
 public:
  virtual ~ExplorerLink() = default;
  // Creation FILETIMEs of the discovered Explorer processes in discovery order; 0 for one whose
  // time could not be read. Empty when Explorer is not running.
  [[nodiscard]] virtual std::vector<uint64_t> StartTimes() = 0;
  [[nodiscard]] virtual size_t UiThreadCount() = 0;
  // The Explorer restart; false when it failed (its own lines say why).
  [[nodiscard]] virtual bool RestartShell() = 0;
  // Loads the Hook into every Explorer UI thread; 0 or the enrolment's non-zero result.
  [[nodiscard]] virtual int InjectHook() = 0;
  // An earlier build's Hook is loaded in Explorer.
  [[nodiscard]] virtual bool EarlierBuildHookLoaded() = 0;
  // Switches every Hook to the native adapter plus first-party modern commands and records that
  // mode for later repairs, as the replacement verb does for "modern"; its result.
  [[nodiscard]] virtual int SendModernReplacementMode() = 0;
  // To every Hook process: 0 delivered to at least one, 1 otherwise.
  [[nodiscard]] virtual int Send(const HookCommand& command) = 0;
};

[[nodiscard]] HookCommand HookStatusCommand() noexcept;
[[nodiscard]] HookCommand HookShutdownCommand() noexcept;

// The link in use: the shipped one unless a test installed another. Null puts the shipped one
// back.
[[nodiscard]] ExplorerLink& CurrentExplorerLink() noexcept;
void SetExplorerLink(ExplorerLink* link) noexcept;

}  // namespace cmr

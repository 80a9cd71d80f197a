#pragma once
// Hooks of an earlier build: Explorer keeps a loaded Hook until it restarts, and this build's
// Hook stays inert beside one.

#include <string_view>
#include <vector>

#include "common/win32.h"
#include "explorer/explorer_discovery.h"

namespace cmr {

// True for a module file name of any Hook build ("Brenlow.ContextMenuReplacement.Hook*.dll",
// ASCII letters compared case-insensitively) that is not this build's Hook.
[[nodiscard]] bool IsEarlierBuildHookName(std::wstring_view moduleFileName) noexcept;
// Whether that process has such a module loaded; false when its module list is unreadable.
[[nodiscard]] bool EarlierBuildHookLoaded(DWORD processId);

// Whether a module of an earlier Hook build is loaded in any discovered Explorer process: this
// build's Hook stays inert beside it until Explorer restarts.
[[nodiscard]] bool EarlierBuildHookLoaded();

// The same over the processes of these threads, each process looked at once.
[[nodiscard]] bool AnyEarlierBuildLoaded(const std::vector<ExplorerThread>& threads);

}  // namespace cmr

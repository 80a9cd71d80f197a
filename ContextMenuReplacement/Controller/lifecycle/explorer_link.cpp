#include "lifecycle/explorer_link.h"

#include "explorer/explorer_discovery.h"
#include "explorer/explorer_restart.h"
#include "explorer/hook_channel.h"
#include "explorer/mode_verbs.h"

namespace cmr {

std::vector<uint64_t> ExplorerStartTimes() {
  return ExplorerProcessStartTimes();
}

size_t ExplorerUiThreadCount() {
  return EnumerateExplorer().size();
}

bool RestartExplorerShell() {
  return RestartExplorer();
}

int InjectHook() {
  return Inject();
}

bool EarlierBuildHookInExplorer() {
  return EarlierBuildHookLoaded();
}

int SendModernReplacementMode() {
  return RunReplacementVerb(L"modern");
}

int SendHookCommand(const HookCommand& command) {
  return SendCommand(command.code, command.label, command.argument, 0);
}

}  // namespace cmr

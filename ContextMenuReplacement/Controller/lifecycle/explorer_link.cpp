#include "lifecycle/explorer_link.h"

#include <atomic>

#include "explorer/explorer_discovery.h"
#include "explorer/explorer_restart.h"
#include "explorer/hook_builds.h"
#include "explorer/hook_channel.h"
#include "explorer/hook_loader.h"
#include "explorer/mode_verbs.h"

namespace cmr {

namespace {

class ShippedExplorerLink final : public ExplorerLink {
 public:
  std::vector<uint64_t> StartTimes() override { return ExplorerProcessStartTimes(); }
  size_t UiThreadCount() override { return EnumerateExplorer().size(); }
  bool RestartShell() override { return RestartExplorer(); }
  int InjectHook() override { return Inject(); }
  bool EarlierBuildHookLoaded() override { return cmr::EarlierBuildHookLoaded(); }
  int SendModernReplacementMode() override { return RunReplacementVerb(L"modern"); }
  int Send(const HookCommand& command) override {
    return SendCommand(command.code, command.label, command.argument, 0);
  }
};

ShippedExplorerLink g_shipped;
std::atomic<ExplorerLink*> g_installed{nullptr};

}  // namespace

HookCommand HookStatusCommand() noexcept {
  return {hook_command::kStatus, L"status", 0};
}

HookCommand HookShutdownCommand() noexcept {
  return {hook_command::kShutdown, L"shutdown", 0};
}

ExplorerLink& CurrentExplorerLink() noexcept {
  ExplorerLink* installed = g_installed.load();
  return installed != nullptr ? *installed : g_shipped;
}

void SetExplorerLink(ExplorerLink* link) noexcept {
  g_installed.store(link);
}

}  // namespace cmr

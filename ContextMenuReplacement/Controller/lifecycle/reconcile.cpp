#include "lifecycle/reconcile.h"

#include "common/console.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/log.h"
#include "config/config_loader.h"
#include "config/settings_file.h"
#include "lifecycle/explorer_link.h"
#include "lifecycle/installer_gate.h"
#include "lifecycle/lifecycle_verbs.h"
#include "lifecycle/suppression_strategy.h"
#include "snapshot/overlay_pipeline.h"
#include "state/lifecycle_state.h"

namespace cmr {

namespace {

bool PublishConfiguration() {
  ConfigPublisher publisher;
  const PublishResult result =
      LoadSettingsFile(SettingsFilePath(), PublishMode::publish, publisher);
  if (result.published) return true;
  PrintLine(L"Reconcile: configuration could not be published.");
  PrintIndentedLines(result.errors);
  return false;
}

bool PublishCustomModel() {
  ModelSources sources{InstalledSchemaPath(), InstalledBaselinePath(), OverlayPath(L"")};
  if (!FileExists(sources.schemaPath) || !FileExists(sources.baselinePath)) {
    PrintLine(L"Reconcile: installed Schema/custom-menu.schema.json or baseline is missing.");
    return false;
  }
  // The user's changes ride along when there are any; without them the baseline stands alone.
  if (!FileExists(sources.overlayPath)) sources.overlayPath.clear();
  const ModelPipelineResult result = PublishWithOverlay(sources, true, SystemFiles());
  if (result.published) return true;
  PrintLine(L"Reconcile: custom menu model could not be published.");
  PrintIndentedLines(result.errors);
  return false;
}

// The restarts a repair may need before the Hook goes in; false when one failed.
bool RestartWhereNeeded(const LifecycleState& state, const ClassicModeReading& reading) {
  // An Explorer that was running before the switch was written never read it and keeps
  // serving the modern menu however long the override has been in place.
  if (state.featureEnabled && reading.keyPresent && reading.valueEmpty &&
      !IsExplorerAlreadyClassic(reading, CurrentExplorerLink().StartTimes())) {
    PrintLine(
        L"Explorer has been running since before this account was switched to classic menus,");
    PrintLine(L"so it is still serving the modern menu. Restarting it...");
    if (!CurrentExplorerLink().RestartShell()) return false;
  }
  // An earlier build's Hook keeps this build's inert until its Explorer goes.
  if (CurrentExplorerLink().EarlierBuildHookLoaded()) {
    PrintLine(
        L"Explorer is still running the Ravelin hook from an earlier build. Restarting it...");
    if (!CurrentExplorerLink().RestartShell()) return false;
  }
  return true;
}

}  // namespace

int RunReconcileVerb(const ReconcileOptions& options) {
  if (InstallerBusy(ReadInstallerFacts())) {
    WriteLogLine(LogLevel::info, L"[reconcile] The installer is at work; reconcile stood aside.");
    return kInstallerBusyExitCode;
  }
  if (!FeatureEnabledInSettings()) {
    PrintLine(L"Reconcile: Ravelin is not enabled in Settings; nothing to do.");
    return 0;
  }
  if (!PublishConfiguration() || !PublishCustomModel()) return 1;

  const LifecycleState state = ReadState();
  const ClassicModeReading reading = ReadClassicMode();
  if (options.allowRestart && !RestartWhereNeeded(state, reading)) return 1;

  int result = 0;
  if (state.featureEnabled) {
    result = CurrentExplorerLink().InjectHook();
  } else {
    EnableOptions enable;
    enable.yes = true;
    enable.force = options.force;
    enable.strategy = SuppressionStrategy::classic;
    enable.restart = options.allowRestart;
    result = RunEnableVerb(enable);
  }
  if (result != 0) return result;
  return CurrentExplorerLink().SendModernReplacementMode();
}

}  // namespace cmr

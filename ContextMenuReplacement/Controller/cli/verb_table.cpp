#include "cli/verb_table.h"

#include "cli/verb_options.h"
#include "common/console.h"
#include "config/config_verbs.h"
#include "diagnostics/classic_icons.h"
#include "diagnostics/command_inventory.h"
#include "diagnostics/dialog_crashes.h"
#include "diagnostics/provider_strikes.h"
#include "explorer/dialog_enrolment.h"
#include "explorer/explorer_discovery.h"
#include "explorer/explorer_restart.h"
#include "explorer/hook_loader.h"
#include "explorer/mode_verbs.h"
#include "lifecycle/boot_restore.h"
#include "lifecycle/install_probe.h"
#include "lifecycle/lifecycle_verbs.h"
#include "lifecycle/reconcile.h"
#include "lifecycle/status_report.h"
#include "snapshot/custom_model_verbs.h"

namespace cmr {

namespace {

// Prints a dispatcher message and gives the argument-error exit code.
int Refuse(const std::wstring& message) {
  Print(L"%s", message);
  return 1;
}

// The handlers below check only what the dispatcher owns (presence of a mode, option words);
// the words themselves belong to the subsystems.

int EnableVerb(const std::vector<std::wstring>& args) {
  EnableOptions options;
  if (const Status parsed = ParseEnableOptions(args, options); !parsed) {
    return Refuse(parsed.message());
  }
  return RunEnableVerb(options);
}

int InjectDialogVerb(const std::vector<std::wstring>& args) {
  if (args.empty()) return Refuse(L"inject-dialog needs the dialog's window handle.\n");
  return RunInjectDialogVerb(args[0]);
}

int ReconcileVerb(const std::vector<std::wstring>& args) {
  ReconcileOptions options;
  if (const Status parsed = ParseReconcileOptions(args, options); !parsed) {
    return Refuse(parsed.message());
  }
  return RunReconcileVerb(options);
}

int BootRestoreVerb(const std::vector<std::wstring>&) {
  return RunBootRestoreVerb();
}

int InstallVerb(const std::vector<std::wstring>&) {
  return RunInstallVerb();
}

int UninstallVerb(const std::vector<std::wstring>&) {
  return RunUninstallVerb();
}

int DisableVerb(const std::vector<std::wstring>&) {
  return RunDisableVerb();
}

// Only the word right after the verb is looked at.
int StatusVerb(const std::vector<std::wstring>& args) {
  return RunStatusVerb(!args.empty() && args[0] == L"--json");
}

int SuppressVerb(const std::vector<std::wstring>& args) {
  if (args.empty()) return Refuse(L"suppress needs a mode: off, classnotreg, or efail.\n");
  return RunSuppressVerb(args[0]);
}

int ContextVerb(const std::vector<std::wstring>& args) {
  if (args.empty()) return Refuse(L"context needs a mode: off, log, or overlay.\n");
  return RunContextVerb(args[0], args.size() > 1 && args[1] == L"fallback");
}

int ReplacementVerb(const std::vector<std::wstring>& args) {
  if (args.empty()) return Refuse(L"replacement needs a mode: off, native, modern, or fail.\n");
  return RunReplacementVerb(args[0]);
}

int ProbeVerb(const std::vector<std::wstring>&) {
  return RunProbe();
}

int InjectVerb(const std::vector<std::wstring>&) {
  return Inject();
}

int RestartExplorerVerb(const std::vector<std::wstring>&) {
  return RunRestartExplorerVerb();
}

int TopologyVerb(const std::vector<std::wstring>&) {
  return RunTopologyVerb();
}

int RescanVerb(const std::vector<std::wstring>&) {
  return RunRescanVerb();
}

int ResetFlashVerb(const std::vector<std::wstring>&) {
  return RunResetFlashVerb();
}

int DiscoverVerb(const std::vector<std::wstring>&) {
  return RunDiscoverVerb();
}

int DialogCrashesVerb(const std::vector<std::wstring>& args) {
  return RunDialogCrashesVerb(args);
}

int ProviderStrikesVerb(const std::vector<std::wstring>& args) {
  return RunProviderStrikesVerb(args);
}

int ClassicIconsVerb(const std::vector<std::wstring>&) {
  return RunClassicIconsVerb();
}

int InventoryVerb(const std::vector<std::wstring>& args) {
  return RunInventoryVerb(!args.empty() && args[0] == L"--json");
}

int ConfigVerb(const std::vector<std::wstring>& args) {
  ConfigArguments parsed;
  if (const Status read = ParseConfigArguments(args, parsed); !read) {
    return Refuse(read.message());
  }
  return RunConfigVerb(parsed);
}

int CustomModelVerb(const std::vector<std::wstring>& args) {
  CustomModelArguments parsed;
  if (const Status read = ParseCustomModelArguments(args, parsed); !read) {
    return Refuse(read.message());
  }
  return RunCustomModelVerb(parsed);
}

constexpr VerbRow kVerbs[] = {
    {L"restart-explorer", RestartExplorerVerb},
    {L"probe", ProbeVerb},
    {L"install", InstallVerb},
    {L"enable", EnableVerb},
    {L"inject", InjectVerb},
    {L"inject-dialog", InjectDialogVerb},
    {L"dialog-crashes", DialogCrashesVerb},
    {L"provider-strikes", ProviderStrikesVerb},
    {L"reconcile", ReconcileVerb},
    {L"uninstall", UninstallVerb},
    {L"boot-restore", BootRestoreVerb},
    {L"status", StatusVerb},
    {L"topology", TopologyVerb},
    {L"rescan", RescanVerb},
    {L"resetflash", ResetFlashVerb},
    {L"suppress", SuppressVerb},
    {L"context", ContextVerb},
    {L"replacement", ReplacementVerb},
    {L"classic-icons", ClassicIconsVerb},
    {L"inventory", InventoryVerb},
    {L"config", ConfigVerb},
    {L"custom-model", CustomModelVerb},
    {L"discover", DiscoverVerb},
    {L"disable", DisableVerb},
};

}  // namespace

std::span<const VerbRow> VerbTable() {
  return kVerbs;
}

}  // namespace cmr

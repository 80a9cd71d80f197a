#include "lifecycle/status_report.h"

#include <fmt/xchar.h>

#include "common/console.h"
#include "common/data_paths.h"
#include "common/json_writer.h"
#include "config/config_publisher.h"
#include "lifecycle/boot_restore.h"
#include "lifecycle/explorer_link.h"

namespace cmr {

namespace suppression = context_menu_replacement::suppression;

namespace {

const wchar_t* Bool(bool value) {
  return value ? L"true" : L"false";
}
const wchar_t* YesNo(bool value) {
  return value ? L"yes" : L"no";
}

StatusFacts GatherFacts() {
  StatusFacts facts;
  facts.reading = ReadClassicMode();
  facts.state = ReadState();
  facts.bootRestoreArmed = is_boot_restore_armed();
  ControlReading control;
  if (ReadControl(ControlFilePath(), control)) facts.publishedConfigVersion = control.version;
  return facts;
}

void PrintRecordedState(const LifecycleState& state) {
  PrintLine(L"Recorded state");
  if (!state.present) {
    PrintLine(L"  none - this feature has never been enabled on this account");
    return;
  }
  PrintLine(
      L"  Suppression applied:  %s by %s", YesNo(state.suppressionApplied),
      suppression::strategy_name(static_cast<SuppressionStrategy>(state.suppressionStrategy)));
  PrintLine(L"  Feature enabled:      %s", YesNo(state.featureEnabled));
  PrintLine(L"  Prior preference:     key %s, value '%s'",
            state.priorOverrideKeyPresent ? L"present" : L"absent", state.priorOverrideValue);
  PrintLine(L"  Applied at:           %s", state.suppressionAppliedAt);
  PrintLine(L"  Explorer restarts:    %lu in the current window", state.explorerRestarts);
}

void PrintProbeVerdict() {
  const ProbeVerdict probe = ReadProbeVerdict();
  if (!probe.keyOpened) {
    PrintLine(L"Suppression probe:     no verdict recorded yet");
    return;
  }
  switch (probe.verdict.value_or(0)) {
    case 1: PrintLine(L"Suppression probe:     CLASSIC PATH CONFIRMED - %s", probe.detail); return;
    case 2:
      PrintLine(L"Suppression probe:     NOT IN USE - %s", probe.detail);
      PrintLine(L"");
      PrintLine(
          L"Windows is not honouring the classic-menu override on this build. The feature is");
      PrintLine(L"not working, however successful the registry write looked. Fall back with:");
      PrintLine(L"    Controller.exe disable");
      PrintLine(L"    Controller.exe enable --yes --strategy refusal");
      PrintLine(L"Note that the fallback cannot suppress the desktop background.");
      return;
    case 3:
      PrintLine(L"Suppression probe:     PARTIAL - %s", probe.detail);
      PrintLine(L"Expected if views existed before enabling; investigate if it persists.");
      return;
    default:
      PrintLine(L"Suppression probe:     no evidence yet - right-click a folder, then ask again");
  }
}

}  // namespace

std::wstring StatusJson(const StatusFacts& facts) {
  const LifecycleState& s = facts.state;
  return fmt::format(
      L"{{\"effectiveMode\":{},\"overrideKeyPresent\":{},\"featureEnabled\":{},"
      L"\"suppressionApplied\":{},\"priorKeyPresent\":{},\"priorValue\":{},\"appliedAt\":{},"
      L"\"bootRestoreArmed\":{},\"everEnabled\":{},\"publishedConfigVersion\":{},"
      L"\"overrideMissingWhileEnabled\":{}}}",
      JsonQuote(facts.reading.effectiveMode), Bool(facts.reading.keyPresent),
      Bool(s.featureEnabled), Bool(s.suppressionApplied), Bool(s.priorOverrideKeyPresent),
      JsonQuote(s.priorOverrideValue), JsonQuote(s.suppressionAppliedAt),
      Bool(facts.bootRestoreArmed), Bool(s.present), facts.publishedConfigVersion,
      Bool(s.featureEnabled && !facts.reading.keyPresent));
}

int RunStatusVerb(bool json) {
  const StatusFacts facts = GatherFacts();
  if (json) {
    // Reads only: the pollers must never make the Hook publish a verdict.
    PrintJsonLine(StatusJson(facts));
    return 0;
  }
  PrintLine(L"Context-menu preference");
  PrintLine(L"  Override key present: %s", YesNo(facts.reading.keyPresent));
  PrintLine(L"  Effective mode:       %s", facts.reading.effectiveMode);
  PrintLine(L"");
  PrintRecordedState(facts.state);
  PrintLine(L"  Boot-time restore:    %s", facts.bootRestoreArmed ? L"armed" : L"not armed");
  PrintLine(L"");
  if (facts.publishedConfigVersion != 0) {
    PrintLine(L"Configuration          published version %lu", facts.publishedConfigVersion);
  } else {
    PrintLine(L"Configuration          none published");
  }
  PrintLine(L"");
  const int delivered = CurrentExplorerLink().Send(HookStatusCommand());
  PrintLine(L"");
  PrintProbeVerdict();
  return delivered;
}

}  // namespace cmr

#include "lifecycle/lifecycle_verbs.h"

#include <fmt/chrono.h>
#include <fmt/xchar.h>

#include <chrono>
#include <memory>

#include "common/console.h"
#include "common/data_paths.h"
#include "common/file_time.h"
#include "common/win32.h"
#include "lifecycle/boot_restore.h"
#include "lifecycle/explorer_link.h"
#include "lifecycle/restart_loop_guard.h"
#include "lifecycle/suppression_strategy.h"
#include "state/legacy_state_migration.h"

namespace cmr {

namespace suppression = context_menu_replacement::suppression;

namespace {

uint64_t NowFiletime() {
  FILETIME now{};
  ::GetSystemTimeAsFileTime(&now);
  return FileTimeToInteger(now);
}

std::wstring UtcNowText() {
  const auto now =
      std::chrono::time_point_cast<std::chrono::seconds>(std::chrono::system_clock::now());
  return fmt::format(L"{:%Y-%m-%d %H:%M:%S}", now);
}

void PrintDisclosure(const suppression::strategy& chosen) {
  PrintLine(L"");
  PrintLine(L"BEFORE ANYTHING IS CHANGED - what enabling this does");
  PrintLine(L"");
  PrintLine(L"  Strategy: %s", chosen.describe());
  if (chosen.persistence() == 1) {
    PrintLine(L"  * Windows will be switched to CLASSIC context menus for your account.");
    PrintLine(
        L"    This is a system-wide change to your preference, not a change inside this app.");
    PrintLine(L"  * Your current preference is recorded first and restored when you disable,");
    PrintLine(L"    uninstall, or if this machine is reset while the feature is on.");
    PrintLine(
        L"  * If you change the preference yourself while this is enabled, your newer choice");
    PrintLine(L"    wins and the restore stands down.");
  }
  if (chosen.needs_restart()) {
    PrintLine(
        L"  * Explorer must restart for this to take effect. Your open folder windows close.");
  }
  PrintLine(L"");
  PrintLine(L"  Ravelin loads its menu replacement hook into explorer.exe.");
  PrintLine(
      L"  disable_menu_hook.cmd at the repository root is the escape hatch if it misbehaves.");
  PrintLine(L"");
}

void PrintGuardRefusal(uint32_t restarts) {
  PrintLine(
      L"REFUSING to enable: Explorer has restarted %lu times in the last 10 minutes while this",
      restarts);
  PrintLine(L"feature was enabled. That is the signature of the hook destabilising Explorer, and");
  PrintLine(L"reinjecting would make it a loop you cannot get out of.");
  PrintLine(L"");
  PrintLine(L"Look at the hook log first. Pass --force to override.");
}

// The state store does not check its single value writes. Everything the restore will rely on
// is read back before anything that needs undoing is changed; a prior value the registry
// cannot hand back whole is refused here rather than restored wrongly later.
Status RecordState(const LifecycleState& state) {
  if (Status written = WriteState(state); !written) return written;
  LifecycleState expected = state;
  expected.present = true;
  if (ReadState() != expected) {
    return Status::Failure(L"The state key did not keep the values written to it.");
  }
  return Status::Ok();
}

// Before the override is written, a failed step leaves the state as this enable found it: a
// state that says enabled, or applied, while nothing was applied would make a repair only
// inject, and a restore act on a preference that was never changed.
// Best effort: the step that failed has already said so, and nothing has been applied yet.
void PutBackState(const LifecycleState& before) {
  if (before.present) {
    (void)WriteState(before);
  } else {
    (void)DeleteStateKey();
  }
}

bool RecordOrPutBack(const LifecycleState& state, const LifecycleState& before) {
  if (const Status written = RecordState(state); !written) {
    PrintLine(L"Could not record prior state, so nothing was changed: %s", written.message());
    PutBackState(before);
    return false;
  }
  return true;
}

// The classic strategy's persistent part: state, then the boot restore, then the override.
// Returns false after printing why and undoing what was done.
bool ApplyPersistent(suppression::strategy& chosen, LifecycleState& state,
                     const LifecycleState& before) {
  // The prior preference is stored before SuppressionApplied turns on. The record is written
  // value by value, SuppressionApplied first; written in one go, an interruption after that
  // first value would leave "applied" beside the previous enable's prior preference.
  if (!state.suppressionApplied && !RecordOrPutBack(state, before)) return false;
  state.suppressionApplied = true;
  if (!RecordOrPutBack(state, before)) return false;
  if (const Status armed = arm_boot_restore(); !armed) {
    PrintLine(L"Could not arm the boot-time restore, so nothing was changed: %s", armed.message());
    PutBackState(before);
    return false;
  }
  std::wstring message;
  if (!chosen.apply(message)) {
    PrintLine(L"Could not apply the strategy: %s", message);
    // The restore, not a bare clear: a half-done apply can leave an override key behind that
    // already reads as classic, and only the restore takes it away again. It also clears
    // SuppressionApplied before it disarms, never the other way round.
    // The restore logs its own outcome; the failure to apply is what this enable reports.
    (void)restore();
    LifecycleState after = ReadState();
    after.suppressionApplied = false;
    after.featureEnabled = false;
    (void)WriteState(after);  // the restore above already cleared what a logon would act on
    return false;
  }
  PrintLine(L"Applied %s.", suppression::strategy_name(chosen.id()));
  return true;
}

// What the prior preference is from now on: the recorded one while our own override is still in
// place, otherwise what the switch holds now.
void RecordPrior(const ClassicModeReading& reading, LifecycleState& state) {
  if (state.suppressionApplied && HoldsOurOverride(reading)) {
    // What is in the key now is what we wrote; the user's own preference is the recorded one.
    PrintLine(L"Already applied; keeping the originally recorded prior preference.");
  } else if (state.suppressionApplied) {
    // The user changed the switch after we wrote it. That newer choice is what a later restore
    // must give back; it is recorded below before the override is written again.
    state.priorOverrideKeyPresent = reading.keyPresent;
    state.priorOverrideValue = reading.value;
    PrintLine(
        L"Already applied, but the override key was changed since; recording your newer choice "
        L"'%s' (key %s) as the prior preference.",
        reading.value, reading.keyPresent ? L"present" : L"absent");
  } else {
    state.priorOverrideKeyPresent = reading.keyPresent;
    state.priorOverrideValue = reading.value;
    PrintLine(L"Recorded your prior preference: %s (key %s)", reading.effectiveMode,
              reading.keyPresent ? L"present" : L"absent");
  }
}

// The restart a strategy needs before it takes effect; false when it failed (its own lines say
// why).
bool RestartIfNeeded(bool alreadyClassic, bool restartAllowed) {
  PrintLine(L"");
  if (alreadyClassic) {
    PrintLine(L"Explorer was already running in classic mode, so no restart is needed for the");
    PrintLine(L"preference to take effect.");
  } else if (restartAllowed) {
    PrintLine(L"Restarting Explorer so the change takes effect...");
    if (!CurrentExplorerLink().RestartShell()) return false;
  } else {
    PrintLine(L"RESTART REQUIRED: the preference is recorded and applied, but Explorer must");
    PrintLine(L"restart before the replacement menu appears. Skipped at the caller's request.");
  }
  PrintLine(L"");
  return true;
}

}  // namespace

int RunEnableVerb(const EnableOptions& options) {
  const std::unique_ptr<suppression::strategy> chosen =
      suppression::make_strategy(options.strategy);
  if (!chosen) {
    PrintLine(L"Unknown suppression strategy.");
    return 1;
  }
  std::wstring message;
  if (!chosen->is_available(message)) {
    PrintLine(L"%s is not available on this machine: %s", suppression::strategy_name(chosen->id()),
              message);
    return 1;
  }
  PrintDisclosure(*chosen);
  if (!options.yes) {
    PrintLine(L"Nothing has been changed. Re-run with --yes to proceed.");
    return 2;
  }

  LifecycleState state = ReadState();
  const LifecycleState before = state;
  const std::vector<uint64_t> explorerStarts = CurrentExplorerLink().StartTimes();
  if (CheckRestartLoop(state, explorerStarts.empty() ? 0 : explorerStarts.front(), NowFiletime(),
                       options.force)) {
    PrintGuardRefusal(state.explorerRestarts);
    return 3;
  }

  const ClassicModeReading reading = ReadClassicMode();
  const bool alreadyClassic = IsExplorerAlreadyClassic(reading, explorerStarts);
  RecordPrior(reading, state);
  state.suppressionStrategy = static_cast<uint32_t>(chosen->id());
  state.featureEnabled = true;
  state.suppressionAppliedAt = UtcNowText();

  if (chosen->persistence() == 1) {
    if (!ApplyPersistent(*chosen, state, before)) return 1;
  } else {
    // Deliberately clears an applied flag left by an earlier classic enable as well.
    state.suppressionApplied = false;
    if (!RecordOrPutBack(state, before)) return 1;
  }

  const bool verified = chosen->verify(message);
  PrintLine(L"Verification: %s (%s)", verified ? L"the machine looks as intended" : L"MISMATCH",
            message);
  if (!verified) {
    PrintLine(
        L"Standing down and restoring, because an unverified suppression is worse than none.");
    (void)restore();  // it logs its own outcome; the mismatch is what this enable reports
    return 1;
  }
  // A verdict of the Hook's probe describes the state before this enable.
  DeleteProbeVerdict();
  if (chosen->needs_restart() && !RestartIfNeeded(alreadyClassic, options.restart)) return 1;
  if (const int injected = CurrentExplorerLink().InjectHook(); injected != 0) return injected;
  PrintLine(L"");
  PrintLine(
      L"Enabled. Right-click a folder once, then run 'status': it reports whether the classic");
  PrintLine(
      L"path is GENUINELY in use, which is not the same as the registry write having succeeded.");
  return 0;
}

int RunDisableVerb() {
  const int result = CurrentExplorerLink().Send(HookShutdownCommand());
  const RestoreOutcome outcome = restore();
  PrintLine(L"");
  PrintLine(L"Preference: %s", outcome.message);
  // The restore has already cleared SuppressionApplied, so an entry left armed, or a feature
  // still recorded on, only makes the next logon's restore or repair find nothing to do.
  (void)disarm_boot_restore();
  LifecycleState state = ReadState();
  state.featureEnabled = false;
  (void)WriteState(state);
  PrintLine(L"");
  PrintLine(
      L"The hook is inert. The module stays loaded until Explorer restarts because it pinned");
  PrintLine(
      L"itself; that is expected and is not a leak. Classic mode remains in effect for already");
  PrintLine(L"open windows until Explorer restarts.");
  return result;
}

int RunUninstallVerb() {
  PrintLine(L"Removing everything Ravelin changed.");
  PrintLine(L"");
  // No Hook to tell is the usual case here; uninstall goes on to restore either way.
  (void)CurrentExplorerLink().Send(HookShutdownCommand());
  const RestoreOutcome outcome = restore();
  PrintLine(L"Preference: %s", outcome.message);
  if (const Status disarmed = disarm_boot_restore(); !disarmed) {
    PrintLine(L"  %s", disarmed.message());
  }
  // A legacy key left behind would be carried back in by the next read.
  MigrateLegacyState();
  if (const DWORD deleted = DeleteStateKey();
      deleted != ERROR_SUCCESS && deleted != ERROR_FILE_NOT_FOUND) {
    PrintLine(L"  %s", fmt::format(L"Could not remove the state key: {}", deleted));
  }
  const ClassicModeReading reading = ReadClassicMode();
  PrintLine(L"");
  PrintLine(L"Final state: override key %s, effective mode %s",
            reading.keyPresent ? L"present" : L"absent", reading.effectiveMode);
  PrintLine(L"Boot-time restore armed: %s", is_boot_restore_armed() ? L"yes" : L"no");
  PrintLine(L"");
  PrintLine(L"Configuration and logs are left alone; delete");
  PrintLine(L"  %s", ProductFolder());
  PrintLine(L"by hand if you want them gone too.");
  return reading.keyPresent && reading.effectiveMode == L"classic" ? 1 : 0;
}

}  // namespace cmr

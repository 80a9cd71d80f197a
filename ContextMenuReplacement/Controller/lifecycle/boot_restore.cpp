#include "lifecycle/boot_restore.h"

#include <fmt/xchar.h>

#include "common/console.h"
#include "common/data_paths.h"
#include "common/log.h"
#include "common/unique_handle.h"
#include "common/win32.h"
#include "lifecycle/override_key.h"
#include "lifecycle/suppression_strategy.h"
#include "state/lifecycle_state.h"
#include "state/persistent_step.h"
#include "state/registry_value.h"

namespace cmr {

namespace suppression = context_menu_replacement::suppression;

std::wstring OwnExecutablePath() {
  return ExecutablePath();
}

std::wstring BootRestoreCommand(std::wstring_view executablePath) {
  return fmt::format(L"\"{}\" boot-restore", executablePath);
}

Status arm_boot_restore() {
  UniqueHkey key;
  const DWORD opened = RunPersistentStep(L"create the RunOnce key", [&] {
    return ::RegCreateKeyExW(HKEY_CURRENT_USER, kRunOnceKeyPath, 0, nullptr,
                             REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr, key.put(), nullptr);
  });
  if (opened != ERROR_SUCCESS) return Failure(L"Could not open RunOnce: {}", opened);
  const std::wstring command = BootRestoreCommand(OwnExecutablePath());
  const DWORD written = RunPersistentStep(L"set the RunOnce entry", [&] {
    return WriteStringValue(key.get(), kBootRestoreValueName, command);
  });
  if (written != ERROR_SUCCESS) return Failure(L"Could not write the RunOnce entry: {}", written);
  return Status::Ok();
}

Status disarm_boot_restore() {
  UniqueHkey key;
  if (::RegOpenKeyExW(HKEY_CURRENT_USER, kRunOnceKeyPath, 0, KEY_WRITE, key.put()) !=
      ERROR_SUCCESS) {
    return Status::Ok();
  }
  const DWORD deleted = RunPersistentStep(L"delete the RunOnce entry", [&] {
    return ::RegDeleteValueW(key.get(), kBootRestoreValueName);
  });
  if (deleted != ERROR_SUCCESS && deleted != ERROR_FILE_NOT_FOUND) {
    return Failure(L"Could not remove the RunOnce entry: {}", deleted);
  }
  return Status::Ok();
}

bool is_boot_restore_armed() {
  UniqueHkey key;
  if (::RegOpenKeyExW(HKEY_CURRENT_USER, kRunOnceKeyPath, 0, KEY_READ, key.put()) !=
      ERROR_SUCCESS) {
    return false;
  }
  return ::RegQueryValueExW(key.get(), kBootRestoreValueName, nullptr, nullptr, nullptr, nullptr) ==
         ERROR_SUCCESS;
}

namespace {

// The override still holds exactly what we wrote: put back what the user had before.
void PutBackPrior(const LifecycleState& state, RestoreOutcome& outcome) {
  if (state.priorOverrideKeyPresent) {
    DWORD result = CreateOverrideKey();
    if (result == ERROR_SUCCESS) result = SetOverrideValue(state.priorOverrideValue);
    if (result != ERROR_SUCCESS) {
      outcome.message = fmt::format(L"Could not restore the prior override value: {}", result);
      return;
    }
    outcome.message =
        fmt::format(L"Restored the prior override value '{}'.", state.priorOverrideValue);
    outcome.restored = true;
    return;
  }
  std::wstring message;
  if (suppression::make_strategy(SuppressionStrategy::classic)->remove(message)) {
    outcome.message = L"Removed the override key; the user is back on the Windows 11 modern menu.";
    outcome.restored = true;
  } else {
    outcome.message = message;
  }
}

// A restore at logon has no console, so its outcome must reach the log to leave a trace.
RestoreOutcome Logged(RestoreOutcome outcome) {
  const bool failed = outcome.hadApplied && !outcome.restored && !outcome.leftAlone;
  WriteLogLine(failed ? LogLevel::warning : LogLevel::info, L"[state] " + outcome.message);
  return outcome;
}

RestoreOutcome Restore() {
  RestoreOutcome outcome;
  LifecycleState state = ReadState();
  if (!state.present || !state.suppressionApplied) {
    outcome.nothingRecorded = true;
    outcome.message = L"No override recorded as applied by us; nothing to restore.";
    return outcome;
  }
  outcome.hadApplied = true;
  const ClassicModeReading reading = ReadClassicMode();
  if (HoldsOurOverride(reading)) {
    PutBackPrior(state, outcome);
  } else {
    // The user (or something acting for them) changed the switch after we wrote it.
    outcome.leftAlone = true;
    outcome.message =
        reading.keyPresent
            ? fmt::format(
                  L"The override key now holds '{}', which is not what we wrote. Leaving "
                  L"the newer choice alone.",
                  reading.value)
            : L"The override key has already been removed, so the menu preference is not ours to "
              L"restore. Leaving the newer choice alone.";
  }
  // Cleared whatever happened above, so that a broken state cannot loop at every logon. The
  // state goes first: a RunOnce entry left behind with nothing applied is harmless, the reverse
  // is not.
  state.suppressionApplied = false;
  // Neither can be undone from here, and each alone already stops the loop: a cleared state
  // makes the next run stand down, a removed entry stops the next run.
  (void)WriteState(state);
  (void)disarm_boot_restore();
  return outcome;
}

}  // namespace

RestoreOutcome restore() {
  return Logged(Restore());
}

int RunBootRestoreVerb() {
  const LifecycleState state = ReadState();
  if (!state.present || !state.suppressionApplied) {
    (void)disarm_boot_restore();  // an entry left armed finds nothing to do at the next logon
    PrintLine(L"%s", L"Nothing was applied; the boot-time restore had nothing to do.");
    return 0;
  }
  // Deliberately nothing more than whether our own file is still where we run from.
  const bool installed =
      ::GetFileAttributesW(OwnExecutablePath().c_str()) != INVALID_FILE_ATTRIBUTES;
  if (!installed || !state.featureEnabled) {
    const RestoreOutcome outcome = restore();
    PrintLine(L"%s", fmt::format(L"Self-healing at logon ({}): {}",
                                 installed ? L"the feature was not left enabled"
                                           : L"Ravelin is no longer installed",
                                 outcome.message));
    return 0;
  }
  // Windows consumed the entry when it ran us; the feature is still wanted, so arm it again.
  if (const Status armed = arm_boot_restore(); !armed) {
    PrintLine(L"%s", fmt::format(L"The feature is still enabled but the boot-time restore could "
                                 L"not be re-armed: {}. It will not self-heal after the next "
                                 L"unclean shutdown.",
                                 armed.message()));
    return 0;
  }
  PrintLine(L"%s",
            L"The feature is still enabled and Ravelin is still installed, so this was an "
            L"ordinary restart. The override is left in place and the boot-time restore is "
            L"re-armed.");
  return 0;
}

}  // namespace cmr

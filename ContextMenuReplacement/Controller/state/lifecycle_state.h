#pragma once
// The lifecycle state: everything an undo of the classic-menu switch needs, plus the counters
// of the restart-loop guard, kept in one key under HKEY_CURRENT_USER. The Controller writes it;
// the Hook reads it and writes only its probe verdict values.
//
// Value table of the state key (the record's order is the order of reading and writing):
//   SuppressionApplied      REG_DWORD 0/1  our override is in place and still to be restored
//   FeatureEnabled          REG_DWORD 0/1  the user enabled the feature and has not disabled it
//   SuppressionStrategy     REG_DWORD      0 none, 1 classic_mode_registry, 2
//   runtime_activation_refusal PriorOverrideKeyPresent REG_DWORD 0/1  the override key existed
//   before the first enable PriorOverrideValue      REG_SZ         the default value it held then
//   SuppressionAppliedAt    REG_SZ         UTC "YYYY-MM-DD HH:MM:SS" of the recording enable
//   ExplorerRestarts        REG_DWORD      restarts counted in the current guard window
//   RestartWindowStart      REG_QWORD      FILETIME the guard window opened; 0 none
//   LastExplorerStart       REG_QWORD      FILETIME creation of the Explorer seen last; 0 none
// Side values, never part of the record:
//   LastProbeVerdict REG_DWORD, LastProbeDetail REG_SZ  the Hook's suppression probe
//   LastReplacementMode REG_DWORD                      the replacement mode last sent to the Hook
// A value stored with another type reads as its default; strings are read through a 2048-byte
// buffer (at most 1023 characters) and never expanded.

#include <cstdint>
#include <optional>
#include <string>

#include "common/status.h"
#include "common/win32.h"

namespace cmr {

inline constexpr wchar_t kStateKeyPath[] = L"Software\\Orvanta\\Brenlowpack\\Ravelin";
inline constexpr wchar_t kLegacyStateKeyPath[] =
    L"Software\\Orvanta\\Brenlowpack\\ContextMenuReplacement";

// The numbers stored as SuppressionStrategy; any other number reads back unchanged and means
// "none" to every reader.
enum class SuppressionStrategy : uint32_t { none = 0, classic = 1, refusal = 2 };

struct LifecycleState {
  bool present = false;  // the state key could be opened for reading
  bool suppressionApplied = false;
  bool featureEnabled = false;
  uint32_t suppressionStrategy = 0;
  bool priorOverrideKeyPresent = false;
  std::wstring priorOverrideValue;
  std::wstring suppressionAppliedAt;
  uint32_t explorerRestarts = 0;
  uint64_t restartWindowStart = 0;
  uint64_t lastExplorerStart = 0;

  bool operator==(const LifecycleState&) const = default;
};

// Migrates the pre-0.9.9 key first. A missing or unreadable key is the normal state of a user
// who never enabled the feature: every field at its default and `present` false. Never fails.
[[nodiscard]] LifecycleState ReadState();

// Migrates the pre-0.9.9 key first, then writes all nine values (the whole record, never a
// subset; `present` is not stored). Fails with "Could not open the state key for writing:
// <code>" when the key cannot be created or opened for writing, and otherwise with the first
// value that could not be set ("Could not write the state value '<name>': ..."), after trying
// every other value.
[[nodiscard]] Status WriteState(const LifecycleState& state);

// Deletes the state key with everything under it (no migration). Returns the Win32 result:
// ERROR_SUCCESS, or ERROR_FILE_NOT_FOUND when there was no key.
[[nodiscard]] DWORD DeleteStateKey();

// The Hook's suppression probe. `keyOpened` false when the state key cannot be opened for
// reading; `verdict` empty when LastProbeVerdict is missing or not a REG_DWORD; `detail` read
// through a 1024-byte buffer.
struct ProbeVerdict {
  bool keyOpened = false;
  std::optional<uint32_t> verdict;
  std::wstring detail;
};
[[nodiscard]] ProbeVerdict ReadProbeVerdict();
// Deletes LastProbeVerdict and LastProbeDetail when the state key opens for writing; a stale
// verdict must not describe a newly applied state. Missing values are fine.
void DeleteProbeVerdict();

// One set-value call of LastReplacementMode (REG_DWORD), creating the state key if needed.
// Returns the Win32 result of the create or of the set.
[[nodiscard]] DWORD WriteLastReplacementMode(uint32_t mode);
// Empty when the key or the value is missing or the value is not a REG_DWORD.
[[nodiscard]] std::optional<uint32_t> ReadLastReplacementMode();

}  // namespace cmr

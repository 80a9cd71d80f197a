#include "state/lifecycle_state.h"

#include <fmt/xchar.h>

#include "common/system_error.h"
#include "common/unique_handle.h"
#include "state/legacy_state_migration.h"
#include "state/persistent_step.h"
#include "state/registry_value.h"

namespace cmr {

namespace {

constexpr DWORD kProbeDetailBufferBytes = 1024;

bool ReadBool(HKEY key, const wchar_t* name) {
  const std::optional<uint32_t> value = ReadDwordValue(key, name);
  return value.has_value() && *value != 0;
}

UniqueHkey OpenStateKey(REGSAM access) {
  UniqueHkey key;
  if (::RegOpenKeyExW(HKEY_CURRENT_USER, kStateKeyPath, 0, access, key.put()) != ERROR_SUCCESS) {
    key.reset();
  }
  return key;
}

}  // namespace

LifecycleState ReadState() {
  MigrateLegacyState();
  LifecycleState state;
  const UniqueHkey key = OpenStateKey(KEY_READ);
  if (!key) return state;
  const HKEY k = key.get();
  state.present = true;
  state.suppressionApplied = ReadBool(k, L"SuppressionApplied");
  state.featureEnabled = ReadBool(k, L"FeatureEnabled");
  state.suppressionStrategy = ReadDwordValue(k, L"SuppressionStrategy").value_or(0);
  state.priorOverrideKeyPresent = ReadBool(k, L"PriorOverrideKeyPresent");
  state.priorOverrideValue = ReadStringValue(k, L"PriorOverrideValue").value_or(L"");
  state.suppressionAppliedAt = ReadStringValue(k, L"SuppressionAppliedAt").value_or(L"");
  state.explorerRestarts = ReadDwordValue(k, L"ExplorerRestarts").value_or(0);
  state.restartWindowStart = ReadQwordValue(k, L"RestartWindowStart").value_or(0);
  state.lastExplorerStart = ReadQwordValue(k, L"LastExplorerStart").value_or(0);
  return state;
}

Status WriteState(const LifecycleState& state) {
  MigrateLegacyState();
  UniqueHkey key;
  const DWORD opened = RunPersistentStep(L"create the state key", [&] {
    return ::RegCreateKeyExW(HKEY_CURRENT_USER, kStateKeyPath, 0, nullptr, REG_OPTION_NON_VOLATILE,
                             KEY_WRITE, nullptr, key.put(), nullptr);
  });
  if (opened != ERROR_SUCCESS) {
    return Failure(L"Could not open the state key for writing: {}", opened);
  }
  // Always the whole record, so that no reader sees fields of two different enables: a failed
  // value does not stop the others, and the first failure is what the caller hears.
  const HKEY k = key.get();
  Status outcome;
  const auto write = [&outcome](const wchar_t* name, const auto& setter) {
    const DWORD result = RunPersistentStep((L"set " + std::wstring(name)).c_str(), setter);
    if (result != ERROR_SUCCESS && outcome) {
      outcome = Win32Failure(fmt::format(L"Could not write the state value '{}'", name), result);
    }
  };
  const auto dword = [&](const wchar_t* name, uint32_t value) {
    write(name, [&] { return WriteDwordValue(k, name, value); });
  };
  const auto qword = [&](const wchar_t* name, uint64_t value) {
    write(name, [&] { return WriteQwordValue(k, name, value); });
  };
  const auto text = [&](const wchar_t* name, const std::wstring& value) {
    write(name, [&] { return WriteStringValue(k, name, value); });
  };
  dword(L"SuppressionApplied", state.suppressionApplied ? 1 : 0);
  dword(L"FeatureEnabled", state.featureEnabled ? 1 : 0);
  dword(L"SuppressionStrategy", state.suppressionStrategy);
  dword(L"PriorOverrideKeyPresent", state.priorOverrideKeyPresent ? 1 : 0);
  text(L"PriorOverrideValue", state.priorOverrideValue);
  text(L"SuppressionAppliedAt", state.suppressionAppliedAt);
  dword(L"ExplorerRestarts", state.explorerRestarts);
  qword(L"RestartWindowStart", state.restartWindowStart);
  qword(L"LastExplorerStart", state.lastExplorerStart);
  return outcome;
}

DWORD DeleteStateKey() {
  return RunPersistentStep(L"delete the state key",
                           [] { return ::RegDeleteTreeW(HKEY_CURRENT_USER, kStateKeyPath); });
}

ProbeVerdict ReadProbeVerdict() {
  ProbeVerdict probe;
  const UniqueHkey key = OpenStateKey(KEY_READ);
  if (!key) return probe;
  probe.keyOpened = true;
  probe.verdict = ReadDwordValue(key.get(), L"LastProbeVerdict");
  probe.detail =
      ReadStringValue(key.get(), L"LastProbeDetail", kProbeDetailBufferBytes).value_or(L"");
  return probe;
}

void DeleteProbeVerdict() {
  const UniqueHkey key = OpenStateKey(KEY_SET_VALUE);
  if (!key) return;
  (void)RunPersistentStep(L"delete LastProbeVerdict",
                          [&] { return ::RegDeleteValueW(key.get(), L"LastProbeVerdict"); });
  (void)RunPersistentStep(L"delete LastProbeDetail",
                          [&] { return ::RegDeleteValueW(key.get(), L"LastProbeDetail"); });
}

DWORD WriteLastReplacementMode(uint32_t mode) {
  UniqueHkey key;
  const LSTATUS created =
      ::RegCreateKeyExW(HKEY_CURRENT_USER, kStateKeyPath, 0, nullptr, REG_OPTION_NON_VOLATILE,
                        KEY_SET_VALUE, nullptr, key.put(), nullptr);
  if (created != ERROR_SUCCESS) return static_cast<DWORD>(created);
  return WriteDwordValue(key.get(), L"LastReplacementMode", mode);
}

std::optional<uint32_t> ReadLastReplacementMode() {
  const UniqueHkey key = OpenStateKey(KEY_READ);
  if (!key) return std::nullopt;
  return ReadDwordValue(key.get(), L"LastReplacementMode");
}

}  // namespace cmr

#include "lifecycle/override_key.h"

#include "common/unique_handle.h"
#include "lifecycle/suppression_strategy.h"
#include "state/persistent_step.h"
#include "state/registry_value.h"

namespace cmr {

namespace {
constexpr wchar_t kProbeKeyPath[] = L"Software\\Classes\\CLSID\\BnlxCapabilityProbe";
}  // namespace

DWORD ProbeClassesWritable() {
  UniqueHkey probe;
  const DWORD created = RunPersistentStep(L"create the capability probe key", [&] {
    return ::RegCreateKeyExW(HKEY_CURRENT_USER, kProbeKeyPath, 0, nullptr, REG_OPTION_NON_VOLATILE,
                             KEY_WRITE, nullptr, probe.put(), nullptr);
  });
  if (created != ERROR_SUCCESS) return created;
  probe.reset();
  // The key could be written, which is all the probe asks; an empty probe key left behind is
  // harmless and goes at the next probe.
  (void)RunPersistentStep(L"delete the capability probe key",
                          [] { return ::RegDeleteKeyW(HKEY_CURRENT_USER, kProbeKeyPath); });
  return ERROR_SUCCESS;
}

DWORD CreateOverrideKey() {
  return RunPersistentStep(L"create the override key", [] {
    UniqueHkey key;
    return ::RegCreateKeyExW(HKEY_CURRENT_USER, kOverrideKeyPath, 0, nullptr,
                             REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr, key.put(), nullptr);
  });
}

DWORD SetOverrideValue(const std::wstring& value) {
  UniqueHkey key;
  const LSTATUS opened =
      ::RegOpenKeyExW(HKEY_CURRENT_USER, kOverrideKeyPath, 0, KEY_SET_VALUE, key.put());
  if (opened != ERROR_SUCCESS) return static_cast<DWORD>(opened);
  return RunPersistentStep(L"set the override value",
                           [&] { return WriteStringValue(key.get(), nullptr, value); });
}

DWORD DeleteOverrideKey() {
  return RunPersistentStep(L"delete the override key",
                           [] { return ::RegDeleteKeyW(HKEY_CURRENT_USER, kOverrideKeyPath); });
}

DWORD DeleteOverrideParent() {
  return RunPersistentStep(L"delete the override parent",
                           [] { return ::RegDeleteKeyW(HKEY_CURRENT_USER, kOverrideParentPath); });
}

}  // namespace cmr

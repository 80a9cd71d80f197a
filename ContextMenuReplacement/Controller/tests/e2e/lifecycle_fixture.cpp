#include "tests/e2e/lifecycle_fixture.h"

#include <gtest/gtest.h>

#include "common/file_io.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "lifecycle/boot_restore.h"
#include "lifecycle/suppression_strategy.h"
#include "state/lifecycle_state.h"
#include "state/registry_value.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {

Preference ReadPreference() {
  Preference preference;
  UniqueHkey key;
  if (::RegOpenKeyExW(HKEY_CURRENT_USER, kOverrideKeyPath, 0, KEY_READ, key.put()) !=
      ERROR_SUCCESS) {
    return preference;
  }
  preference.keyPresent = true;
  wchar_t buffer[1024] = {};
  DWORD size = sizeof(buffer) - sizeof(wchar_t);
  DWORD type = 0;
  if (::RegQueryValueExW(key.get(), nullptr, nullptr, &type, reinterpret_cast<BYTE*>(buffer),
                         &size) == ERROR_SUCCESS) {
    preference.valuePresent = true;
    preference.value = buffer;
  }
  return preference;
}

void SetPreference(const Preference& preference) {
  ::RegDeleteTreeW(HKEY_CURRENT_USER, kOverrideParentPath);
  if (!preference.keyPresent) return;
  UniqueHkey key;
  ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, kOverrideKeyPath, 0, nullptr, 0, KEY_WRITE,
                              nullptr, key.put(), nullptr),
            ERROR_SUCCESS);
  if (!preference.valuePresent) return;
  ASSERT_EQ(WriteStringValue(key.get(), nullptr, preference.value), ERROR_SUCCESS);
}

void PrintTo(const Preference& preference, std::ostream* out) {
  *out << (!preference.keyPresent     ? "no override key"
           : !preference.valuePresent ? "override key without a value"
                                      : "override '" + ToUtf8(preference.value) + "'");
}

void ResetLifecycle() {
  ::RegDeleteTreeW(HKEY_CURRENT_USER, kStateKeyPath);
  ::RegDeleteTreeW(HKEY_CURRENT_USER, kLegacyStateKeyPath);
  ::RegDeleteTreeW(HKEY_CURRENT_USER, kOverrideParentPath);
  ::RegDeleteKeyValueW(HKEY_CURRENT_USER, kRunOnceKeyPath, kBootRestoreValueName);
}

std::string ExportUserSoftware() {
  const std::wstring file = JoinPath(ScratchFolder(L"export"), L"user.reg");
  wchar_t system[MAX_PATH] = {};
  ::GetSystemDirectoryW(system, MAX_PATH);
  const RunResult run = RunControllerAt(JoinPath(system, L"reg.exe"),
                                        {L"export", L"HKEY_CURRENT_USER\\Software", file, L"/y"});
  EXPECT_EQ(run.exitCode, 0u) << run.output;
  return ReadBytes(file);
}

}  // namespace cmr::e2e

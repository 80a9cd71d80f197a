#include "state/legacy_state_migration.h"

#include <string>
#include <vector>

#include "common/log.h"
#include "common/unique_handle.h"
#include "state/lifecycle_state.h"
#include "state/registry_value.h"

namespace cmr {

namespace {

// Longest value name the registry allows, plus its NUL.
constexpr DWORD kValueNameUnits = 16384 + 1;

bool IsPriorValueName(const wchar_t* name) {
  return ::CompareStringOrdinal(name, -1, L"PriorOverrideKeyPresent", -1, TRUE) == CSTR_EQUAL ||
         ::CompareStringOrdinal(name, -1, L"PriorOverrideValue", -1, TRUE) == CSTR_EQUAL;
}

bool HasValue(HKEY key, const wchar_t* name) {
  return ::RegQueryValueExW(key, name, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

// Copies the legacy values into `target`. Returns false when any copy or the enumeration
// itself failed; the loop still visits every value it can.
bool CopyValues(HKEY legacy, HKEY target, bool legacyApplied) {
  bool copiedAll = true;
  std::vector<wchar_t> name(kValueNameUnits);
  for (DWORD index = 0;; ++index) {
    // The data size comes first so the buffer fits whatever the value holds.
    DWORD nameUnits = kValueNameUnits;
    DWORD type = 0;
    DWORD size = 0;
    LSTATUS result =
        ::RegEnumValueW(legacy, index, name.data(), &nameUnits, nullptr, &type, nullptr, &size);
    if (result == ERROR_NO_MORE_ITEMS) break;
    if (result != ERROR_SUCCESS) return false;
    std::vector<BYTE> data(size, 0);
    nameUnits = kValueNameUnits;
    result = ::RegEnumValueW(legacy, index, name.data(), &nameUnits, nullptr, &type,
                             data.empty() ? nullptr : data.data(), &size);
    if (result == ERROR_NO_MORE_ITEMS) break;
    if (result != ERROR_SUCCESS) return false;

    const bool overwrite = legacyApplied && IsPriorValueName(name.data());
    if (!overwrite && HasValue(target, name.data())) continue;
    if (::RegSetValueExW(target, name.data(), 0, type, data.empty() ? nullptr : data.data(),
                         size) != ERROR_SUCCESS) {
      copiedAll = false;
    }
  }
  return copiedAll;
}

// False on any failure; the legacy key is then left for the next attempt.
bool CarryAcross() {
  bool copied = false;
  {
    UniqueHkey legacy;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, kLegacyStateKeyPath, 0, KEY_READ, legacy.put()) !=
        ERROR_SUCCESS) {
      return true;  // nothing to carry
    }
    const std::optional<uint32_t> applied = ReadDwordValue(legacy.get(), L"SuppressionApplied");
    const bool legacyApplied = applied.has_value() && *applied != 0;

    UniqueHkey target;
    if (::RegCreateKeyExW(HKEY_CURRENT_USER, kStateKeyPath, 0, nullptr, REG_OPTION_NON_VOLATILE,
                          KEY_READ | KEY_WRITE, nullptr, target.put(), nullptr) != ERROR_SUCCESS) {
      return false;
    }
    copied = CopyValues(legacy.get(), target.get(), legacyApplied);
  }
  if (!copied) return false;
  if (::RegDeleteTreeW(HKEY_CURRENT_USER, kLegacyStateKeyPath) != ERROR_SUCCESS) return false;
  WriteLogLine(LogLevel::info,
               L"[state] Carried the recorded state across from the pre-0.9.9 state key");
  return true;
}

}  // namespace

void MigrateLegacyState() {
  if (!CarryAcross()) {
    WriteLogLine(LogLevel::warning,
                 L"[state] The pre-0.9.9 state key could not be carried across; it is kept and "
                 L"retried on the next read");
  }
}

}  // namespace cmr

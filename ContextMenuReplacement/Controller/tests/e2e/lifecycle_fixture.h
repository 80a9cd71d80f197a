#pragma once
// The user's menu preference as the lifecycle tests see it, and a clean slate for each test.

#include <ostream>
#include <string>

namespace cmr::e2e {

// The classic-menu override key as the user had it: presence of the key, of its default value,
// and the value.
struct Preference {
  bool keyPresent = false;
  bool valuePresent = false;
  std::wstring value;
  bool operator==(const Preference&) const = default;
};

inline const Preference kNoOverride{};
inline const Preference kEmptyOverride{true, true, L""};
inline const Preference kDllOverride{true, true, L"C:\\Tools\\shell \"x\".dll"};

[[nodiscard]] Preference ReadPreference();
// Replaces the override key (and its parent) with exactly `preference`.
void SetPreference(const Preference& preference);
void PrintTo(const Preference& preference, std::ostream* out);

// No state key (new or legacy), no RunOnce entry, no override key.
void ResetLifecycle();

// `reg export` of HKEY_CURRENT_USER\Software, for before-and-after comparisons.
[[nodiscard]] std::string ExportUserSoftware();

}  // namespace cmr::e2e

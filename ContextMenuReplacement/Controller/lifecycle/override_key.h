#pragma once
// The persistent changes to Windows' classic-menu switch, each one named step (see
// state/persistent_step.h). Each returns the Win32 result of its one registry call.

#include <string>

#include "common/win32.h"

namespace cmr {

// Creates and deletes HKCU\Software\Classes\CLSID\BnlxCapabilityProbe: whether the override
// key could be written at all. Returns the create's result; the probe key never survives a
// successful probe.
[[nodiscard]] DWORD ProbeClassesWritable();

// Creates (or opens) the override key, non-volatile, with its parent as needed.
[[nodiscard]] DWORD CreateOverrideKey();
// Sets the override key's default value as REG_SZ; the key must exist.
[[nodiscard]] DWORD SetOverrideValue(const std::wstring& value);
// Deletes the override key; ERROR_FILE_NOT_FOUND when it is already gone.
[[nodiscard]] DWORD DeleteOverrideKey();
// Deletes the parent key only when nothing else lives under it: keys that another program
// keeps there are never ours to destroy.
[[nodiscard]] DWORD DeleteOverrideParent();

}  // namespace cmr

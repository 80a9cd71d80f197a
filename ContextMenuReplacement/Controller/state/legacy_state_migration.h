#pragma once
// The one-time move of the state that builds before 0.9.9 kept under
// Software\Orvanta\Brenlowpack\ContextMenuReplacement into the current state key.
//
// Every value of the legacy key is copied with its own type and data when the new key does not
// hold a value of that name yet. PriorOverrideKeyPresent and PriorOverrideValue (names compared
// case-insensitively) also overwrite the new key's values when the legacy key records
// SuppressionApplied as a non-zero REG_DWORD: the prior preference recorded before the upgrade
// is then the authentic one. After a complete copy the legacy key is deleted with its tree; on
// any failure it is kept so that the next read or write tries again, and a WARNING is logged.

namespace cmr {

// Runs at the start of every state read and write, and before uninstall deletes the state.
// Silent when there is no legacy key; problems are logged, never returned.
void MigrateLegacyState();

}  // namespace cmr

#pragma once
// The per-user data tree under the local application-data folder, and its fixed names.

#include <cstdint>
#include <string>
#include <string_view>

namespace cmr {

// The data root as the known-folder lookup gave it: the folder on success, empty on failure
// (every path then becomes relative to the current directory). Pure; exposed for tests.
[[nodiscard]] std::wstring DataRootFromLookup(bool succeeded, const wchar_t* folder);

// Cached for the life of the process: looked up only while the cache is still empty.
[[nodiscard]] std::wstring DataRoot();

// <root>\Orvanta\Brenlowpack
[[nodiscard]] std::wstring ProductFamilyFolder();
// <root>\Orvanta\Brenlowpack\Ravelin
[[nodiscard]] std::wstring ProductFolder();
// ...\Ravelin\published, control.bin and snapshot-<n>.bin of the configuration snapshot.
[[nodiscard]] std::wstring PublishedFolder();
[[nodiscard]] std::wstring ControlFilePath();
[[nodiscard]] std::wstring SnapshotFilePath(uint32_t version);
// ...\Ravelin\menu.json: where a standalone configuration lives when no path is given.
[[nodiscard]] std::wstring DefaultMenuJsonPath();
// ...\Ravelin\Controller\Logs, created when missing.
[[nodiscard]] std::wstring ControllerLogFolder();

// <root>\Orvanta\Brenlowpack\Settings, created each time one of its file paths is asked for.
[[nodiscard]] std::wstring SettingsFolder();
[[nodiscard]] std::wstring SettingsFilePath();
// "Context menu layout overrides.json" for the empty and the "create-organize" scope,
// "Context menu layout overrides - <scope>.json" for any other.
[[nodiscard]] std::wstring OverlayFileName(std::wstring_view scope);
[[nodiscard]] std::wstring OverlayPath(std::wstring_view scope);
// "placement-draft-" and 32 lower-case hexadecimal digits; nothing else is a draft id.
[[nodiscard]] bool IsValidDraftId(std::wstring_view id) noexcept;

// The folder holding this executable, and the settings file that ships beside it.
[[nodiscard]] std::wstring ExecutableFolder();
[[nodiscard]] std::wstring ShippedSettingsPath();
// The custom menu schema and baseline installed beside this executable.
[[nodiscard]] std::wstring InstalledSchemaPath();
[[nodiscard]] std::wstring InstalledBaselinePath();
// The user's settings file when it exists, otherwise the shipped defaults. Only the readers of
// the on/off state and of the dialog settings use this; the config verbs never fall back.
[[nodiscard]] std::wstring SettingsFileWithShippedFallback();

}  // namespace cmr

#include "common/data_paths.h"

#include <shlobj.h>

#include <mutex>

#include "common/file_io.h"
#include "common/win32.h"

namespace cmr {

namespace {

constexpr std::wstring_view kMaker = L"Orvanta";
constexpr std::wstring_view kFamily = L"Brenlowpack";
constexpr std::wstring_view kProduct = L"Ravelin";

struct DataRootCache {
  std::mutex mutex;
  std::wstring root;
};

DataRootCache& Cache() {
  static DataRootCache cache;
  return cache;
}

}  // namespace

std::wstring DataRootFromLookup(bool succeeded, const wchar_t* folder) {
  return (succeeded && folder != nullptr) ? std::wstring(folder) : std::wstring();
}

std::wstring DataRoot() {
  DataRootCache& cache = Cache();
  std::lock_guard lock(cache.mutex);
  if (cache.root.empty()) {
    PWSTR folder = nullptr;
    const HRESULT hr = ::SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, &folder);
    cache.root = DataRootFromLookup(SUCCEEDED(hr), folder);
    ::CoTaskMemFree(folder);
  }
  return cache.root;
}

std::wstring ProductFamilyFolder() {
  return JoinPath(JoinPath(DataRoot(), kMaker), kFamily);
}

std::wstring ProductFolder() {
  return JoinPath(ProductFamilyFolder(), kProduct);
}

std::wstring PublishedFolder() {
  return JoinPath(ProductFolder(), L"published");
}

std::wstring ControlFilePath() {
  return JoinPath(PublishedFolder(), L"control.bin");
}

std::wstring SnapshotFilePath(uint32_t version) {
  return JoinPath(PublishedFolder(), L"snapshot-" + std::to_wstring(version) + L".bin");
}

std::wstring DefaultMenuJsonPath() {
  return JoinPath(ProductFolder(), L"menu.json");
}

std::wstring ControllerLogFolder() {
  const std::wstring folder = JoinPath(JoinPath(ProductFolder(), L"Controller"), L"Logs");
  (void)EnsureDirectories(folder);
  return folder;
}

std::wstring SettingsFolder() {
  const std::wstring folder = JoinPath(ProductFamilyFolder(), L"Settings");
  // A folder that cannot be created shows up as the failure to open a file inside it.
  (void)EnsureDirectories(folder);
  return folder;
}

std::wstring SettingsFilePath() {
  return JoinPath(SettingsFolder(), L"High Level Settings.json");
}

std::wstring OverlayFileName(std::wstring_view scope) {
  // "create-organize" is deliberately the default file and has none of its own.
  if (scope.empty() || scope == L"create-organize") return L"Context menu layout overrides.json";
  return L"Context menu layout overrides - " + std::wstring(scope) + L".json";
}

std::wstring OverlayPath(std::wstring_view scope) {
  return JoinPath(SettingsFolder(), OverlayFileName(scope));
}

bool IsValidDraftId(std::wstring_view id) noexcept {
  constexpr std::wstring_view kPrefix = L"placement-draft-";
  if (id.size() != 48 || id.substr(0, kPrefix.size()) != kPrefix) return false;
  for (const wchar_t c : id.substr(kPrefix.size())) {
    if (!((c >= L'0' && c <= L'9') || (c >= L'a' && c <= L'f'))) return false;
  }
  return true;
}

std::wstring ExecutableFolder() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length =
        ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) return {};
    if (length < path.size()) {
      path.resize(length);
      break;
    }
    path.resize(path.size() * 2);
  }
  return ParentFolder(path);
}

std::wstring ShippedSettingsPath() {
  return JoinPath(JoinPath(JoinPath(ExecutableFolder(), L"Content"), L"Configurations"),
                  L"High Level Settings.json");
}

std::wstring InstalledSchemaPath() {
  return JoinPath(JoinPath(ExecutableFolder(), L"Schema"), L"custom-menu.schema.json");
}

std::wstring InstalledBaselinePath() {
  return JoinPath(JoinPath(JoinPath(ExecutableFolder(), L"Content"), L"Menus"),
                  L"create-organize.baseline.json");
}

std::wstring SettingsFileWithShippedFallback() {
  const std::wstring user = SettingsFilePath();
  return FileExists(user) ? user : ShippedSettingsPath();
}

}  // namespace cmr

#include "config/config_loader.h"

#include <fmt/xchar.h>

#include "common/file_io.h"
#include "common/json_text.h"
#include "common/log.h"
#include "config/config_log.h"
#include "config/config_snapshot.h"
#include "config/config_trust.h"
#include "config/menu_document.h"
#include "config/settings_file.h"

namespace cmr {

namespace {

bool WithinSizeLimit(const MenuConfiguration& configuration) {
  return LayoutSnapshot(configuration).totalBytes <= kSnapshotLimitBytes;
}

}  // namespace

PublishResult LoadMenuFile(const std::wstring& path, PublishMode mode, ConfigPublisher& publisher) {
  PublishResult result;
  if (DirectoryExists(path)) {
    result.errors.push_back(fmt::format(L"'{}' is a folder, not a menu file.", path));
    return result;
  }
  if (!FileExists(path)) {
    result.errors.push_back(
        fmt::format(L"'{}' does not exist. Run 'config init' to create one.", path));
    return result;
  }
  // One open handle serves the trust check and the read, so the file checked is the file read.
  ConfigurationFile file;
  if (Status opened = file.Open(path); !opened) {
    result.errors.push_back(opened.message());
    return result;
  }
  result.aclAccepted = file.CheckTrust(result.errors);
  if (!result.aclAccepted) {
    WriteLogLine(LogLevel::error,
                 fmt::format(L"[config] Refusing '{}': its ACL permits writes by an unexpected "
                             L"account",
                             path));
    return result;
  }
  std::string text;
  if (!file.Read(text)) {
    result.errors.push_back(fmt::format(L"Could not read '{}'.", path));
    return result;
  }
  rapidjson::Document document;
  JsonParseFailure failure;
  if (!ParseJsonText(text, true, document, failure)) {
    result.errors.push_back(
        fmt::format(L"JSON parse error at offset {}: {}", failure.offset, failure.description));
    return result;
  }
  MenuConfiguration configuration;
  if (!ParseMenuDocument(document, configuration, result.errors, result.warnings)) {
    return result;
  }
  result.valid = WithinSizeLimit(configuration);
  publisher.Publish(configuration, mode, GlobalsPolicy::withDefaultGlobals, result);
  if (mode == PublishMode::checkOnly) result.valid = result.errors.empty();
  return result;
}

PublishResult LoadSettingsFile(const std::wstring& path, PublishMode mode,
                               ConfigPublisher& publisher) {
  PublishResult result;
  MenuConfiguration configuration;
  // Read and checked through one handle, so the file whose menu is trusted is the file read.
  ConfigurationFile file;
  const Status open = file.Open(path);
  const bool opened = open.ok();
  bool read = false;
  if (open.systemError() == ERROR_FILE_NOT_FOUND || open.systemError() == ERROR_PATH_NOT_FOUND) {
    result.errors.push_back(fmt::format(L"'{}' does not exist.", path));
  } else if (std::string text; !opened || !file.Read(text)) {
    result.errors.push_back(fmt::format(L"Could not read '{}'.", path));
  } else {
    read = ReadSettingsText(text, configuration, result.errors, result.warnings);
  }
  if (mode == PublishMode::checkOnly) {
    // Validation reports the ACL verdict whatever the content, so both can be fixed at once.
    if (opened) result.aclAccepted = file.CheckTrust(result.errors);
    if (!read) return result;
    publisher.Publish(configuration, mode, GlobalsPolicy::keepPublishedGlobals, result);
    result.valid = result.errors.empty();
    return result;
  }
  if (!read) return result;
  // Globals, then trust, then the menu with its size check: the globals carry no executable,
  // so they are applied even from a file others can modify or with a menu too large to
  // publish; only the menu model, which names programs to run, waits for a trusted file.
  if (Status globals = publisher.PublishGlobals(configuration); !globals) {
    result.errors.push_back(globals.message());
    return result;
  }
  LogGlobalsPublished(configuration.enabled, configuration.bypassMask,
                      configuration.opacityPercent);
  result.aclAccepted = file.CheckTrust(result.errors);
  if (!result.aclAccepted) {
    LogMenuModelRefused(path);
    return result;
  }
  result.valid = WithinSizeLimit(configuration);
  publisher.Publish(configuration, mode, GlobalsPolicy::keepPublishedGlobals, result);
  return result;
}

}  // namespace cmr

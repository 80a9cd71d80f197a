#include "config/config_loader.h"

#include <fmt/xchar.h>

#include "common/log.h"
#include "common/file_io.h"
#include "common/json_text.h"
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
  if (!FileExists(path)) {
    result.errors.push_back(
        fmt::format(L"'{}' does not exist. Run 'config init' to create one.", path));
    return result;
  }
  result.aclAccepted = CheckConfigurationTrust(path, result.errors);
  if (!result.aclAccepted) {
    WriteLogLine(LogLevel::error,
                 fmt::format(L"[config] Refusing '{}': its ACL permits writes by an unexpected "
                             L"account",
                             path));
    return result;
  }
  const Result<std::string> text = ReadWholeFile(path);
  if (!text) {
    result.errors.push_back(fmt::format(L"Could not read '{}'.", path));
    return result;
  }
  rapidjson::Document document;
  JsonParseFailure failure;
  if (!ParseJsonText(text.value(), true, document, failure)) {
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
  const bool read = ReadSettingsFile(path, configuration, result.errors, result.warnings);
  if (mode == PublishMode::checkOnly) {
    // Validation reports the ACL verdict whatever the content, so both can be fixed at once.
    if (FileExists(path)) result.aclAccepted = CheckConfigurationTrust(path, result.errors);
    if (!read) return result;
    publisher.Publish(configuration, mode, GlobalsPolicy::keepPublishedGlobals, result);
    result.valid = result.errors.empty();
    return result;
  }
  if (!read) return result;
  result.valid = WithinSizeLimit(configuration);
  // Checked before the globals go out, so an oversized menu changes nothing at all.
  if (!result.valid) {
    result.errors.push_back(CheckSnapshotSize(LayoutSnapshot(configuration).totalBytes).message());
    return result;
  }
  if (Status globals = publisher.PublishGlobals(configuration); !globals) {
    result.errors.push_back(globals.message());
    return result;
  }
  LogGlobalsPublished(configuration.enabled, configuration.bypassMask,
                      configuration.opacityPercent);
  // The globals carry no executable, so they are applied even from a file others can modify;
  // only the menu model, which names programs to run, waits for a trusted file.
  result.aclAccepted = CheckConfigurationTrust(path, result.errors);
  if (!result.aclAccepted) {
    LogMenuModelRefused(path);
    return result;
  }
  publisher.Publish(configuration, mode, GlobalsPolicy::keepPublishedGlobals, result);
  return result;
}

}  // namespace cmr

#include "config/config_log.h"

#include <fmt/xchar.h>

#include "common/log.h"

namespace cmr {

void LogGlobalsPublished(bool enabled, uint32_t bypassMask, uint32_t opacityPercent) {
  WriteLogLine(LogLevel::info,
               fmt::format(L"[config] Globals published: enabled={} bypass=0x{:X} opacity={}%",
                           enabled, bypassMask, opacityPercent));
}

void LogConfigurationPublished(uint32_t version, uint64_t bytes, size_t profiles, size_t items,
                               size_t userCommands) {
  WriteLogLine(LogLevel::info,
               fmt::format(L"[config] Published version {} ({} bytes): {} profile(s), {} item(s), "
                           L"{} user command(s)",
                           version, bytes, profiles, items, userCommands));
}

void LogMenuModelRefused(std::wstring_view path) {
  WriteLogLine(LogLevel::error,
               fmt::format(L"[config] Refusing the menu model from '{}': its ACL permits writes by "
                           L"an unexpected account. Global settings were still applied.",
                           path));
}

void LogSnapshotWriteFailed(std::wstring_view reason) {
  WriteLogLine(LogLevel::error, fmt::format(L"[config] {}", reason));
}

}  // namespace cmr

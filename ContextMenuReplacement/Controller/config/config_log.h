#pragma once
// The configuration's own lines in the daily log; nothing of them reaches the console.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace cmr {

void LogGlobalsPublished(bool enabled, uint32_t bypassMask, uint32_t opacityPercent);
void LogConfigurationPublished(uint32_t version, uint64_t bytes, size_t profiles, size_t items,
                               size_t userCommands);
void LogMenuModelRefused(std::wstring_view path);
// The file writer's own reason for a snapshot that could not be written.
void LogSnapshotWriteFailed(std::wstring_view reason);

}  // namespace cmr

#pragma once
// Publication of the custom model snapshot into the `published` folder, in the order that
// makes concurrent reading safe without a lock: the numbered snapshot first (atomic write),
// then the 12-byte control file naming it (atomic rename: the commit point), then clean-up
// that keeps the current and the previous snapshot for readers still holding the old one.
//
// custom-model-control.bin, 12 bytes: magic 0x424E43D6, layout 18, version n (all u32 LE).

#include <cstdint>
#include <string>
#include <string_view>

#include "snapshot/custom_model_snapshot.h"

namespace cmr {

inline constexpr std::wstring_view kCustomModelControlName = L"custom-model-control.bin";
inline constexpr std::wstring_view kCustomModelSnapshotPrefix = L"custom-model-snapshot-";

[[nodiscard]] std::wstring CustomModelControlPath();
[[nodiscard]] std::wstring CustomModelSnapshotPath(uint32_t version);

// The 12 bytes of the control record for `version`.
[[nodiscard]] std::string CustomModelControlRecord(uint32_t version);

// The version a control record announces: true when the record has at least 12 bytes, the
// magic and layout are right and the version, read as a signed number, is positive.
[[nodiscard]] bool ReadCustomModelControl(std::string_view record, uint32_t& version);

// Version + 1 of a valid control record, 1 for a missing, short, foreign or non-positive one.
[[nodiscard]] uint32_t NextCustomModelVersion(std::string_view record);
// The same from custom-model-control.bin on disk; computed afresh for every publication, so a
// failed attempt leaves the number to be taken again.
[[nodiscard]] uint32_t NextCustomModelVersion();

// True for "custom-model-snapshot-<decimal>.bin" whose number parses completely and is
// neither `current` nor `current` - 1: the snapshots clean-up deletes.
[[nodiscard]] bool IsStaleCustomModelSnapshot(std::wstring_view fileName, uint32_t current);

// Deletes the stale snapshots of `folder` (failures ignored).
void RemoveStaleCustomModelSnapshots(const std::wstring& folder, uint32_t current);

// Publishes the compiled model under the next version. Returns "" and sets `version`, or the
// failure message; on failure the previous control file and snapshot stay in effect.
[[nodiscard]] std::wstring PublishCustomModel(const CompiledCustomModel& model, uint32_t& version);

}  // namespace cmr

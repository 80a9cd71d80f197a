#pragma once
// Publication of the custom model snapshot into the `published` folder through the program's one
// publication routine (common/publication.h): the numbered snapshot first (atomic write), then
// the 12-byte control file naming it (atomic rename: the commit point), then clean-up that
// keeps the current and the previous snapshot for readers still holding the old one.
//
// custom-model-control.bin, 12 bytes: magic 0x424E43D6, layout 18, version n (all u32 LE).
//
// Publications of the custom model are serialised between processes by the named mutex
// "Local\BnlxCmrCustomModelPublication", held from reading the control file to its rename (and
// by the overlay pipeline around a whole transaction: snapshot/overlay_staging.h).

#include <cstdint>
#include <string>
#include <string_view>

#include "common/file_operations.h"
#include "common/status.h"
#include "snapshot/custom_model_snapshot.h"

namespace cmr {

inline constexpr std::wstring_view kCustomModelControlName = L"custom-model-control.bin";
inline constexpr std::wstring_view kCustomModelSnapshotPrefix = L"custom-model-snapshot-";
inline constexpr size_t kCustomModelControlBytes = 12;
inline constexpr wchar_t kCustomModelLockName[] = L"Local\\BnlxCmrCustomModelPublication";

[[nodiscard]] std::wstring CustomModelControlPath();
[[nodiscard]] std::wstring CustomModelSnapshotPath(uint32_t version);

// The 12 bytes of the control record for `version`.
[[nodiscard]] std::string CustomModelControlRecord(uint32_t version);

// The version a control record announces: true when the record has at least 12 bytes, the
// magic and layout are right and the version, read as a signed number, is positive.
[[nodiscard]] bool ReadCustomModelControl(std::string_view record, uint32_t& version);

// True for "custom-model-snapshot-<decimal>.bin" whose number parses completely and is
// neither `current` nor `current` - 1: the snapshots clean-up deletes.
[[nodiscard]] bool IsStaleCustomModelSnapshot(std::wstring_view fileName, uint32_t current);

// Publishes the compiled model under the next version (one more than the control record's, 1
// when there is no valid record) into `folder`. On failure the previous control file and
// snapshot stay in effect.
[[nodiscard]] Result<uint32_t> PublishCustomModel(const CompiledCustomModel& model,
                                                  FileOperations& files = SystemFiles());
[[nodiscard]] Result<uint32_t> PublishCustomModel(const CompiledCustomModel& model,
                                                  const std::wstring& folder,
                                                  FileOperations& files);

}  // namespace cmr

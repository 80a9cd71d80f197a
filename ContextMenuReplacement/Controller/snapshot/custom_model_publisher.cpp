#include "snapshot/custom_model_publisher.h"

#include <fmt/xchar.h>

#include "common/data_paths.h"
#include "common/byte_image.h"
#include "common/file_io.h"
#include "common/unique_handle.h"

namespace cmr {

std::wstring CustomModelControlPath() {
  return JoinPath(PublishedFolder(), kCustomModelControlName);
}

std::wstring CustomModelSnapshotPath(uint32_t version) {
  return JoinPath(PublishedFolder(), fmt::format(L"{}{}.bin", kCustomModelSnapshotPrefix, version));
}

std::string CustomModelControlRecord(uint32_t version) {
  ByteImageWriter record(12);
  record.PutU32(0, kCustomModelMagic);
  record.PutU32(4, kCustomModelLayout);
  record.PutU32(8, version);
  return record.take();
}

bool ReadCustomModelControl(std::string_view record, uint32_t& version) {
  ByteImageReader reader(record);
  const uint32_t magic = reader.U32(0);
  const uint32_t layout = reader.U32(4);
  const auto announced = static_cast<int32_t>(reader.U32(8));
  if (reader.failed() || magic != kCustomModelMagic || layout != kCustomModelLayout ||
      announced <= 0) {
    return false;
  }
  version = static_cast<uint32_t>(announced);
  return true;
}

uint32_t NextCustomModelVersion(std::string_view record) {
  uint32_t version = 0;
  return ReadCustomModelControl(record, version) ? version + 1 : 1;
}

uint32_t NextCustomModelVersion() {
  std::string record;
  if (ReadWholeFile(CustomModelControlPath(), record) != ReadStatus::ok) return 1;
  return NextCustomModelVersion(record);
}

bool IsStaleCustomModelSnapshot(std::wstring_view fileName, uint32_t current) {
  constexpr std::wstring_view kSuffix = L".bin";
  if (fileName.size() <= kCustomModelSnapshotPrefix.size() + kSuffix.size() ||
      fileName.substr(0, kCustomModelSnapshotPrefix.size()) != kCustomModelSnapshotPrefix ||
      fileName.substr(fileName.size() - kSuffix.size()) != kSuffix) {
    return false;
  }
  const std::wstring_view digits =
      fileName.substr(kCustomModelSnapshotPrefix.size(),
                      fileName.size() - kCustomModelSnapshotPrefix.size() - kSuffix.size());
  uint64_t number = 0;
  for (wchar_t unit : digits) {
    if (unit < L'0' || unit > L'9') return false;
    if (number > (UINT64_MAX - 9) / 10) return false;  // does not parse: leave it alone
    number = number * 10 + static_cast<uint64_t>(unit - L'0');
  }
  return number != current && number + 1 != current;
}

void RemoveStaleCustomModelSnapshots(const std::wstring& folder, uint32_t current) {
  WIN32_FIND_DATAW entry{};
  const std::wstring pattern = JoinPath(folder, std::wstring(kCustomModelSnapshotPrefix) + L"*");
  UniqueFind find(::FindFirstFileW(pattern.c_str(), &entry));
  if (!find) return;
  do {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 &&
        IsStaleCustomModelSnapshot(entry.cFileName, current)) {
      (void)::DeleteFileW(JoinPath(folder, entry.cFileName).c_str());
    }
  } while (::FindNextFileW(find.get(), &entry));
}

std::wstring PublishCustomModel(const CompiledCustomModel& model, uint32_t& version) {
  const std::wstring folder = PublishedFolder();
  if (const DWORD error = EnsureDirectories(folder); error != ERROR_SUCCESS) {
    return fmt::format(L"Could not create the publish directory (error {}).", error);
  }
  const uint32_t next = NextCustomModelVersion();
  const std::string image = FlattenCustomModel(model, next);
  if (image.empty()) return L"The custom model snapshot exceeded its size limit.";
  if (std::wstring failure = AtomicWriteFile(CustomModelSnapshotPath(next), image);
      !failure.empty()) {
    return failure;
  }
  // The rename of the control file is the commit point: the snapshot it names is complete.
  if (std::wstring failure =
          AtomicWriteFile(CustomModelControlPath(), CustomModelControlRecord(next));
      !failure.empty()) {
    return failure;
  }
  RemoveStaleCustomModelSnapshots(folder, next);
  version = next;
  return {};
}

}  // namespace cmr

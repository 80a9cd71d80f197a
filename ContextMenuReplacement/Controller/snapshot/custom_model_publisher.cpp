#include "snapshot/custom_model_publisher.h"

#include <fmt/xchar.h>

#include "common/byte_image.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/publication.h"
#include "common/unique_handle.h"

namespace cmr {

namespace {

class CustomModelFormat final : public SnapshotFormat {
 public:
  explicit CustomModelFormat(const std::wstring& folder) : folder_(folder) {}

  const wchar_t* LockName() const override { return kCustomModelLockName; }
  std::wstring Folder() const override { return folder_; }
  std::wstring FilePrefix() const override { return L"custom-model-"; }
  std::wstring SnapshotPath(uint32_t version) const override {
    return JoinPath(folder_, fmt::format(L"{}{}.bin", kCustomModelSnapshotPrefix, version));
  }
  std::wstring ControlPath() const { return JoinPath(folder_, kCustomModelControlName); }

  Result<uint32_t> AnnouncedVersion(FileOperations& files) const override {
    Result<std::optional<std::string>> record = files.Read(ControlPath());
    if (!record) return record.status();
    uint32_t version = 0;
    if (!record.value() || !ReadCustomModelControl(*record.value(), version)) return 0u;
    return version;
  }

  Status Announce(FileOperations& files, uint32_t version) const override {
    return files.WriteAtomically(ControlPath(), CustomModelControlRecord(version));
  }

  void CleanUp(FileOperations& files, uint32_t current) const override {
    WIN32_FIND_DATAW entry{};
    const std::wstring pattern = JoinPath(folder_, std::wstring(kCustomModelSnapshotPrefix) + L"*");
    UniqueFind find(::FindFirstFileW(pattern.c_str(), &entry));
    if (!find) return;
    do {
      if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 &&
          IsStaleCustomModelSnapshot(entry.cFileName, current)) {
        (void)files.Delete(JoinPath(folder_, entry.cFileName));
      }
    } while (::FindNextFileW(find.get(), &entry));
  }

 private:
  std::wstring folder_;
};

}  // namespace

std::wstring CustomModelControlPath() {
  return JoinPath(PublishedFolder(), kCustomModelControlName);
}

std::wstring CustomModelSnapshotPath(uint32_t version) {
  return CustomModelFormat(PublishedFolder()).SnapshotPath(version);
}

std::string CustomModelControlRecord(uint32_t version) {
  ByteImageWriter record(kCustomModelControlBytes);
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

bool IsStaleCustomModelSnapshot(std::wstring_view fileName, uint32_t current) {
  constexpr std::wstring_view kSuffix = L".bin";
  if (fileName.size() <= kCustomModelSnapshotPrefix.size() + kSuffix.size() ||
      !fileName.starts_with(kCustomModelSnapshotPrefix) || !fileName.ends_with(kSuffix)) {
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

Result<uint32_t> PublishCustomModel(const CompiledCustomModel& model, FileOperations& files) {
  return PublishCustomModel(model, PublishedFolder(), files);
}

Result<uint32_t> PublishCustomModel(const CompiledCustomModel& model, const std::wstring& folder,
                                    FileOperations& files) {
  SnapshotBuild build;
  build.image = [&model](uint32_t version) -> Result<std::string> {
    std::string image = FlattenCustomModel(model, version);
    if (image.empty())
      return Status::Failure(L"The custom model snapshot exceeded its size limit.");
    return image;
  };
  return PublishSnapshot(CustomModelFormat(folder), files, build);
}

}  // namespace cmr

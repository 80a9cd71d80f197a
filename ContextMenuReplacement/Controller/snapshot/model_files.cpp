#include "snapshot/model_files.h"

#include <fmt/xchar.h>

#include "common/data_paths.h"
#include "snapshot/custom_model_publisher.h"

namespace cmr {

ReadStatus DiskModelFiles::Read(const std::wstring& path, std::string& bytes) {
  return ReadWholeFile(path, bytes);
}

Result<bool> DiskModelFiles::Exists(const std::wstring& path) {
  if (::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES) return true;
  const DWORD error = ::GetLastError();
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return false;
  return Status::Failure(L"Could not inspect the previous overlay.");
}

Status DiskModelFiles::AtomicWrite(const std::wstring& path, std::string_view bytes) {
  std::wstring failure = AtomicWriteFile(path, bytes);
  return failure.empty() ? Status::Ok() : Status::Failure(std::move(failure));
}

Status DiskModelFiles::Delete(const std::wstring& path) {
  if (DeleteFileIfPresent(path)) return {};
  return Failure(L"Could not delete '{}'.", path);
}

DWORD DiskModelFiles::CreateFolder(const std::wstring& path) {
  return EnsureDirectories(path);
}

Result<uint32_t> PublishCompiledModel(const CompiledCustomModel& model, ModelFiles& files) {
  const std::wstring folder = PublishedFolder();
  if (const DWORD error = files.CreateFolder(folder); error != ERROR_SUCCESS) {
    return Failure(L"Could not create the publish directory (error {}).", error);
  }
  // Taken afresh from the control record: a failed attempt leaves the number to be taken again.
  std::string record;
  const uint32_t next = files.Read(CustomModelControlPath(), record) == ReadStatus::ok
                            ? NextCustomModelVersion(record)
                            : 1;
  const std::string image = FlattenCustomModel(model, next);
  if (image.empty()) return Status::Failure(L"The custom model snapshot exceeded its size limit.");
  if (Status status = files.AtomicWrite(CustomModelSnapshotPath(next), image); !status) {
    return status;
  }
  // The rename of the control file is the commit point: the snapshot it names is complete.
  if (Status status = files.AtomicWrite(CustomModelControlPath(), CustomModelControlRecord(next));
      !status) {
    return status;
  }
  RemoveStaleCustomModelSnapshots(folder, next);
  return next;
}

}  // namespace cmr

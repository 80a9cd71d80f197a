#include "common/publication.h"

#include <fmt/xchar.h>

#include "common/file_io.h"
#include "common/orphaned_files.h"
#include "common/system_error.h"
#include "common/unique_handle.h"

namespace cmr {

namespace {

// A publication takes milliseconds; a holder that keeps the lock this long is stuck, and the
// caller (a person, the Settings application) is better told than kept waiting.
constexpr DWORD kLockWaitMs = 30000;
// A control file that is there but cannot be opened is most often being renamed over by
// another process, or held for a moment by an indexer or a scanner.
constexpr int kReadAttempts = 40;
constexpr DWORD kReadRetryMs = 25;

void RemoveOrphanedTemporaries(const SnapshotFormat& format, FileOperations& files) {
  const std::wstring prefix = format.FilePrefix();
  RemoveOrphanedFiles(
      format.Folder(), prefix + L"*.tmp",
      [&prefix](std::wstring_view name) -> std::optional<unsigned long> {
        const std::optional<TemporaryName> temporary = SplitTemporaryName(name);
        if (!temporary || !temporary->target.starts_with(prefix)) return {};
        return temporary->pid;
      },
      files);
}

}  // namespace

void SnapshotFormat::CleanUp(FileOperations&, uint32_t) const {}

Status SnapshotFormat::SnapshotWriteFailure(const std::wstring&, Status failure) const {
  return failure;
}

Status PublicationLock::Acquire(const wchar_t* name) {
  mutex_.emplace(name);
  if (!mutex_->created()) {
    return Win32Failure(fmt::format(L"Could not create the lock '{}'", name),
                        mutex_->creationError());
  }
  // Abandoned: the last holder died mid-publication. What it left is safe by construction
  // (nothing is announced before it is complete), so go on.
  if (mutex_->Take(kLockWaitMs)) return {};
  return Failure(
      L"Another process has been publishing for over {} seconds; nothing was "
      L"published.",
      kLockWaitMs / 1000);
}

Result<uint32_t> ReadAnnouncedVersion(const SnapshotFormat& format, FileOperations& files) {
  Result<uint32_t> announced = format.AnnouncedVersion(files);
  for (int attempt = 1; !announced && attempt < kReadAttempts; ++attempt) {
    ::Sleep(kReadRetryMs);
    announced = format.AnnouncedVersion(files);
  }
  if (!announced) {
    return Failure(L"The published version could not be read, so nothing was published: {}",
                   announced.message());
  }
  return announced;
}

Result<uint32_t> NextVersion(const SnapshotFormat& format, FileOperations& files) {
  const Result<uint32_t> announced = ReadAnnouncedVersion(format, files);
  if (!announced) return announced.status();
  if (announced.value() >= kHighestVersion) {
    return Failure(
        L"The control file '{}' announces version {}, and no later version can be "
        L"published because readers accept none above {}. Delete that file to "
        L"restart the numbering at 1.",
        format.ControlPath(), announced.value(), kHighestVersion);
  }
  return announced.value() + 1;
}

Result<uint32_t> PublishSnapshot(const SnapshotFormat& format, FileOperations& files,
                                 const SnapshotBuild& build) {
  if (Status folder = EnsureDirectories(format.Folder()); !folder) {
    return Failure(L"Could not create the publish directory (error {}).", folder.systemError());
  }
  PublicationLock lock;
  if (Status locked = lock.Acquire(format.LockName()); !locked) return locked;
  RemoveOrphanedTemporaries(format, files);

  const Result<uint32_t> version = NextVersion(format, files);
  if (!version) return version.status();
  const uint32_t next = version.value();

  Result<std::string> image = build.image(next);
  if (!image) return image.status();
  const std::wstring snapshot = format.SnapshotPath(next);
  if (Status written = files.WriteAtomically(snapshot, image.value()); !written) {
    return format.SnapshotWriteFailure(snapshot, std::move(written));
  }
  if (Status committed = format.Announce(files, next); !committed) return committed;
  format.CleanUp(files, next);
  return next;
}

}  // namespace cmr

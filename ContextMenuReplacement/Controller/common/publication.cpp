#include "common/publication.h"

#include <fmt/xchar.h>

#include "common/file_io.h"
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

class NamedLock {
 public:
  [[nodiscard]] Status Acquire(const wchar_t* name) {
    mutex_.reset(::CreateMutexW(nullptr, FALSE, name));
    if (!mutex_) return Win32Failure(fmt::format(L"Could not create the lock '{}'", name),
                                     ::GetLastError());
    // WAIT_ABANDONED: the last holder died mid-publication. What it left is safe by
    // construction (nothing is announced before it is complete), so go on.
    const DWORD waited = ::WaitForSingleObject(mutex_.get(), kLockWaitMs);
    if (waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED) {
      held_ = true;
      return {};
    }
    return Failure(L"Another process has been publishing for over {} seconds; nothing was "
                   L"published.",
                   kLockWaitMs / 1000);
  }
  ~NamedLock() {
    if (held_) ::ReleaseMutex(mutex_.get());
  }

 private:
  UniqueHandle mutex_;
  bool held_ = false;
};

bool ProcessRuns(unsigned long pid) {
  UniqueHandle process(::OpenProcess(SYNCHRONIZE, FALSE, pid));
  if (!process) return ::GetLastError() != ERROR_INVALID_PARAMETER;  // no such process
  return ::WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT;
}

void RemoveOrphanedTemporaries(const SnapshotFormat& format, FileOperations& files) {
  const std::wstring folder = format.Folder();
  const std::wstring prefix = format.FilePrefix();
  WIN32_FIND_DATAW entry{};
  UniqueFind find(::FindFirstFileW(JoinPath(folder, prefix + L"*.tmp").c_str(), &entry));
  if (!find) return;
  do {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 &&
        IsOrphanedTemporary(entry.cFileName, prefix, ProcessRuns)) {
      (void)files.Delete(JoinPath(folder, entry.cFileName));
    }
  } while (::FindNextFileW(find.get(), &entry));
}

}  // namespace

void SnapshotFormat::CleanUp(FileOperations&, uint32_t) const {}

Status SnapshotFormat::SnapshotWriteFailure(const std::wstring&, Status failure) const {
  return failure;
}

bool IsOrphanedTemporary(std::wstring_view fileName, std::wstring_view prefix,
                         bool (*processRuns)(unsigned long pid)) {
  constexpr std::wstring_view kSuffix = L".tmp";
  if (fileName.size() <= prefix.size() + kSuffix.size() || !fileName.starts_with(prefix) ||
      !fileName.ends_with(kSuffix)) {
    return false;
  }
  const std::wstring_view stem = fileName.substr(0, fileName.size() - kSuffix.size());
  const size_t dot = stem.find_last_of(L'.');
  if (dot == std::wstring_view::npos || dot + 1 == stem.size()) return false;
  unsigned long pid = 0;
  for (wchar_t unit : stem.substr(dot + 1)) {
    if (unit < L'0' || unit > L'9' || pid > 0x0FFFFFFF) return false;
    pid = pid * 10 + static_cast<unsigned long>(unit - L'0');
  }
  return !processRuns(pid);
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

Result<uint32_t> PublishSnapshot(const SnapshotFormat& format, FileOperations& files,
                                 const SnapshotBuild& build) {
  if (Status folder = EnsureDirectories(format.Folder()); !folder) {
    return Failure(L"Could not create the publish directory (error {}).", folder.systemError());
  }
  NamedLock lock;
  if (Status locked = lock.Acquire(format.LockName()); !locked) return locked;
  RemoveOrphanedTemporaries(format, files);

  const Result<uint32_t> announced = ReadAnnouncedVersion(format, files);
  if (!announced) return announced.status();
  const uint32_t next = announced.value() + 1;

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

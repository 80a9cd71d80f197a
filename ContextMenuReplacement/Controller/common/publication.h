#pragma once
// The one routine that publishes a numbered snapshot for readers in other processes, whatever
// its format:
//
//   take the format's named lock (held from reading the announced version to the commit, so two
//   publishers never take the same number: the Settings application, the tray's reconcile and
//   a `config watch` may all publish at once) ->
//   remove temporary files that publishers which died left behind ->
//   read the announced version n (a control file that exists but cannot be read right now is
//   retried for a moment, then the publication fails: numbering never restarts by accident;
//   an n that has no successor readers accept is refused) ->
//   build the image for n + 1 -> write snapshot n + 1 (created new under a temporary name,
//   flushed, renamed into place: a snapshot is never opened for writing once its number may be
//   announced) -> announce n + 1 (the commit
//   point) -> the format's clean-up.
//
// A failure at any step stops the routine; the announced version and every announced snapshot
// are then as they were.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "common/file_operations.h"
#include "common/named_mutex.h"
#include "common/status.h"

namespace cmr {

// The named mutex of a format, held for the life of the object once acquired. A thread that
// already holds it may acquire it again (a transaction around a publication).
class PublicationLock {
 public:
  PublicationLock() = default;
  PublicationLock(const PublicationLock&) = delete;
  PublicationLock& operator=(const PublicationLock&) = delete;
  // Waits up to 30 seconds; a holder that keeps it longer is stuck.
  [[nodiscard]] Status Acquire(const wchar_t* name);

 private:
  std::optional<NamedMutex> mutex_;
};

class SnapshotFormat {
 public:
  virtual ~SnapshotFormat() = default;
  // The named mutex that serialises publications of this format within the session.
  [[nodiscard]] virtual const wchar_t* LockName() const = 0;
  [[nodiscard]] virtual std::wstring Folder() const = 0;
  [[nodiscard]] virtual std::wstring SnapshotPath(uint32_t version) const = 0;
  // The file whose version word announces the snapshot in force.
  [[nodiscard]] virtual std::wstring ControlPath() const = 0;
  // The file name prefix shared by every file of the format, temporaries included.
  [[nodiscard]] virtual std::wstring FilePrefix() const = 0;
  // The announced version; 0 when the control file is missing or not a valid one. A failure
  // only when it exists and cannot be read.
  [[nodiscard]] virtual Result<uint32_t> AnnouncedVersion(FileOperations& files) const = 0;
  // The commit point.
  [[nodiscard]] virtual Status Announce(FileOperations& files, uint32_t version) const = 0;
  // After a successful commit; failures are ignored (a leftover is harmless).
  virtual void CleanUp(FileOperations& files, uint32_t announced) const;
  // What a failure to write the snapshot file `path` tells the caller: the file writer's own
  // message, unless the format's readers were promised other words.
  [[nodiscard]] virtual Status SnapshotWriteFailure(const std::wstring& path, Status failure) const;
};

struct SnapshotBuild {
  // The image for `version`, or the refusal (over-size, for one). Nothing is written before it.
  std::function<Result<std::string>(uint32_t version)> image;
};

// Readers take a version word as a signed number, so numbering ends here rather than wrap to a
// number they would take for "nothing published" or for an older publication.
inline constexpr uint32_t kHighestVersion = 0x7FFFFFFF;

// The version a publication would announce next: one more than the announced one. Refused,
// naming the control file, when the announced one is already kHighestVersion or above.
[[nodiscard]] Result<uint32_t> NextVersion(const SnapshotFormat& format, FileOperations& files);

// Publishes under the next version and returns it.
[[nodiscard]] Result<uint32_t> PublishSnapshot(const SnapshotFormat& format, FileOperations& files,
                                               const SnapshotBuild& build);

// The version announced now, read under the same retry rule as a publication.
[[nodiscard]] Result<uint32_t> ReadAnnouncedVersion(const SnapshotFormat& format,
                                                    FileOperations& files);

}  // namespace cmr

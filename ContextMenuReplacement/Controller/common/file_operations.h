#pragma once
// The file steps that publications and rollbacks take, behind one narrow interface. The program
// uses the system's; tests replace it to fail a step, or to stop every step from N on as a
// process that died there would, and to see the order in which steps were taken.

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "common/status.h"

namespace cmr {

class FileOperations {
 public:
  virtual ~FileOperations() = default;
  // The whole file; std::nullopt when it does not exist.
  [[nodiscard]] virtual Result<std::optional<std::string>> Read(const std::wstring& path) = 0;
  // Temporary file created new, written, flushed, renamed over the target (AtomicWriteFile).
  [[nodiscard]] virtual Status WriteAtomically(const std::wstring& target,
                                               std::string_view bytes) = 0;
  // A missing file counts as deleted.
  [[nodiscard]] virtual Status Delete(const std::wstring& path) = 0;
  // Opens (creating) the file shared for reading and writing, maps exactly `size` bytes
  // read-write (a shorter file grows with zero bytes, a longer one is cut back), lets `update`
  // change them in place, and flushes the view.
  [[nodiscard]] virtual Status UpdateMapped(const std::wstring& path, size_t size,
                                            const std::function<void(unsigned char*)>& update) = 0;
};

// The real file system, or what a test build of the controller put in its place.
[[nodiscard]] FileOperations& SystemFiles();
// A test build of the controller routes the program's file steps through `files` (to end the
// process in the middle of one); null gives the real file system back. The shipped program
// never calls it. A replacement that calls SystemFiles() before it is installed reaches the
// real one.
void ReplaceSystemFiles(FileOperations* files) noexcept;

}  // namespace cmr

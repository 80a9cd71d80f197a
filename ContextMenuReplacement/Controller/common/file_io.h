#pragma once
// Whole-file reads and writes shared by every reader and publisher of the program.

#include <optional>
#include <string>
#include <string_view>

#include "common/named_mutex.h"
#include "common/status.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "common/win32.h"

namespace cmr {

// The whole file, read through a read-only mapping; std::nullopt when the file (or its folder)
// does not exist. Any other failure names the file and the system's reason.
[[nodiscard]] Result<std::optional<std::string>> ReadFileIfPresent(const std::wstring& path);
// The same for a file that must exist: a missing one is a failure too.
[[nodiscard]] Result<std::string> ReadWholeFile(const std::wstring& path);

[[nodiscard]] bool FileExists(const std::wstring& path);
[[nodiscard]] bool DirectoryExists(const std::wstring& path);

// The folder part of a path ("" when the path names no folder).
[[nodiscard]] std::wstring ParentFolder(const std::wstring& path);
// The last component of a path: what follows its last "\\" or "/", or the whole path.
[[nodiscard]] std::wstring_view FileNameOf(std::wstring_view path);
[[nodiscard]] std::wstring JoinPath(const std::wstring& folder, std::wstring_view name);

// Creates the folder and every missing parent. The failure carries the Win32 error of the first
// level that could not be created.
[[nodiscard]] Status EnsureDirectories(const std::wstring& path);

// Creates a file that must not exist yet, writes it whole and flushes it to disk. Missing parent
// folders are created. On failure ("Could not open '{}' for writing.", "Could not write '{}'.",
// with the Win32 code as the system error) a partly written file is removed again.
[[nodiscard]] Status WriteNewFile(const std::wstring& path, std::string_view bytes);

// A turn at the end of an append-only file, held by every appender of this program around its
// write. Windows lands each append-only WriteFile whole by itself, but Wine does not: two
// processes appending at once lost lines there. The turn is one mutex for the session; when it
// cannot be had within a second, the write goes ahead all the same.
class AppendTurn {
 public:
  AppendTurn();
  AppendTurn(const AppendTurn&) = delete;
  AppendTurn& operator=(const AppendTurn&) = delete;

 private:
  NamedMutex mutex_;
};

// Appends `bytes` at the end of the file, creating it and its folders when missing; never
// truncates. Through append-only access and in its AppendTurn, so another process's append
// lands whole before or after it.
[[nodiscard]] Status AppendToFile(const std::wstring& path, std::string_view bytes);

// Writes `bytes` to target + ".<pid>.tmp" (created new), flushes it, and renames it over the
// target with replace-existing and write-through, so readers see the old file or the new one,
// never a part. On failure ("Could not create '{}'.", "Could not write '{}'.", "Could not
// publish '{}': {}.") the temporary file is gone and the target is as it was.
[[nodiscard]] Status AtomicWriteFile(const std::wstring& target, std::string_view bytes);
// The failure of an AtomicWriteFile came from writing the bytes, after the file was opened.
[[nodiscard]] bool FailedWhileWriting(const Status& atomicWrite);

// Deletes a file; a file that is already missing counts as deleted.
[[nodiscard]] Status DeleteFileIfPresent(const std::wstring& path);

// "<target>.<pid>.tmp": the temporary name of AtomicWriteFile for this process.
[[nodiscard]] std::wstring TemporaryPathFor(const std::wstring& target);

}  // namespace cmr

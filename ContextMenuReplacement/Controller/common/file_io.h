#pragma once
// Whole-file reads and writes shared by every reader and publisher of the program.

#include <string>
#include <string_view>

#include "common/status.h"
#include "common/text.h"
#include "common/win32.h"

namespace cmr {

enum class ReadStatus { ok, missing, unreadable };

// Reads the whole file through a read-only mapping. On failure `bytes` is untouched.
[[nodiscard]] ReadStatus ReadWholeFile(const std::wstring& path, std::string& bytes);

[[nodiscard]] bool FileExists(const std::wstring& path);
[[nodiscard]] bool DirectoryExists(const std::wstring& path);

// The folder part of a path ("" when the path names no folder).
[[nodiscard]] std::wstring ParentFolder(const std::wstring& path);
[[nodiscard]] std::wstring JoinPath(const std::wstring& folder, std::wstring_view name);

// Creates the folder and every missing parent. Returns ERROR_SUCCESS or the Win32 error of the
// first level that could not be created.
[[nodiscard]] DWORD EnsureDirectories(const std::wstring& path);

// Truncating write of a file that nobody reads while it is written (its version is announced
// only afterwards). Creates missing parent folders (a failure there surfaces as the open
// failure). Appends "Could not open '{}' for writing." or "Could not write '{}'." on failure.
[[nodiscard]] bool WriteWholeFile(const std::wstring& path, std::string_view bytes,
                                  MessageList& errors);

// Writes `bytes` to target + ".<pid>.tmp" and renames it over the target with replace-existing
// and write-through, so readers see the old file or the new one, never a part. Returns an empty
// string on success, else the message; on failure the temporary file is gone and the target is
// as it was.
[[nodiscard]] std::wstring AtomicWriteFile(const std::wstring& target, std::string_view bytes);

// Deletes a file; a file that is already missing counts as deleted.
[[nodiscard]] bool DeleteFileIfPresent(const std::wstring& path);

}  // namespace cmr

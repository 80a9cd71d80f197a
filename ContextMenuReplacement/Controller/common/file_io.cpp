#include "common/file_io.h"

#include <fmt/xchar.h>

#include "common/system_error.h"
#include "common/unique_handle.h"

namespace cmr {

Result<std::optional<std::string>> ReadFileIfPresent(const std::wstring& path) {
  // Shared for deletion too, so that reading never stands in the way of a publisher renaming a
  // new file over this one.
  UniqueHandle file(::CreateFileW(path.c_str(), GENERIC_READ,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) {
    const DWORD error = ::GetLastError();
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) {
      return std::optional<std::string>();
    }
    return Win32Failure(fmt::format(L"Could not open '{}'", path), error);
  }
  LARGE_INTEGER size{};
  if (!::GetFileSizeEx(file.get(), &size)) {
    return Win32Failure(fmt::format(L"Could not read the size of '{}'", path), ::GetLastError());
  }
  if (size.QuadPart < 0 || size.QuadPart > 0x7FFFFFFF) {
    return Failure(L"'{}' is too large to read ({} bytes).", path, size.QuadPart);
  }
  // A zero-length file cannot be mapped; it simply has no bytes.
  if (size.QuadPart == 0) return std::optional<std::string>(std::string());
  UniqueHandle mapping(::CreateFileMappingW(file.get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
  if (!mapping) return Win32Failure(fmt::format(L"Could not map '{}'", path), ::GetLastError());
  UniqueView view(::MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, 0));
  if (!view) return Win32Failure(fmt::format(L"Could not view '{}'", path), ::GetLastError());
  return std::optional<std::string>(
      std::string(static_cast<const char*>(view.get()), static_cast<size_t>(size.QuadPart)));
}

Result<std::string> ReadWholeFile(const std::wstring& path) {
  Result<std::optional<std::string>> read = ReadFileIfPresent(path);
  if (!read) return read.status();
  if (!read.value()) {
    return Win32Failure(fmt::format(L"Could not open '{}'", path), ERROR_FILE_NOT_FOUND);
  }
  return std::move(*read.value());
}

bool FileExists(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool DirectoryExists(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

std::wstring_view FileNameOf(std::wstring_view path) {
  const size_t slash = path.find_last_of(L"\\/");
  return slash == std::wstring_view::npos ? path : path.substr(slash + 1);
}

std::wstring ParentFolder(const std::wstring& path) {
  const size_t slash = path.find_last_of(L"\\/");
  if (slash == std::wstring::npos) return {};
  // Keep the root of "C:\x" as "C:\".
  if (slash == 2 && path.size() > 1 && path[1] == L':') return path.substr(0, 3);
  return path.substr(0, slash);
}

std::wstring JoinPath(const std::wstring& folder, std::wstring_view name) {
  if (folder.empty()) return std::wstring(name);
  std::wstring out = folder;
  if (out.back() != L'\\' && out.back() != L'/') out += L'\\';
  out += name;
  return out;
}

Status EnsureDirectories(const std::wstring& path) {
  if (path.empty() || DirectoryExists(path)) return {};
  const std::wstring parent = ParentFolder(path);
  if (!parent.empty() && parent != path) {
    if (Status made = EnsureDirectories(parent); !made) return made;
  }
  if (::CreateDirectoryW(path.c_str(), nullptr)) return {};
  const DWORD error = ::GetLastError();
  // Another process may have created it between the check and the call.
  if (error == ERROR_ALREADY_EXISTS && DirectoryExists(path)) return {};
  return Win32Failure(fmt::format(L"Could not create the folder '{}'", path), error);
}

namespace {

// Writes all bytes with as many WriteFile calls as it takes.
bool WriteAll(HANDLE file, std::string_view bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const DWORD chunk = static_cast<DWORD>(std::min<size_t>(bytes.size() - done, 1u << 30));
    DWORD written = 0;
    if (!::WriteFile(file, bytes.data() + done, chunk, &written, nullptr) || written == 0) {
      return false;
    }
    done += written;
  }
  return true;
}

// A reader that opened the target without sharing deletion (an indexer, a scanner, a reader
// in Explorer) makes the rename fail for as long as it holds the file: retry for a moment.
bool RenameOver(const std::wstring& from, const std::wstring& to) {
  constexpr int kAttempts = 40;
  constexpr DWORD kRetryMs = 25;
  for (int attempt = 1;; ++attempt) {
    if (::MoveFileExW(from.c_str(), to.c_str(),
                      MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
      return true;
    }
    const DWORD error = ::GetLastError();
    if (attempt == kAttempts ||
        (error != ERROR_ACCESS_DENIED && error != ERROR_SHARING_VIOLATION)) {
      ::SetLastError(error);
      return false;
    }
    ::Sleep(kRetryMs);
  }
}

}  // namespace

Status WriteNewFile(const std::wstring& path, std::string_view bytes) {
  (void)EnsureDirectories(ParentFolder(path));  // a failure there surfaces as the create failure
  UniqueHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) {
    return Status::Failure(fmt::format(L"Could not open '{}' for writing.", path),
                           ::GetLastError());
  }
  if (!WriteAll(file.get(), bytes) || !::FlushFileBuffers(file.get())) {
    const DWORD error = ::GetLastError();
    file.reset();
    ::DeleteFileW(path.c_str());
    return Status::Failure(fmt::format(L"Could not write '{}'.", path), error);
  }
  return {};
}

AppendTurn::AppendTurn() : mutex_(L"Local\\BnlxCmrFileAppend") {
  // Not had within a second: the write goes ahead all the same.
  (void)mutex_.Take(1000);
}

Status AppendToFile(const std::wstring& path, std::string_view bytes) {
  (void)EnsureDirectories(ParentFolder(path));  // a failure there surfaces as the open failure
  UniqueHandle file(::CreateFileW(path.c_str(), FILE_APPEND_DATA | SYNCHRONIZE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return Win32Failure(fmt::format(L"Could not open '{}'", path), ::GetLastError());
  const AppendTurn turn;
  if (!WriteAll(file.get(), bytes)) {
    return Win32Failure(fmt::format(L"Could not write '{}'", path), ::GetLastError());
  }
  return {};
}

std::wstring TemporaryPathFor(const std::wstring& target) {
  return fmt::format(L"{}.{}.tmp", target, ::GetCurrentProcessId());
}

Status AtomicWriteFile(const std::wstring& target, std::string_view bytes) {
  const std::wstring temporary = TemporaryPathFor(target);
  {
    // A temporary of this process id left by a process that died under the same id is ours to
    // replace; created new otherwise, so nothing else's file is ever written into.
    (void)::DeleteFileW(temporary.c_str());
    UniqueHandle file(::CreateFileW(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
      return Status::Failure(fmt::format(L"Could not create '{}'.", temporary), ::GetLastError());
    // Flushed before the rename: after a power loss the name must not point at missing data.
    if (!WriteAll(file.get(), bytes) || !::FlushFileBuffers(file.get())) {
      const DWORD error = ::GetLastError();
      file.reset();
      ::DeleteFileW(temporary.c_str());
      return Status::Failure(fmt::format(L"Could not write '{}'.", temporary), error);
    }
  }
  if (!RenameOver(temporary, target)) {
    const DWORD error = ::GetLastError();
    ::DeleteFileW(temporary.c_str());
    return Status::Failure(
        SystemTextSentence(fmt::format(L"Could not publish '{}'", target), error), error);
  }
  return {};
}

bool FailedWhileWriting(const Status& atomicWrite) {
  return !atomicWrite && atomicWrite.message().starts_with(L"Could not write '");
}

Status DeleteFileIfPresent(const std::wstring& path) {
  if (::DeleteFileW(path.c_str())) return {};
  const DWORD error = ::GetLastError();
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return {};
  return Win32Failure(fmt::format(L"Could not delete '{}'", path), error);
}

}  // namespace cmr

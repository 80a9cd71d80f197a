#include "common/file_io.h"

#include <fmt/xchar.h>

#include "common/system_error.h"
#include "common/unique_handle.h"

namespace cmr {

ReadStatus ReadWholeFile(const std::wstring& path, std::string& bytes) {
  UniqueHandle file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) {
    const DWORD error = ::GetLastError();
    return (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
               ? ReadStatus::missing
               : ReadStatus::unreadable;
  }
  LARGE_INTEGER size{};
  if (!::GetFileSizeEx(file.get(), &size) || size.QuadPart < 0 || size.QuadPart > 0x7FFFFFFF) {
    return ReadStatus::unreadable;
  }
  // A zero-length file cannot be mapped; it simply has no bytes.
  if (size.QuadPart == 0) {
    bytes.clear();
    return ReadStatus::ok;
  }
  UniqueHandle mapping(::CreateFileMappingW(file.get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
  if (!mapping) return ReadStatus::unreadable;
  UniqueView view(::MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, 0));
  if (!view) return ReadStatus::unreadable;
  bytes.assign(static_cast<const char*>(view.get()), static_cast<size_t>(size.QuadPart));
  return ReadStatus::ok;
}

bool FileExists(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool DirectoryExists(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
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

DWORD EnsureDirectories(const std::wstring& path) {
  if (path.empty() || DirectoryExists(path)) return ERROR_SUCCESS;
  const std::wstring parent = ParentFolder(path);
  if (!parent.empty() && parent != path) {
    const DWORD parentError = EnsureDirectories(parent);
    if (parentError != ERROR_SUCCESS) return parentError;
  }
  if (::CreateDirectoryW(path.c_str(), nullptr)) return ERROR_SUCCESS;
  const DWORD error = ::GetLastError();
  // Another process may have created it between the check and the call.
  return (error == ERROR_ALREADY_EXISTS && DirectoryExists(path)) ? ERROR_SUCCESS : error;
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

}  // namespace

bool WriteWholeFile(const std::wstring& path, std::string_view bytes, MessageList& errors) {
  (void)EnsureDirectories(ParentFolder(path));
  UniqueHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                  CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) {
    errors.push_back(fmt::format(L"Could not open '{}' for writing.", path));
    return false;
  }
  if (!WriteAll(file.get(), bytes)) {
    errors.push_back(fmt::format(L"Could not write '{}'.", path));
    return false;
  }
  return true;
}

std::wstring AtomicWriteFile(const std::wstring& target, std::string_view bytes) {
  const std::wstring temporary = fmt::format(L"{}.{}.tmp", target, ::GetCurrentProcessId());
  {
    UniqueHandle file(::CreateFileW(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return fmt::format(L"Could not create '{}'.", temporary);
    if (!WriteAll(file.get(), bytes)) {
      file.reset();
      ::DeleteFileW(temporary.c_str());
      return fmt::format(L"Could not write '{}'.", temporary);
    }
  }
  if (!::MoveFileExW(temporary.c_str(), target.c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    const DWORD error = ::GetLastError();
    ::DeleteFileW(temporary.c_str());
    return fmt::format(L"Could not publish '{}': {}.", target, ErrorText(error));
  }
  return {};
}

bool DeleteFileIfPresent(const std::wstring& path) {
  if (::DeleteFileW(path.c_str())) return true;
  const DWORD error = ::GetLastError();
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

}  // namespace cmr

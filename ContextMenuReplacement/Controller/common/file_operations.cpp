#include "common/file_operations.h"

#include <fmt/xchar.h>

#include "common/file_io.h"
#include "common/system_error.h"
#include "common/unique_handle.h"

namespace cmr {

namespace {

Status CutTo(HANDLE file, size_t size) {
  LARGE_INTEGER current{};
  if (!::GetFileSizeEx(file, &current) || current.QuadPart <= static_cast<LONGLONG>(size)) {
    return {};
  }
  LARGE_INTEGER end{};
  end.QuadPart = static_cast<LONGLONG>(size);
  // A reader that has the file mapped makes this fail; the file then keeps its length, and its
  // readers refuse it as they refuse any foreign file.
  if (::SetFilePointerEx(file, end, nullptr, FILE_BEGIN)) (void)::SetEndOfFile(file);
  return {};
}

class SystemFileOperations final : public FileOperations {
 public:
  Result<std::optional<std::string>> Read(const std::wstring& path) override {
    return ReadFileIfPresent(path);
  }

  Status WriteAtomically(const std::wstring& target, std::string_view bytes) override {
    return AtomicWriteFile(target, bytes);
  }

  Status Delete(const std::wstring& path) override { return DeleteFileIfPresent(path); }

  Status UpdateMapped(const std::wstring& path, size_t size,
                      const std::function<void(unsigned char*)>& update) override {
    (void)EnsureDirectories(ParentFolder(path));  // a failure there surfaces as the open failure
    UniqueHandle file(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return Failure(L"Could not open '{}': {}", path, ErrorText(::GetLastError()));
    (void)CutTo(file.get(), size);
    UniqueHandle mapping(::CreateFileMappingW(file.get(), nullptr, PAGE_READWRITE, 0,
                                              static_cast<DWORD>(size), nullptr));
    if (!mapping) return Failure(L"Could not map '{}': {}", path, ErrorText(::GetLastError()));
    UniqueView view(::MapViewOfFile(mapping.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, size));
    if (!view) return Failure(L"Could not view '{}': {}", path, ErrorText(::GetLastError()));
    update(static_cast<unsigned char*>(view.get()));
    if (!::FlushViewOfFile(view.get(), size)) {
      return Failure(L"Could not flush '{}': {}", path, ErrorText(::GetLastError()));
    }
    return {};
  }
};

FileOperations* g_replacement = nullptr;

}  // namespace

FileOperations& SystemFiles() {
  static SystemFileOperations files;
  return g_replacement != nullptr ? *g_replacement : files;
}

void ReplaceSystemFiles(FileOperations* files) noexcept {
  g_replacement = files;
}

}  // namespace cmr

#include "common/orphaned_files.h"

#include "common/file_io.h"
#include "common/unique_handle.h"

namespace cmr {

std::optional<unsigned long> ParseProcessId(std::wstring_view digits) {
  if (digits.empty()) return std::nullopt;
  unsigned long pid = 0;
  for (wchar_t unit : digits) {
    if (unit < L'0' || unit > L'9' || pid > 0x0FFFFFFF) return std::nullopt;
    pid = pid * 10 + static_cast<unsigned long>(unit - L'0');
  }
  return pid;
}

std::optional<TemporaryName> SplitTemporaryName(std::wstring_view fileName) {
  constexpr std::wstring_view kSuffix = L".tmp";
  if (!fileName.ends_with(kSuffix)) return std::nullopt;
  const std::wstring_view stem = fileName.substr(0, fileName.size() - kSuffix.size());
  const size_t dot = stem.find_last_of(L'.');
  if (dot == std::wstring_view::npos) return std::nullopt;
  const std::optional<unsigned long> pid = ParseProcessId(stem.substr(dot + 1));
  if (!pid) return std::nullopt;
  return TemporaryName{stem.substr(0, dot), *pid};
}

bool ProcessRuns(unsigned long pid) {
  UniqueHandle process(::OpenProcess(SYNCHRONIZE, FALSE, pid));
  if (!process) return ::GetLastError() != ERROR_INVALID_PARAMETER;  // no such process
  return ::WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT;
}

void RemoveOrphanedFiles(const std::wstring& folder, const std::wstring& pattern,
                         const CreatorOf& creatorOf, FileOperations& files) {
  WIN32_FIND_DATAW entry{};
  UniqueFind find(::FindFirstFileW(JoinPath(folder, pattern).c_str(), &entry));
  if (!find) return;
  do {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) continue;
    const std::optional<unsigned long> creator = creatorOf(entry.cFileName);
    // One that cannot go now is still an orphan at the next clean-up.
    if (creator && !ProcessRuns(*creator)) (void)files.Delete(JoinPath(folder, entry.cFileName));
  } while (::FindNextFileW(find.get(), &entry));
}

}  // namespace cmr

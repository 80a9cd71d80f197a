#include "snapshot/overlay_staging.h"

#include <fmt/xchar.h>

#include "common/file_io.h"
#include "common/orphaned_files.h"
#include "snapshot/custom_model_publisher.h"

namespace cmr {

namespace {
constexpr std::wstring_view kCandidateMark = L".candidate-";
}  // namespace

std::wstring CandidateOverlayPath(const std::wstring& overlayPath) {
  return fmt::format(L"{}{}{}", overlayPath, kCandidateMark, ::GetCurrentProcessId());
}

std::optional<unsigned long> OverlayStagerOf(std::wstring_view fileName,
                                             std::wstring_view overlayName) {
  const std::optional<TemporaryName> temporary = SplitTemporaryName(fileName);
  const std::wstring_view staged = temporary ? temporary->target : fileName;
  if (!staged.starts_with(overlayName)) return std::nullopt;
  const std::wstring_view rest = staged.substr(overlayName.size());
  if (rest.empty()) return temporary ? std::optional(temporary->pid) : std::nullopt;
  if (!rest.starts_with(kCandidateMark)) return std::nullopt;
  const std::optional<unsigned long> pid = ParseProcessId(rest.substr(kCandidateMark.size()));
  if (!pid || (temporary && temporary->pid != *pid)) return std::nullopt;
  return pid;
}

Status OverlayTransaction::Begin(const std::wstring& overlayPath, FileOperations& files) {
  if (Status locked = lock_.Acquire(kCustomModelLockName); !locked) return locked;
  if (overlayPath.empty()) return {};
  const std::wstring overlayName(FileNameOf(overlayPath));
  RemoveOrphanedFiles(
      ParentFolder(overlayPath), overlayName + L".*",
      [&overlayName](std::wstring_view name) { return OverlayStagerOf(name, overlayName); }, files);
  return {};
}

}  // namespace cmr

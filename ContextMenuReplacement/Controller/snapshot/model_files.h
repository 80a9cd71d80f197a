#pragma once
// The file operations a custom model publication or reset performs, behind one narrow
// interface: the publish-and-rollback logic has many failure paths that the real file system
// cannot produce on demand (a rename failing between two steps), so tests replace it to fail
// at any step. DiskModelFiles is the real one.

#include <cstdint>
#include <string>
#include <string_view>

#include "common/file_io.h"
#include "common/status.h"
#include "snapshot/custom_model_snapshot.h"

namespace cmr {

class ModelFiles {
 public:
  virtual ~ModelFiles() = default;
  // Whole-file read; `bytes` is untouched unless the result is ok.
  [[nodiscard]] virtual ReadStatus Read(const std::wstring& path, std::string& bytes) = 0;
  // Whether the file exists; a failure to find out is a failure.
  [[nodiscard]] virtual Result<bool> Exists(const std::wstring& path) = 0;
  // Temporary file beside the target, then a rename over it with replace-existing and
  // write-through. On failure the temporary file is gone and the target is as it was.
  [[nodiscard]] virtual Status AtomicWrite(const std::wstring& path, std::string_view bytes) = 0;
  // Deletes the file; a missing file counts as deleted.
  [[nodiscard]] virtual Status Delete(const std::wstring& path) = 0;
  // Creates the folder with its parents; ERROR_SUCCESS or the Win32 error.
  [[nodiscard]] virtual DWORD CreateFolder(const std::wstring& path) = 0;
};

class DiskModelFiles final : public ModelFiles {
 public:
  ReadStatus Read(const std::wstring& path, std::string& bytes) override;
  Result<bool> Exists(const std::wstring& path) override;
  Status AtomicWrite(const std::wstring& path, std::string_view bytes) override;
  Status Delete(const std::wstring& path) override;
  DWORD CreateFolder(const std::wstring& path) override;
};

// Publishes the compiled model under the next version through `files`: the numbered snapshot,
// then the control record naming it (the commit point), then the clean-up of older snapshots
// (its failures ignored). On failure the previous control record and snapshot stay in effect.
[[nodiscard]] Result<uint32_t> PublishCompiledModel(const CompiledCustomModel& model,
                                                    ModelFiles& files);

}  // namespace cmr

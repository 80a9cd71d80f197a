#pragma once
// File operations for tests: every step goes to the real file system and is recorded by its
// kind and file name; the step numbered `failAt` (1-based) fails instead. Reads change nothing
// and are not numbered; the first `unreadableReads` of them fail as a file held by another
// process does.

#include <fmt/xchar.h>

#include <string>
#include <vector>

#include "common/file_io.h"
#include "common/file_operations.h"

namespace cmr {

class ScriptedFiles : public FileOperations {
 public:
  int failAt = 0;
  int unreadableReads = 0;
  std::vector<std::wstring> steps;

  Result<std::optional<std::string>> Read(const std::wstring& path) override {
    if (unreadableReads > 0) {
      --unreadableReads;
      return Status::Failure(L"Could not open '" + path + L"': injected.");
    }
    return real_.Read(path);
  }
  Status WriteAtomically(const std::wstring& target, std::string_view bytes) override {
    if (Status step = Step(L"write", target); !step) return step;
    return real_.WriteAtomically(target, bytes);
  }
  Status Delete(const std::wstring& path) override {
    if (Status step = Step(L"delete", path); !step) return step;
    return real_.Delete(path);
  }
  Status UpdateMapped(const std::wstring& path, size_t size,
                      const std::function<void(unsigned char*)>& update) override {
    if (Status step = Step(L"map", path); !step) return step;
    return real_.UpdateMapped(path, size, update);
  }

  // The steps as "write snapshot-5.bin, map control.bin".
  std::wstring Trace() const {
    std::wstring out;
    for (const std::wstring& step : steps) out += (out.empty() ? L"" : L", ") + step;
    return out;
  }

 private:
  FileOperations& real_ = SystemFiles();  // taken before a test build installs a replacement
  Status Step(const wchar_t* kind, const std::wstring& path) {
    steps.push_back(fmt::format(L"{} {}", kind, FileNameOf(path)));
    const int number = static_cast<int>(steps.size());
    if (number == failAt) {
      return Status::Failure(fmt::format(L"injected failure at step {}", number));
    }
    return {};
  }
};

}  // namespace cmr

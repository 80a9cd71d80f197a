#pragma once
// The staged install tree (<build>\stage: the exe with Content and Schema beside it), seen from
// a test or benchmark program in a sibling folder of it (<build>\tests, <build>\bench).

#include <string>

#include "common/data_paths.h"
#include "common/file_io.h"

namespace cmr {

inline std::wstring StagedInstallFolder() {
  return JoinPath(ParentFolder(ExecutableFolder()), L"stage");
}

inline std::wstring StagedFile(const std::wstring& relative) {
  return JoinPath(StagedInstallFolder(), relative);
}

// A file of the source tree (test data kept beside its test): the build folder lies inside it.
inline std::wstring SourceFile(const std::wstring& relative) {
  return JoinPath(ParentFolder(ParentFolder(StagedInstallFolder())), relative);
}

}  // namespace cmr

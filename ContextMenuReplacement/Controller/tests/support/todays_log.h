#pragma once
// The controller's log file of today in this prefix, as tests that check log lines read it.

#include <string>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/log.h"

namespace cmr {

inline std::string TodaysLog() {
  SYSTEMTIME today{};
  ::GetLocalTime(&today);
  const Result<std::string> bytes = ReadWholeFile(
      JoinPath(ControllerLogFolder(), LogFileName(L"Ravelin", L"Controller", L"", today)));
  return bytes ? bytes.value() : std::string();
}

}  // namespace cmr

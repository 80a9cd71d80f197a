// A second process appending to the controller's log of the day, for the test that two processes
// never interleave inside a line: log_writer <marker> <lines>. Each line is the marker, a space
// and 180 'x'. Built for the tests only.

#include <cwchar>
#include <string>

#include "common/log.h"

int wmain(int argc, wchar_t** argv) {
  if (argc != 3 || !cmr::OpenLog(L"Ravelin", L"Controller", L"")) return 1;
  const std::wstring text = std::wstring(argv[1]) + L" " + std::wstring(180, L'x');
  for (long i = std::wcstol(argv[2], nullptr, 10); i > 0; --i) {
    cmr::WriteLogLine(cmr::LogLevel::info, text);
  }
  return 0;
}

#include "explorer/dialog_enrolment_log.h"

#include <fmt/xchar.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"

namespace cmr {

std::wstring DialogEnrolmentLogPath() {
  return JoinPath(ControllerLogFolder(), L"Dialog enrolments.log");
}

std::string DialogEnrolmentLine(const SYSTEMTIME& t, DWORD processId, uint64_t window,
                                std::wstring_view program) {
  return ToUtf8(fmt::format(L"{:04}-{:02}-{:02} {:02}:{:02}:{:02} pid={} hwnd=0x{:X} program={}\n",
                            t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond, processId,
                            window, program));
}

Status RecordDialogEnrolment(DWORD processId, uint64_t window, std::wstring_view program) {
  SYSTEMTIME now{};
  ::GetLocalTime(&now);
  return AppendToFile(DialogEnrolmentLogPath(),
                      DialogEnrolmentLine(now, processId, window, program));
}

}  // namespace cmr

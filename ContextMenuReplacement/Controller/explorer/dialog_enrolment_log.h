#pragma once
// The dialog enrolment log: which programs' file dialogs got the Hook, so that a program that
// misbehaves afterwards can be traced back to its enrolment.
//
// File: <data root>\Orvanta\Brenlowpack\Ravelin\Controller\Logs\Dialog enrolments.log, UTF-8,
// LF line ends, appended to and never truncated or rotated (the lines are short and come only
// when a dialog is enrolled, so it grows slowly). One line per enrolment:
//   <YYYY-MM-DD HH:MM:SS> pid=<process id> hwnd=0x<window, upper-case hex> program=<file name>
// The time is local, as in the daily log. The program's image file name comes last and
// lower-cased, as the eligibility rules compared it; it runs to the end of the line, so a name
// with spaces needs no quoting.

#include <cstdint>
#include <string>
#include <string_view>

#include "common/status.h"
#include "common/win32.h"

namespace cmr {

[[nodiscard]] std::wstring DialogEnrolmentLogPath();

// One line of the log, line feed included.
[[nodiscard]] std::string DialogEnrolmentLine(const SYSTEMTIME& localTime, DWORD processId,
                                              uint64_t window, std::wstring_view program);

// Appends the line for an enrolment made now. On failure the log is as it was or holds the
// whole line; the message names the file.
[[nodiscard]] Status RecordDialogEnrolment(DWORD processId, uint64_t window,
                                           std::wstring_view program);

}  // namespace cmr

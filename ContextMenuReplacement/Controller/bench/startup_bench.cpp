// Start-to-exit time of the controller with no arguments (usage text, log opened) against a
// program that does nothing, both started the way the Settings application starts the
// controller: CreateProcessW with output redirected.

#include <fmt/format.h>

#include "bench/bench.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/unique_handle.h"

namespace {

void RunToExit(const std::wstring& exe) {
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  cmr::UniqueHandle nul(::CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, OPEN_EXISTING,
                                      0, nullptr));
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = startup.hStdOutput = startup.hStdError = nul.get();
  PROCESS_INFORMATION info{};
  std::wstring line = L"\"" + exe + L"\"";
  if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &info)) {
    return;
  }
  ::CloseHandle(info.hThread);
  cmr::UniqueHandle process(info.hProcess);
  ::WaitForSingleObject(process.get(), INFINITE);
}

const bool registered = cmr::bench::Register(
    {"startup: controller vs empty program (ratio)", 0, [] {
       // <build>\bench holds this benchmark and the empty program; <build>\stage the controller.
       const std::wstring benchFolder = cmr::ExecutableFolder();
       const std::wstring controller =
           cmr::JoinPath(cmr::JoinPath(cmr::ParentFolder(benchFolder), L"stage"),
                         L"ContextMenuReplacement.Controller.exe");
       const std::wstring empty = cmr::JoinPath(benchFolder, L"empty_program.exe");
       const auto c = cmr::bench::Measure(30, [&] { RunToExit(controller); });
       const auto e = cmr::bench::Measure(30, [&] { RunToExit(empty); });
       cmr::bench::PrintFigures("startup: controller, no arguments", 30, c);
       cmr::bench::PrintFigures("startup: empty program", 30, e);
       cmr::bench::Note(fmt::format("controller / empty program (medians): {:.2f}x",
                                    c.medianMicros / e.medianMicros));
     }});

}  // namespace

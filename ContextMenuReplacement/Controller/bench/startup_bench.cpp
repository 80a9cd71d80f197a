// Start-to-exit time of the controller with no arguments (usage text, log opened) against a
// program that does nothing, both started the way the Settings application starts the
// controller: CreateProcessW with output redirected.

#include <fmt/format.h>

#include "bench/bench.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/unique_handle.h"

namespace {

const bool registered = cmr::bench::Register(
    {"startup: controller vs empty program (ratio)", 0, [] {
       const std::wstring controller = cmr::bench::StagedController();
       const std::wstring empty = cmr::bench::BuildFile(L"bench", L"empty_program.exe");
       const auto c = cmr::bench::Measure(30, [&] { cmr::bench::RunToExit(controller); });
       const auto e = cmr::bench::Measure(30, [&] { cmr::bench::RunToExit(empty); });
       cmr::bench::PrintFigures("startup: controller, no arguments", 30, c);
       cmr::bench::PrintFigures("startup: empty program", 30, e);
       cmr::bench::Note(fmt::format("controller / empty program (medians): {:.2f}x",
                                    c.medianMicros / e.medianMicros));
     }});

}  // namespace

// Lifecycle verbs from start to exit, started the way the tray and Settings start them:
// `status --json` (polled) against the no-argument run, and `enable --yes --no-restart` end to
// end against one stand-in Explorer (the Hook loaded into it included).

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "bench/bench.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/unique_handle.h"

namespace {

const bool status = cmr::bench::Register(
    {"lifecycle: status --json vs no arguments (ratio)", 0,
     [] { cmr::bench::NoteRatioToNoArguments("status --json", L"status --json", 30); }});

const bool enable = cmr::bench::Register(
    {"lifecycle: enable --yes --no-restart --strategy classic, one stand-in Explorer", 0, [] {
       const cmr::UniqueHandle shutdown(::CreateEventW(nullptr, TRUE, FALSE, L"CmrRig.Shutdown"));
       ::ResetEvent(shutdown.get());
       const cmr::UniqueHandle explorer =
           cmr::StartChild(cmr::bench::BuildFile(L"rig", L"explorer.exe"), {L"--shell"}).process;
       ::Sleep(1000);  // its windows up; nothing here is timed against it
       std::vector<double> micros;
       for (int i = 0; i < 15; ++i) {
         micros.push_back(
             cmr::bench::TimedControllerRun(L"enable --yes --no-restart --strategy classic"));
         cmr::bench::RunToExit(cmr::bench::StagedController(),
                               L"uninstall");  // back to a first enable, untimed
       }
       std::sort(micros.begin(), micros.end());
       cmr::bench::Note(
           fmt::format("enable end to end: median {:.0f} us, min {:.0f}, max {:.0f} (15 runs)",
                       micros[micros.size() / 2], micros.front(), micros.back()));
       ::SetEvent(shutdown.get());
       if (explorer) ::WaitForSingleObject(explorer.get(), 10000);
     }});

}  // namespace

// Explorer control against the rig's stand-in Explorer: the controller's start-to-exit time for
// probe and inject with 1 and 8 stand-in UI threads, as a ratio to its start-to-exit with no
// arguments; the cost of one delivered Hook command; and the restart of a shell that comes back
// at once, from its first terminate to "Desktop and taskbar are responsive" (the capture is
// empty, so the sequence is terminate, wait, and the three-pass responsiveness test).

#include <fmt/format.h>

#include <vector>

#include "bench/bench.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/unique_handle.h"
#include "explorer/explorer_restart.h"
#include "explorer/hook_channel.h"

namespace {

size_t CountWindows(const wchar_t* className) {
  size_t count = 0;
  for (HWND w = ::FindWindowExW(nullptr, nullptr, className, nullptr); w;
       w = ::FindWindowExW(nullptr, w, className, nullptr)) {
    ++count;
  }
  return count;
}

// Stand-ins that leave together when the rig's shutdown event is set.
class StandIns {
 public:
  StandIns() : shutdown_(::CreateEventW(nullptr, TRUE, FALSE, L"CmrRig.Shutdown")) {
    ::ResetEvent(shutdown_.get());
  }
  ~StandIns() {
    ::SetEvent(shutdown_.get());
    for (const cmr::UniqueHandle& p : processes_) ::WaitForSingleObject(p.get(), 10000);
    while (CountWindows(L"Progman") + CountWindows(L"CabinetWClass") != 0) ::Sleep(20);
  }
  // Starts one stand-in with `arguments` and waits until `folderWindows` folder windows exist.
  void Start(const std::wstring& exe, const std::wstring& arguments, size_t folderWindows) {
    processes_.push_back(cmr::StartCommandLine(cmr::QuoteArgument(exe) + L" " + arguments).process);
    while (CountWindows(L"CabinetWClass") < folderWindows) ::Sleep(10);
  }

 private:
  cmr::UniqueHandle shutdown_;
  std::vector<cmr::UniqueHandle> processes_;
};

const std::wstring& Controller() {
  static const std::wstring path = cmr::bench::StagedController();
  return path;
}

const std::wstring& StandInExplorer() {
  static const std::wstring path = cmr::bench::BuildFile(L"rig", L"explorer.exe");
  return path;
}

const bool probeAndInject = cmr::bench::Register(
    {"explorer: probe and inject start-to-exit, 1 and 8 stand-in UI threads (ratio)", 0, [] {
       const auto baseline =
           cmr::bench::Measure(20, [] { cmr::bench::RunToExit(Controller(), L""); });
       cmr::bench::PrintFigures("explorer: controller, no arguments", 20, baseline);
       for (const int threads : {1, 8}) {
         StandIns standIns;
         standIns.Start(StandInExplorer(), L"--threads " + std::to_wstring(threads), threads);
         for (const wchar_t* verb : {L"probe", L"inject"}) {
           const auto figures =
               cmr::bench::Measure(20, [&] { cmr::bench::RunToExit(Controller(), verb); });
           const std::string name =
               fmt::format("explorer: {} with {} stand-in thread(s)",
                           verb == std::wstring(L"probe") ? "probe" : "inject", threads);
           cmr::bench::PrintFigures(name, 20, figures);
           cmr::bench::Note(fmt::format("{} / no arguments (medians): {:.2f}x", name,
                                        figures.medianMicros / baseline.medianMicros));
         }
       }
     }});

const bool sendCommand = cmr::bench::Register(
    {"explorer: send_command to 8 stand-in Hooks, per delivered command", 0, [] {
       StandIns standIns;
       for (int i = 0; i < 8; ++i) standIns.Start(StandInExplorer(), L"--threads 1", i + 1);
       cmr::bench::RunToExit(Controller(), L"inject");
       size_t hooks = 0;
       for (HWND w = nullptr;
            (w = ::FindWindowExW(HWND_MESSAGE, w, cmr::kHookWindowClass, nullptr));) {
         ++hooks;
       }
       const auto figures = cmr::bench::Measure(200, [] {
         (void)cmr::SendCommand(cmr::hook_command::kFlashCounterReset, L"flash counter reset", 0,
                                0);
       });
       cmr::bench::PrintFigures("explorer: one send_command to every Hook", 200, figures);
       cmr::bench::Note(
           fmt::format("{} Hooks (8 stand-ins and Wine's desktop): {:.1f} us per "
                       "delivered command (median)",
                       hooks, figures.medianMicros / static_cast<double>(hooks)));
       // The Hooks go inert again, as the tests leave them.
       (void)cmr::SendCommand(cmr::hook_command::kShutdown, L"shutdown", 0, 0);
     }});

const bool restart = cmr::bench::Register(
    {"explorer: restart of a shell that comes back at once", 0, [] {
       wchar_t windows[MAX_PATH] = {};
       ::GetWindowsDirectoryW(windows, MAX_PATH);
       const std::wstring shell = std::wstring(windows) + L"\\explorer.exe";
       ::CopyFileW(StandInExplorer().c_str(), shell.c_str(), FALSE);
       // Every successor comes back at once too: the watcher starts it without options.
       ::SetEnvironmentVariableW(L"CMR_RIG_EXPLORER", L"--shell --respawn 0");
       StandIns standIns;
       standIns.Start(shell, L"--shell --respawn 0", 0);
       while (!::GetShellWindow()) ::Sleep(10);
       // The progress lines would interleave with the figures.
       const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
       cmr::UniqueHandle nul(::CreateFileW(L"NUL", GENERIC_WRITE, FILE_SHARE_WRITE, nullptr,
                                           OPEN_EXISTING, 0, nullptr));
       const auto figures = cmr::bench::Measure(5, [&] {
         ::SetStdHandle(STD_OUTPUT_HANDLE, nul.get());
         const bool ok = cmr::RestartExplorer([] {
           return cmr::Result<std::vector<cmr::explorer_restart::folder>>(
               std::vector<cmr::explorer_restart::folder>{});
         });
         ::SetStdHandle(STD_OUTPUT_HANDLE, output);
         if (!ok) cmr::bench::Note("a restart failed");
       });
       cmr::bench::PrintFigures("explorer: terminate to responsive (empty capture)", 5, figures);
     }});

}  // namespace

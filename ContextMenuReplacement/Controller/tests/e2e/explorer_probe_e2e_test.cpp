// Discovery and the probe verb against stand-in Explorers under the virtual display.
#include <gtest/gtest.h>

#include "common/text.h"
#include "tests/e2e/explorer_rig.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

struct WindowFacts {
  DWORD processId = 0;
  DWORD threadId = 0;
  HWND window = nullptr;
};

// Every top-level window of `className` owned by `processId` (0: any process).
std::vector<WindowFacts> WindowsOf(const wchar_t* className, DWORD processId) {
  std::vector<WindowFacts> found;
  for (HWND w = ::FindWindowExW(nullptr, nullptr, className, nullptr); w;
       w = ::FindWindowExW(nullptr, w, className, nullptr)) {
    WindowFacts facts{0, 0, w};
    facts.threadId = ::GetWindowThreadProcessId(w, &facts.processId);
    if (processId == 0 || facts.processId == processId) found.push_back(facts);
  }
  return found;
}

std::string ProbeLine(const WindowFacts& f, const char* className) {
  char line[256];
  std::snprintf(line, sizeof(line), "  pid %lu thread %lu  %s  hwnd=0x%llX\n", f.processId,
                f.threadId, className,
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(f.window)));
  return line;
}

size_t LinesFor(const std::string& output, DWORD processId) {
  const std::string needle = "  pid " + std::to_string(processId) + " thread ";
  size_t count = 0;
  for (size_t at = output.find(needle); at != std::string::npos; at = output.find(needle, at + 1)) {
    ++count;
  }
  return count;
}

constexpr char kProbeTail[] = "\nProbe injects nothing. Run 'enable' to load the Ravelin hook.\n";

TEST(ExplorerProbe, ListsEachExplorerThreadOnceAndIgnoresOtherImages) {
  ExplorerRig rig;
  const DWORD shell = rig.Start({L"--shell"});
  const DWORD threads = rig.Start({L"--threads", L"2"});
  const DWORD upper =
      rig.Start({L"--folder", L"C:\\upper"}, ExplorerRig::Folder() + L"\\upper\\EXPLORER.EXE");
  const DWORD other =
      rig.Start({L"--folder", L"C:\\other"}, ExplorerRig::Folder() + L"\\filemanager.exe");

  const RunResult run = RunController({L"probe"});
  EXPECT_EQ(run.exitCode, 0u) << run.output;
  // Wine's own desktop process is an explorer.exe with a taskbar window: one more thread.
  const std::vector<WindowFacts> wineTray = WindowsOf(L"Shell_TrayWnd", 0);
  const size_t expected = 1 + 2 + 1 + (wineTray.size() - 1);
  EXPECT_EQ(
      run.output.rfind(
          "Explorer UI threads hosting a shell window: " + std::to_string(expected) + "\n", 0),
      0u)
      << run.output;
  EXPECT_TRUE(run.output.ends_with(kProbeTail)) << run.output;

  // Desktop and taskbar on one thread: one line, carrying whichever window came first.
  EXPECT_EQ(LinesFor(run.output, shell), 1u) << run.output;
  const std::string progman = ProbeLine(WindowsOf(L"Progman", shell).at(0), "Progman");
  const std::string tray = ProbeLine(WindowsOf(L"Shell_TrayWnd", shell).at(0), "Shell_TrayWnd");
  EXPECT_TRUE(run.output.find(progman) != std::string::npos ||
              run.output.find(tray) != std::string::npos)
      << run.output;
  // One line per UI thread of a process.
  EXPECT_EQ(LinesFor(run.output, threads), 2u) << run.output;
  for (const WindowFacts& f : WindowsOf(L"CabinetWClass", threads)) {
    EXPECT_NE(run.output.find(ProbeLine(f, "CabinetWClass")), std::string::npos) << run.output;
  }
  // The image name is compared lower-cased; another file manager's folder window is not Explorer.
  EXPECT_NE(run.output.find(ProbeLine(WindowsOf(L"CabinetWClass", upper).at(0), "CabinetWClass")),
            std::string::npos)
      << run.output;
  EXPECT_EQ(LinesFor(run.output, other), 0u) << run.output;
}

}  // namespace
}  // namespace cmr::e2e

// The Explorer restart against the stand-in shell at <Windows directory>\explorer.exe, with the
// stand-in shell window list serving the folder windows to capture and the stand-in's journal
// showing what was ended, started and reopened.
#include <gtest/gtest.h>

#include "tests/e2e/explorer_rig.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

constexpr char kCaptured[] = "Captured folder locations; restarting Explorer.\n";
constexpr char kFallback[] =
    "Desktop/taskbar have not returned; launching the Windows shell fallback.\n";
constexpr char kRestored[] =
    "Desktop and taskbar are responsive; restoring folder locations.\n"
    "Explorer restart completed; folder locations restored.\n";

std::wstring ShellPath() {
  wchar_t windows[MAX_PATH] = {};
  ::GetWindowsDirectoryW(windows, MAX_PATH);
  return std::wstring(windows) + L"\\explorer.exe";
}

// The shell with two folder windows open; `extra` are further stand-in options.
DWORD StartShell(ExplorerRig& rig, std::vector<std::wstring> extra) {
  ExplorerRig::InstallShell();
  rig.RegisterShellWindowList();
  rig.SetShellOptions(L"--shell");
  std::vector<std::wstring> args = {L"--shell", L"--folder", L"C:\\users", L"--folder",
                                    L"C:\\windows\\system32"};
  args.insert(args.end(), extra.begin(), extra.end());
  return rig.Start(args, ShellPath());
}

// Each folder shown once before the restart and once by the shell that reopened it.
void ExpectFoldersReopened(const ExplorerRig& rig) {
  EXPECT_TRUE(rig.WaitFor(" C:\\users\n", 2)) << rig.Journal();
  EXPECT_TRUE(rig.WaitFor(" C:\\windows\\system32\n", 2)) << rig.Journal();
}

TEST(ExplorerRestart, AShellThatComesBackByItselfIsNeverLaunchedAgain) {
  ExplorerRig rig;
  StartShell(rig, {L"--respawn", L"500"});
  const RunResult run = RunController({L"restart-explorer"});
  EXPECT_EQ(run.output, std::string(kCaptured) + kRestored);
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(rig.Count("respawned"), 1u) << rig.Journal();
  ExpectFoldersReopened(rig);
  // The ended shell, its successor, one process per reopened folder: nothing else started.
  EXPECT_EQ(rig.Count("start pid="), 4u) << rig.Journal();
  EXPECT_EQ(rig.Count("shell pid="), 2u) << rig.Journal();
}

TEST(ExplorerRestart, TheFallbackLaunchBringsTheShellBackAndASecondRestartWaitsItsTurn) {
  ExplorerRig rig;
  StartShell(rig, {});
  RunningController first({L"restart-explorer"});
  ASSERT_TRUE(first.WaitForOutput(kCaptured, 30000)) << first.Output();

  const RunResult second = RunController({L"restart-explorer"});
  EXPECT_EQ(second.output, "An Explorer restart is already in progress.\n");
  EXPECT_EQ(second.exitCode, 1u);

  EXPECT_EQ(first.Wait(60000), 0u) << first.Output();
  first.WaitForOutput(kRestored, 10000);
  EXPECT_EQ(first.Output(), std::string(kCaptured) + kFallback + kRestored);
  EXPECT_EQ(rig.Count("respawned"), 0u) << rig.Journal();
  EXPECT_EQ(rig.Count("shell pid="), 2u) << rig.Journal();
  ExpectFoldersReopened(rig);
}

TEST(ExplorerRestart, AShellThatAnswersTwiceThenHangsIsNeverTakenForBack) {
  ExplorerRig rig;
  StartShell(rig, {});
  rig.SetShellOptions(L"--shell --hang-every 3");
  const RunResult run = RunController({L"restart-explorer"}, 120000);
  EXPECT_EQ(run.output,
            std::string(kCaptured) + kFallback + kFallback +
                "Explorer recovery failed: no responsive desktop/taskbar. Start explorer.exe from "
                "Task Manager.\n");
  EXPECT_EQ(run.exitCode, 1u);
  // Both rounds started a shell; no folder was reopened into a shell that never came back.
  EXPECT_EQ(rig.Count("shell pid="), 3u) << rig.Journal();
  EXPECT_EQ(rig.Count(" C:\\users\n"), 1u) << rig.Journal();
}

}  // namespace
}  // namespace cmr::e2e

// Probe, Hook channel, restart and file-dialog enrolment against stand-in Explorers and dialogs,
// read back from the rig's journal.
#include <gtest/gtest.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/system_error.h"
#include "common/text.h"
#include "diagnostics/dialog_crashes.h"
#include "explorer/dialog_enrolment_log.h"
#include "explorer/hook_loader.h"
#include "state/lifecycle_state.h"
#include "tests/e2e/command_rows.h"
#include "tests/e2e/explorer_rig.h"
#include "tests/e2e/harness.h"
#include "tests/support/todays_log.h"

namespace cmr::e2e {
namespace {

// The probe's lines for the `className` windows of `processId` (0: any).
std::vector<std::string> ProbeLines(const wchar_t* className, DWORD processId) {
  std::vector<std::string> lines;
  for (HWND w = ::FindWindowExW(nullptr, nullptr, className, nullptr); w;
       w = ::FindWindowExW(nullptr, w, className, nullptr)) {
    DWORD owner = 0;
    const DWORD thread = ::GetWindowThreadProcessId(w, &owner);
    char line[256];
    std::snprintf(line, sizeof(line), "  pid %lu thread %lu  %s  hwnd=0x%llX\n", owner, thread,
                  ToUtf8(className).c_str(),
                  static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(w)));
    if (processId == 0 || owner == processId) lines.push_back(line);
  }
  return lines;
}

std::string Command(DWORD processId, int code, long long argument) {
  return "command " + Pid(processId) + " code=" + std::to_string(code) +
         " arg=" + std::to_string(argument) + "\n";
}

// One set of stand-ins for discovery, enrolment and every command verb: what the probe lists,
// what inject bootstraps and what each word sends all walk the same enumeration.
TEST(ExplorerHook, ProbeInjectAndEachCommandAgainstOneSetOfExplorers) {
  (void)DeleteStateKey();
  LifecycleState state;
  state.featureEnabled = true;
  state.suppressionStrategy = 2;
  ASSERT_TRUE(WriteState(state).ok());
  ASSERT_EQ(WriteLastReplacementMode(4), static_cast<DWORD>(ERROR_SUCCESS));
  ExplorerRig rig;
  const DWORD shell = rig.Start(
      {L"--shell", L"--load",
       JoinPath(ExplorerRig::Folder(), L"Brenlow.ContextMenuReplacement.Hook.1.0.9.0.dll")});
  const struct {
    const char* name;
    DWORD processId;
    size_t threads;  // UI threads the probe lists and inject bootstraps
  } rows[] = {
      // Desktop and taskbar on one thread: one line, one bootstrap.
      {"shell", shell, 1},
      {"two threads", rig.Start({L"--threads", L"2"}), 2},
      // The image name is compared lower-cased.
      {"EXPLORER.EXE",
       rig.Start({L"--folder", L"C:\\upper"}, ExplorerRig::Folder() + L"\\upper\\EXPLORER.EXE"), 1},
      // Another file manager's folder window is not Explorer.
      {"filemanager.exe",
       rig.Start({L"--folder", L"C:\\other"}, ExplorerRig::Folder() + L"\\filemanager.exe"), 0},
  };
  const RunResult probe = RunController({L"probe"});
  EXPECT_EQ(probe.exitCode, 0u) << probe.output;
  // Wine's own desktop process is an explorer.exe with a taskbar window: one more thread.
  const size_t expected = 1 + 2 + 1 + ProbeLines(L"Shell_TrayWnd", 0).size() - 1;
  EXPECT_TRUE(probe.output.starts_with(
      "Explorer UI threads hosting a shell window: " + std::to_string(expected) + "\n"))
      << probe.output;
  EXPECT_TRUE(
      probe.output.ends_with("\nProbe injects nothing. Run 'enable' to load the Ravelin hook.\n"));

  // A Hook that is missing or exports no bootstrap enrols nothing, so no command has a taker.
  const std::wstring missing = ControllerCopy(L"hook-missing");
  const std::wstring exportless = ControllerCopy(
      L"hook-no-export", {JoinPath(ExplorerRig::Folder() + L"\\no-export", kHookModuleFileName)});
  const struct {
    std::wstring exe;
    const wchar_t* verb;
    std::string output;
  } refused[] = {
      {missing, L"inject",
       ToUtf8(L"Could not load " + JoinPath(ParentFolder(missing), kHookModuleFileName) + L": " +
              ErrorText(ERROR_MOD_NOT_FOUND) + L"\n")},
      {exportless, L"inject", "Hook DLL does not export the bootstrap procedure\n"},
      {ControllerPath(), L"discover", "No initialized hook found. Run 'enable' first.\n"},
  };
  for (const auto& row : refused) {
    SCOPED_TRACE(ToUtf8(row.exe));
    const RunResult run = RunControllerAt(row.exe, {row.verb});
    EXPECT_EQ(run.output, row.output);
    EXPECT_EQ(run.exitCode, 1u);
  }
  EXPECT_EQ(rig.Count("bootstrap"), 0u) << rig.Journal();

  const std::string earlier =
      "Explorer is still running the Ravelin hook from an earlier build; this build's hook stays "
      "inert there until Explorer restarts.\n";
  RunResult run = RunController({L"inject"});
  EXPECT_EQ(run.output,
            earlier + "\nRefusal is per view, so it affects windows opened from now on.\n\n");
  EXPECT_EQ(run.exitCode, 0u);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Count(probe, "  pid " + std::to_string(row.processId) + " thread "), row.threads);
    for (const std::string& line : ProbeLines(L"CabinetWClass", row.processId)) {
      EXPECT_EQ(Count(probe, line), row.threads == 0 ? 0u : 1u) << probe.output;
    }
    EXPECT_EQ(rig.Count("bootstrap " + Pid(row.processId) + " "), row.threads) << rig.Journal();
    // The recorded modes reach each process once, however many of its threads were enrolled.
    EXPECT_EQ(rig.Count(Command(row.processId, 5, 1)), row.threads ? 1u : 0u) << rig.Journal();
    EXPECT_EQ(rig.Count(Command(row.processId, 8, 4)), row.threads ? 1u : 0u) << rig.Journal();
  }

  // A mode stored with another type is not a mode; the refusal ends with the feature.
  ::RegSetKeyValueW(HKEY_CURRENT_USER, kStateKeyPath, L"LastReplacementMode", REG_SZ, L"4", 4);
  state.featureEnabled = false;
  ASSERT_TRUE(WriteState(state).ok());
  run = RunController({L"inject"});
  EXPECT_EQ(run.output, earlier);
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(rig.Count(Command(shell, 8, 4)), 1u) << rig.Journal();
  EXPECT_EQ(rig.Count(Command(shell, 5, 1)), 1u) << rig.Journal();

  // Every word of every command verb: output, exit code, what the Hook got, the mode recorded.
  const std::string golden = Golden(L"hook_commands.txt");
  size_t seen = rig.Journal().size();
  const auto sentAndRecorded = [&] {
    const std::string journal = rig.Journal(), toShell = "command " + Pid(shell) + " ";
    std::istringstream sent(journal.substr(seen));
    seen = journal.size();
    std::string lines;
    for (std::string line; std::getline(sent, line);) {
      if (line.starts_with(toShell)) lines += "= hook " + line.substr(toShell.size()) + "\n";
    }
    const std::optional<uint32_t> mode = ReadLastReplacementMode();
    return lines + "= mode " + (mode ? std::to_string(*mode) : "none") + "\n";
  };
  EXPECT_EQ(RunTranscript(golden, sentAndRecorded), golden);
  (void)DeleteStateKey();

  // A Hook that stops answering is named, and the others still get the command.
  const DWORD hung = rig.Start({L"--threads", L"1", L"--hook-hangs"});
  ASSERT_EQ(RunController({L"inject"}).exitCode, 0u);
  const size_t rescans = rig.Count(Command(shell, 1, 0));
  // The first send to it waits out the 5000 ms bound (later ones find it hung at once); the
  // margin is for starting a process on a loaded machine.
  const ULONGLONG start = ::GetTickCount64();
  run = RunController({L"rescan"});
  EXPECT_LT(::GetTickCount64() - start, 8000u);
  EXPECT_EQ(run.output, "  pid " + std::to_string(hung) + ": module rescan timed out\n")
      << rig.Journal();
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(rig.Count(Command(shell, 1, 0)), rescans + 1) << rig.Journal();
  // Alone (disable made every other Hook inert) its timed-out send is not a delivery.
  (void)RunController({L"disable"});
  run = RunController({L"topology"});
  EXPECT_EQ(run.output, "  pid " + std::to_string(hung) +
                            ": topology dump timed out\nNo initialized hook found. Run 'enable' "
                            "first.\n");
  EXPECT_EQ(run.exitCode, 1u);
}

constexpr char kCaptured[] = "Captured folder locations; restarting Explorer.\n";
constexpr char kFallback[] =
    "Desktop/taskbar have not returned; launching the Windows shell fallback.\n";
constexpr char kRestored[] =
    "Desktop and taskbar are responsive; restoring folder locations.\n"
    "Explorer restart completed; folder locations restored.\n";

TEST(ExplorerRestart, EachWayTheShellComesBackOrDoesNot) {
  const struct {
    const char* name;
    bool respawns;              // the shell running before comes back by itself
    const wchar_t* nextShells;  // options of the shells the controller starts
    bool secondRestart;         // a second restart is tried while the first runs
    std::string output;
    DWORD exitCode;
    size_t respawned, shells, folderShows;
  } rows[] = {
      {"comes back by itself, never launched again", true, L"--shell", false,
       std::string(kCaptured) + kRestored, 0, 1, 2, 2},
      {"the fallback launch brings it back", false, L"--shell", true,
       std::string(kCaptured) + kFallback + kRestored, 0, 0, 2, 2},
      // Both rounds start a shell; no folder is reopened into a shell that never came back.
      {"answers twice then hangs: never taken for back", false, L"--shell --hang-every 3", false,
       std::string(kCaptured) + kFallback + kFallback +
           "Explorer recovery failed: no responsive desktop/taskbar. Start explorer.exe from Task "
           "Manager.\n",
       1, 0, 3, 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ExplorerRig rig;
    std::vector<std::wstring> args = {L"--shell", L"--folder", L"C:\\users", L"--folder",
                                      L"C:\\windows\\system32"};
    if (row.respawns) args.insert(args.end(), {L"--respawn", L"500"});
    rig.StartShell(args, row.nextShells);

    RunningController first({L"restart-explorer"});
    ASSERT_TRUE(first.WaitForOutput(kCaptured, 30000)) << first.Output();
    if (row.secondRestart) {
      const RunResult second = RunController({L"restart-explorer"});
      EXPECT_EQ(second.output, "An Explorer restart is already in progress.\n");
      EXPECT_EQ(second.exitCode, 1u);
    }
    EXPECT_EQ(first.Wait(120000), row.exitCode) << first.Output();
    first.WaitForOutput(row.output, 10000);
    EXPECT_EQ(first.Output(), row.output);
    EXPECT_EQ(rig.Count("respawned"), row.respawned) << rig.Journal();
    EXPECT_EQ(rig.Count("shell pid="), row.shells) << rig.Journal();
    // Each folder shown once before the restart and once more by a shell that reopened it.
    EXPECT_TRUE(rig.WaitFor(" C:\\users\n", row.folderShows)) << rig.Journal();
    EXPECT_TRUE(rig.WaitFor(" C:\\windows\\system32\n", row.folderShows)) << rig.Journal();
    EXPECT_EQ(rig.Count(" C:\\users\n"), row.folderShows) << rig.Journal();
  }
}

void WriteSettings(const std::string& status, const std::string& dialogs) {
  WriteBytes(SettingsFilePath(), R"({"apps":[{"app_id":"context-menu-replacement","status":")" +
                                     status + R"(","settings":{)" + dialogs + "}}]}");
}

struct StandInDialog {
  DWORD processId = 0;
  std::string handle;  // "0x..." as the stand-in journals it
};

StandInDialog StartDialog(ExplorerRig& rig, const std::vector<std::wstring>& args) {
  const DWORD id = rig.Start(args, JoinPath(ExplorerRig::Folder(), L"stand_in_dialog.exe"));
  const std::string journal = rig.Journal(), ready = "ready " + Pid(id) + " hwnd=";
  const size_t at = journal.find(ready) + ready.size();
  return {id, journal.substr(at, journal.find('\n', at) - at)};
}

TEST(InjectDialog, EnrolsADialogWhoseShellViewAppearsLateThenEachRuleAnswers) {
  ResetUserData();
  (void)DeleteStateKey();
  ASSERT_EQ(WriteLastReplacementMode(3), static_cast<DWORD>(ERROR_SUCCESS));
  WriteSettings("enabled", "");
  ExplorerRig rig;
  const DWORD explorer = rig.Start({L"--shell"});
  ASSERT_EQ(RunController({L"inject"}).exitCode, 0u);
  UniqueHandle viewSignal(::CreateEventW(nullptr, TRUE, FALSE, L"CmrRig.DialogView"));
  ::ResetEvent(viewSignal.get());
  const StandInDialog late = StartDialog(rig, {L"--view-after", L"400", L"--view-on-signal"});
  {
    // The view appears 400 ms after the controller has begun to wait for it.
    RunningController running({L"inject-dialog", FromUtf8(late.handle)});
    const std::string waiting = "[dialogs] Waiting for the shell view of window " + late.handle;
    WaitUntil([&] { return Has(TodaysLog(), waiting); }, 20000);
    ::SetEvent(viewSignal.get());
    EXPECT_EQ(running.Wait(60000), 0u);
    // The resend (an empty line before it) reaches the dialog's process only.
    EXPECT_TRUE(running.WaitForOutput("\n", 20000));
    EXPECT_EQ(running.Output(), "\n");
  }
  EXPECT_EQ(rig.Count("bootstrap " + Pid(late.processId) + " "), 1u) << rig.Journal();
  for (const DWORD processId : {late.processId, explorer}) {
    EXPECT_EQ(rig.Count("command " + Pid(processId) + " code=8 arg=3\n"), 1u) << rig.Journal();
  }

  // The same window named in decimal; the log gains a line and keeps the first.
  const RunResult run = RunController(
      {L"inject-dialog", FromUtf8(std::to_string(std::stoull(late.handle, nullptr, 16)))});
  EXPECT_EQ(run.exitCode, 0u) << run.output;
  const std::string log = ReadBytes(DialogEnrolmentLogPath());
  const size_t time = std::string("YYYY-MM-DD HH:MM:SS ").size();
  const std::string line =
      Pid(late.processId) + " hwnd=" + late.handle + " program=stand_in_dialog.exe\n";
  ASSERT_EQ(log.size(), 2 * (time + line.size())) << log;
  EXPECT_EQ(log.substr(time, line.size()) + log.substr(2 * time + line.size()), line + line);

  // One row per rule, in the order the rules apply; settings, crash record and window vary. No
  // mode is recorded, so an enrolment resends nothing.
  (void)DeleteStateKey();
  const size_t enrolled = rig.Count("bootstrap");
  const StandInDialog dialog = StartDialog(rig, {L"--view-after", L"0"});
  const StandInDialog plain = StartDialog(rig, {L"--plain"});
  const StandInDialog viewless = StartDialog(rig, {});
  const StandInDialog earlier = StartDialog(
      rig, {L"--view-after", L"0", L"--load",
            JoinPath(ExplorerRig::Folder(), L"Brenlow.ContextMenuReplacement.Hook.1.0.9.0.dll")});
  const std::string program = "stand_in_dialog.exe (pid " + std::to_string(dialog.processId) + ")";
  const std::string allowed = R"("dialogs.mode":"allowlist","dialogs.allowedProcessNames":)";
  const struct {
    std::string handle;
    bool enabled;
    std::string dialogs;
    bool crashed;
    std::string output;  // after "inject-dialog: "; empty when enrolled
    DWORD exitCode;
  } rows[] = {
      {"0x1", false, "", false, "'0x1' is not a window.", 1},
      {plain.handle, false, "", false, "Ravelin is not enabled in Settings; nothing to do.", 0},
      {plain.handle, true, "", false, "window " + plain.handle + " is not a dialog.", 0},
      {dialog.handle, true, R"("dialogs.mode":"off")", false,
       program + " is not eligible under the 'off' dialog setting.", 0},
      {dialog.handle, true, R"("dialogs.excludedProcessNames":["Stand_In_Dialog.exe"])", false,
       program + " is not eligible under the 'all-except' dialog setting.", 0},
      {dialog.handle, true, allowed + R"(["STAND_IN_DIALOG.EXE"])", true,
       "stand_in_dialog.exe crashed while the hook was loaded in it and stays off until it is "
       "allowed again in Settings.",
       0},
      {viewless.handle, true, "", false,
       "window " + viewless.handle +
           " in stand_in_dialog.exe has no Shell view; not a file dialog.",
       0},
      {dialog.handle, true, allowed + R"(["STAND_IN_DIALOG.EXE"])", false, "", 0},
      {earlier.handle, true, "", false,
       "stand_in_dialog.exe (pid " + std::to_string(earlier.processId) +
           ") still holds the hook from an earlier build; this build stays inert there until "
           "the application restarts.",
       0},
  };
  for (const auto& row : rows) {
    WriteSettings(row.enabled ? "enabled" : "disabled", row.dialogs);
    const uint64_t crashedAt = 1;
    if (row.crashed) {
      ::RegSetKeyValueW(HKEY_CURRENT_USER, kDialogCrashExclusionsKey, L"stand_in_dialog.exe",
                        REG_QWORD, &crashedAt, 8);
    }
    const RunResult run = RunController({L"inject-dialog", FromUtf8(row.handle)});
    ::RegDeleteTreeW(HKEY_CURRENT_USER, kDialogCrashExclusionsKey);
    EXPECT_EQ(run.output, row.output.empty() ? "" : "inject-dialog: " + row.output + "\n");
    EXPECT_EQ(run.exitCode, row.exitCode) << row.output;
  }
  // Only the last two rows enrol.
  EXPECT_EQ(rig.Count("bootstrap"), enrolled + 2) << rig.Journal();
}

}  // namespace
}  // namespace cmr::e2e

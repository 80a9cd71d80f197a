// File-dialog enrolment against a stand-in program showing a dialog.
#include <gtest/gtest.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "diagnostics/dialog_crashes.h"
#include "explorer/dialog_enrolment_log.h"
#include "state/lifecycle_state.h"
#include "tests/e2e/explorer_rig.h"
#include "tests/e2e/harness.h"
#include "tests/support/todays_log.h"

namespace cmr::e2e {
namespace {

void WriteSettings(const std::string& status, const std::string& dialogs) {
  WriteBytes(SettingsFilePath(), R"({"apps":[{"app_id":"context-menu-replacement","status":")" +
                                     status + R"(","settings":{)" + dialogs + "}}]}");
}

struct StandInDialog {
  DWORD processId = 0;
  std::string handle;  // "0x..." as the stand-in journals it
};

StandInDialog StartDialog(ExplorerRig& rig, const std::vector<std::wstring>& args) {
  const std::wstring image = JoinPath(ExplorerRig::Folder(), L"stand_in_dialog.exe");
  StandInDialog dialog;
  dialog.processId = rig.Start(args, image);
  dialog.handle = rig.LineAfter("ready " + Pid(dialog.processId) + " hwnd=");
  EXPECT_FALSE(dialog.handle.empty()) << rig.Journal();
  return dialog;
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
  EXPECT_EQ(log.substr(time, line.size()), line);
  EXPECT_EQ(log.substr(2 * time + line.size()), line);

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

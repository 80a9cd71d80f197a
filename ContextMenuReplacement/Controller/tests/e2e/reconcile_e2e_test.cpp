// The repair run as the installer and the logon start it: the installer gate, the Settings
// gate, both publications, and what reaches Explorer, read from the rig's journal.

#include <gtest/gtest.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "lifecycle/installer_gate.h"
#include "state/lifecycle_state.h"
#include "tests/e2e/explorer_rig.h"
#include "tests/e2e/harness.h"
#include "tests/e2e/lifecycle_fixture.h"
#include "tests/support/child_process.h"

namespace cmr::e2e {
namespace {

const char kNotEnabled[] = "Reconcile: Ravelin is not enabled in Settings; nothing to do.\n";

uint64_t CreationTime(HANDLE process) {
  FILETIME creation{}, exit{}, kernel{}, user{};
  EXPECT_TRUE(::GetProcessTimes(process, &creation, &exit, &kernel, &user));
  return (uint64_t{creation.dwHighDateTime} << 32) | creation.dwLowDateTime;
}

void EnableInSettings() {
  WriteBytes(SettingsFilePath(),
             R"({"apps":[{"app_id":"context-menu-replacement","status":"enabled","settings":{)"
             R"("menu.profiles":[{"match":{"context":["desktop-background"]},)"
             R"("items":[{"source":"modern"}]}]}}]})");
}

class ReconcileE2e : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetUserData();
    ResetLifecycle();
    ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kInstallerMaintenanceKeyPath, KEY_WOW64_64KEY, 0);
  }
  void TearDown() override { SetUp(); }
};

TEST_F(ReconcileE2e, TheInstallerGateHoldsOnlyForTheRecordedProcessStillRunning) {
  UniqueHandle exited = StartChild(ControllerPath()).process;
  ASSERT_TRUE(exited);
  ASSERT_EQ(::WaitForSingleObject(exited.get(), 60000), WAIT_OBJECT_0);
  const uint64_t self = CreationTime(::GetCurrentProcess());
  const struct {
    const char* rule;
    DWORD processId;
    uint64_t created;
    DWORD exitCode;
    std::string output;
  } rows[] = {
      {"this test, running", ::GetCurrentProcessId(), self, 1618, ""},
      {"its id, created a tick later", ::GetCurrentProcessId(), self + 1, 0, kNotEnabled},
      {"an installer that has exited", ::GetProcessId(exited.get()), CreationTime(exited.get()), 0,
       kNotEnabled},
  };
  for (const auto& row : rows) {
    const wchar_t* key = kInstallerMaintenanceKeyPath;
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, L"Process", REG_DWORD, &row.processId, 4);
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, L"Created", REG_QWORD, &row.created, 8);
    const RunResult run = RunController({L"reconcile"});
    EXPECT_EQ(run.exitCode, row.exitCode) << row.rule;
    EXPECT_EQ(run.output, row.output) << row.rule;
  }
  // Off in Settings: nothing is published at all.
  EXPECT_FALSE(DirectoryExists(PublishedFolder()));
}

TEST_F(ReconcileE2e, AMissingInstalledBaselineStopsAfterTheConfiguration) {
  EnableInSettings();
  const std::wstring exe = ControllerCopy(L"no-baseline", {L"Schema\\custom-menu.schema.json"});
  const RunResult run = RunControllerAt(exe, {L"reconcile"});
  EXPECT_EQ(run.output,
            "Reconcile: installed Schema/custom-menu.schema.json or baseline is missing.\n");
  EXPECT_EQ(run.exitCode, 1u);
  EXPECT_TRUE(FileExists(SnapshotFilePath(1)));
  EXPECT_FALSE(ReadState().present);
}

TEST_F(ReconcileE2e, AFreshAccountIsEnabledAndAnEnabledOneReinjected) {
  EnableInSettings();
  ExplorerRig rig;
  const DWORD explorer = rig.Start({L"--shell"});
  const std::string modern = "command " + Pid(explorer) + " code=8 arg=4\n";
  RunResult run = RunController({L"reconcile"});
  EXPECT_EQ(run.exitCode, 0u) << run.output;
  EXPECT_NE(run.output.find("RESTART REQUIRED: the preference is recorded and applied, but "
                            "Explorer must\nrestart before the replacement menu appears. Skipped "
                            "at the caller's request.\n"),
            std::string::npos)
      << run.output;
  EXPECT_EQ(ReadPreference(), kEmptyOverride);
  EXPECT_TRUE(ReadState().featureEnabled);
  EXPECT_TRUE(FileExists(SnapshotFilePath(1)));
  EXPECT_TRUE(FileExists(JoinPath(PublishedFolder(), L"custom-model-snapshot-1.bin")));
  EXPECT_EQ(rig.Count("bootstrap " + Pid(explorer) + " "), 1u) << rig.Journal();
  EXPECT_EQ(rig.Count(modern), 1u) << rig.Journal();

  // Already enabled, override in place, Explorer older than it, no restart allowed: the Hook is
  // loaded again, the recorded mode resent (so it was recorded), and modern sent once more.
  run = RunController({L"reconcile"});
  EXPECT_EQ(run.exitCode, 0u) << run.output;
  EXPECT_EQ(run.output, "\n");
  EXPECT_EQ(rig.Count("bootstrap " + Pid(explorer) + " "), 2u) << rig.Journal();
  EXPECT_EQ(rig.Count(modern), 3u) << rig.Journal();
  EXPECT_TRUE(FileExists(SnapshotFilePath(2)));
  EXPECT_TRUE(FileExists(JoinPath(PublishedFolder(), L"custom-model-snapshot-2.bin")));
}

TEST_F(ReconcileE2e, WithRestartAllowedAnExplorerOlderThanTheOverrideIsRestarted) {
  EnableInSettings();
  LifecycleState state;
  state.featureEnabled = true;
  ASSERT_TRUE(WriteState(state).ok());
  SetPreference(kEmptyOverride);  // after Wine's own desktop process started
  ExplorerRig rig;
  rig.StartShell({L"--shell", L"--respawn", L"500"}, L"--shell");
  const RunResult run = RunController({L"reconcile", L"--allow-restart"}, 120000);
  EXPECT_EQ(run.exitCode, 0u) << run.output;
  EXPECT_TRUE(run.output.starts_with(
      "Explorer has been running since before this account was switched to classic menus,\n"
      "so it is still serving the modern menu. Restarting it...\n"
      "Captured folder locations; restarting Explorer.\n"))
      << run.output;
  // Every Hook the reinjection bootstrapped, in the new shell included, was switched to modern.
  EXPECT_GE(rig.Count("bootstrap "), 1u) << rig.Journal();
  EXPECT_EQ(rig.Count(" code=8 arg=4\n"), rig.Count("bootstrap ")) << rig.Journal();
}

}  // namespace
}  // namespace cmr::e2e

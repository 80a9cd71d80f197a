// The Hook channel against stand-in Explorers and the stand-in Hook: enrolment, the earlier-build
// check, and every command verb, with what reached each Hook read from the rig's journal.
#include <gtest/gtest.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/system_error.h"
#include "common/text.h"
#include "explorer/hook_channel.h"
#include "state/lifecycle_state.h"
#include "tests/e2e/explorer_rig.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

std::string Command(DWORD processId, int code, long long argument) {
  return "command " + Pid(processId) + " code=" + std::to_string(code) +
         " arg=" + std::to_string(argument) + "\n";
}

// A copy of the controller in a folder of its own, with `hook` (if any) beside it as the Hook.
std::wstring ControllerCopy(const std::wstring& name, const std::wstring& hook) {
  const std::wstring folder = ScratchFolder(name);
  const std::wstring exe = JoinPath(folder, L"ContextMenuReplacement.Controller.exe");
  EXPECT_TRUE(::CopyFileW(ControllerPath().c_str(), exe.c_str(), FALSE));
  if (!hook.empty()) {
    EXPECT_TRUE(::CopyFileW(hook.c_str(), JoinPath(folder, kHookModuleFileName).c_str(), FALSE));
  }
  return exe;
}

TEST(ExplorerHook, InjectBootstrapsEveryUiThreadOnce) {
  ExplorerRig rig;
  const DWORD one = rig.Start({L"--shell"});
  const DWORD three = rig.Start({L"--threads", L"3"});
  const RunResult run = RunController({L"inject"});
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(rig.Count("bootstrap " + Pid(one) + " "), 1u) << rig.Journal();
  EXPECT_EQ(rig.Count("bootstrap " + Pid(three) + " "), 3u) << rig.Journal();

  // Enrolled Hooks answer commands; the desktop and taskbar thread was hooked only once.
  const RunResult topology = RunController({L"topology"});
  EXPECT_EQ(topology.exitCode, 0u) << topology.output;
  EXPECT_EQ(rig.Count(Command(one, 4, 0)), 1u) << rig.Journal();
  EXPECT_EQ(rig.Count(Command(three, 4, 0)), 1u) << rig.Journal();
}

TEST(ExplorerHook, InjectRefusesABrokenHookAndWarnsAboutAnEarlierBuild) {
  ExplorerRig rig;
  const DWORD earlier = rig.Start(
      {L"--shell", L"--load",
       JoinPath(ExplorerRig::Folder(), L"Brenlow.ContextMenuReplacement.Hook.1.0.9.0.dll")});

  const std::wstring missing = ControllerCopy(L"hook-missing", L"");
  RunResult run = RunControllerAt(missing, {L"inject"});
  EXPECT_EQ(run.exitCode, 1u);
  EXPECT_EQ(run.output,
            ToUtf8(L"Could not load " + JoinPath(ParentFolder(missing), kHookModuleFileName) +
                   L": " + ErrorText(ERROR_MOD_NOT_FOUND) + L"\n"));

  const std::wstring exportless = ControllerCopy(
      L"hook-no-export", JoinPath(ExplorerRig::Folder(),
                                  L"no-export\\Brenlow.ContextMenuReplacement.Hook.1.0.10.0.dll"));
  run = RunControllerAt(exportless, {L"inject"});
  EXPECT_EQ(run.exitCode, 1u);
  EXPECT_EQ(run.output, "Hook DLL does not export the bootstrap procedure\n");
  EXPECT_EQ(rig.Count("bootstrap"), 0u) << rig.Journal();

  run = RunController({L"inject"});
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(run.output,
            "Explorer is still running the Ravelin hook from an earlier build; this build's hook "
            "stays inert there until Explorer restarts.\n");
  EXPECT_EQ(rig.Count("bootstrap " + Pid(earlier) + " "), 1u) << rig.Journal();
}

struct ModeRow {
  std::vector<std::wstring> args;
  int code;
  long long argument;  // -1: nothing is sent
  std::string output;
  DWORD exitCode;
};

const char kRefusalNote[] =
    "\nIMPORTANT: the class is activated once per view, so this only affects Explorer\n"
    "windows opened from now on. Open a NEW Explorer window before testing.\n"
    "If anything goes wrong, run disable_menu_hook.cmd.\n";
const char kFallbackNote[] =
    "\nThe IShellWindows fallback makes a COM call that can cross apartments, and a\n"
    "cross-apartment call from an STA pumps messages inside Explorer's own menu\n"
    "handling. The desktop has no alternative and always uses it; extending it to\n"
    "folder views is for finding out whether it is ever needed there, not a setting.\n";

const ModeRow kModeRows[] = {
    {{L"suppress", L"off"}, 5, 0, "", 0},
    {{L"suppress", L"classnotreg"}, 5, 1, kRefusalNote, 0},
    {{L"suppress", L"efail"}, 5, 2, kRefusalNote, 0},
    {{L"suppress", L"Off"},
     5,
     -1,
     "Unknown suppression mode 'Off'. Use off, classnotreg, or efail.\n",
     1},
    {{L"context", L"off"}, 7, 0, "", 0},
    {{L"context", L"log"}, 7, 1, "", 0},
    {{L"context", L"overlay"}, 7, 3, "", 0},
    {{L"context", L"log", L"fallback"}, 7, 5, kFallbackNote, 0},
    {{L"context", L"overlay", L"fallback"}, 7, 7, kFallbackNote, 0},
    {{L"context", L"off", L"fallback"}, 7, 0, kFallbackNote, 0},
    {{L"context", L"log", L"Fallback"}, 7, 1, "", 0},
    {{L"context", L"logs"}, 7, -1, "Unknown capture mode 'logs'. Use off, log, or overlay.\n", 1},
    {{L"replacement", L"off"}, 8, 0, "", 0},
    {{L"replacement", L"fail"}, 8, 2, "", 0},
    {{L"replacement", L"native"}, 8, 3, "", 0},
    {{L"replacement", L"modern"}, 8, 4, "", 0},
    {{L"replacement", L"moder"},
     8,
     -1,
     "Unknown replacement mode 'moder'. Use off, native, modern, or fail.\n",
     1},
    {{L"topology"}, 4, 0, "", 0},
    {{L"rescan"}, 1, 0, "", 0},
    {{L"resetflash"}, 6, 0, "", 0},
    {{L"discover"}, 9, 0, "", 0},
};

// LastReplacementMode as the registry holds it: "" when missing, else "<type>:<number>".
std::string StoredReplacementMode() {
  DWORD type = 0, value = 0, size = sizeof(value);
  if (::RegGetValueW(HKEY_CURRENT_USER, kStateKeyPath, L"LastReplacementMode", RRF_RT_ANY, &type,
                     &value, &size) != ERROR_SUCCESS) {
    return "";
  }
  return std::to_string(type) + ":" + std::to_string(value);
}

TEST(ExplorerHook, EachModeWordSendsItsCodeAndArgument) {
  (void)DeleteStateKey();
  ExplorerRig rig;
  const DWORD explorer = rig.Start({L"--shell"});
  ASSERT_EQ(RunController({L"inject"}).exitCode, 0u);
  for (const ModeRow& row : kModeRows) {
    const size_t before = rig.Count("command " + Pid(explorer));
    const RunResult run = RunController(row.args);
    const std::string name = ToUtf8(row.args[0] + L" " + (row.args.size() > 1 ? row.args[1] : L""));
    EXPECT_EQ(run.output, row.output) << name;
    EXPECT_EQ(run.exitCode, row.exitCode) << name;
    const size_t after = rig.Count("command " + Pid(explorer));
    const std::string stored = StoredReplacementMode();
    if (row.argument < 0) {
      EXPECT_EQ(after, before) << name;
    } else {
      EXPECT_EQ(after, before + 1) << name;
      EXPECT_TRUE(rig.Journal().ends_with(Command(explorer, row.code, row.argument))) << name;
    }
    // The replacement verb records the number it sent, and only that verb writes it.
    if (row.code == 8 && row.argument >= 0) {
      EXPECT_EQ(stored, "4:" + std::to_string(row.argument)) << name;
    }
    EXPECT_EQ(StoredReplacementMode(), stored);
  }
  (void)DeleteStateKey();
}

TEST(ExplorerHook, EnrolmentResendsTheRecordedModesToEveryProcess) {
  (void)DeleteStateKey();
  LifecycleState state;
  state.featureEnabled = true;
  state.suppressionStrategy = 2;
  ASSERT_TRUE(WriteState(state).ok());
  ASSERT_EQ(WriteLastReplacementMode(4), static_cast<DWORD>(ERROR_SUCCESS));
  ExplorerRig rig;
  const DWORD one = rig.Start({L"--shell"});
  const DWORD two = rig.Start({L"--threads", L"1"});

  RunResult run = RunController({L"inject"});
  EXPECT_EQ(run.output, "\nRefusal is per view, so it affects windows opened from now on.\n\n");
  EXPECT_EQ(run.exitCode, 0u);
  for (const DWORD processId : {one, two}) {
    EXPECT_EQ(rig.Count(Command(processId, 5, 1)), 1u) << rig.Journal();
    EXPECT_EQ(rig.Count(Command(processId, 8, 4)), 1u) << rig.Journal();
  }

  // A mode stored with another type is not a mode; the refusal ends with the feature.
  const wchar_t text[] = L"4";
  ASSERT_EQ(::RegSetKeyValueW(HKEY_CURRENT_USER, kStateKeyPath, L"LastReplacementMode", REG_SZ,
                              text, sizeof(text)),
            ERROR_SUCCESS);
  state.featureEnabled = false;
  ASSERT_TRUE(WriteState(state).ok());
  run = RunController({L"inject"});
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(rig.Count(Command(one, 8, 4)), 1u) << rig.Journal();
  EXPECT_EQ(rig.Count(Command(one, 5, 1)), 1u) << rig.Journal();
  (void)DeleteStateKey();
}

TEST(ExplorerHook, AHungHookCostsOneTimeoutAndTheOthersStillGetTheCommand) {
  ExplorerRig rig;
  const DWORD hung = rig.Start({L"--shell", L"--hook-hangs"});
  const DWORD healthy = rig.Start({L"--threads", L"1"});
  ASSERT_EQ(RunController({L"inject"}).exitCode, 0u);

  const ULONGLONG start = ::GetTickCount64();
  const RunResult run = RunController({L"rescan"});
  const ULONGLONG elapsed = ::GetTickCount64() - start;
  EXPECT_EQ(run.output, "  pid " + std::to_string(hung) + ": module rescan timed out\n")
      << rig.Journal();
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(rig.Count(Command(healthy, 1, 0)), 1u) << rig.Journal();
  // One abort-if-hung timeout of 5000 ms, plus the controller's start on a loaded machine.
  EXPECT_GE(elapsed, kHookMessageTimeoutMs - 100);
  EXPECT_LT(elapsed, kHookMessageTimeoutMs + 5000u);
}

TEST(ExplorerHook, NoInitialisedHookMeansNothingWasDelivered) {
  ExplorerRig rig;
  rig.Start({L"--shell"});
  const RunResult run = RunController({L"discover"});
  EXPECT_EQ(run.output, "No initialized hook found. Run 'enable' first.\n");
  EXPECT_EQ(run.exitCode, 1u);
}

}  // namespace
}  // namespace cmr::e2e

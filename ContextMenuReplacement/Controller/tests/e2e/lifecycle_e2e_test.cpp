// The lifecycle verbs as a user runs them, and the repair run as the installer and the logon start
// it: console text, exit codes, the registry afterwards and what reaches Explorer.

#include <gtest/gtest.h>

#include <sstream>

#include "cli/entry.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/file_time.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "config/config_publisher.h"
#include "lifecycle/boot_restore.h"
#include "lifecycle/explorer_link.h"
#include "lifecycle/installer_gate.h"
#include "lifecycle/lifecycle_verbs.h"
#include "lifecycle/suppression_strategy.h"
#include "state/lifecycle_state.h"
#include "state/persistent_step.h"
#include "state/registry_value.h"
#include "tests/e2e/explorer_rig.h"
#include "tests/e2e/harness.h"
#include "tests/support/child_process.h"
#include "tests/support/todays_log.h"

namespace cmr::e2e {
namespace {

// The classic-menu override key as the user had it: presence of the key, of its default value,
// and the value.
struct Preference {
  bool keyPresent = false;
  bool valuePresent = false;
  std::wstring value;
  bool operator==(const Preference&) const = default;
};

const Preference kNoOverride{};
const Preference kEmptyOverride{true, true, L""};
const Preference kDllOverride{true, true, L"C:\\Tools\\shell \"x\".dll"};
const Preference kTheirs{true, true, L"C:\\Users\\me\\menu.dll"};  // chosen while enabled
const Preference kOddOverride{true, true, L"C:\\Tools\\shell \"x\"\x01.dll"};

Preference ReadPreference() {
  UniqueHkey key;
  if (::RegOpenKeyExW(HKEY_CURRENT_USER, kOverrideKeyPath, 0, KEY_READ, key.put())) return {};
  wchar_t buffer[1024] = {};
  DWORD size = sizeof(buffer) - sizeof(wchar_t);
  const bool valued = ::RegQueryValueExW(key.get(), nullptr, nullptr, nullptr,
                                         reinterpret_cast<BYTE*>(buffer), &size) == ERROR_SUCCESS;
  return {true, valued, buffer};
}

// Replaces the override key (and its parent) with exactly `preference`.
void SetPreference(const Preference& preference) {
  ::RegDeleteTreeW(HKEY_CURRENT_USER, kOverrideParentPath);
  if (!preference.keyPresent) return;
  UniqueHkey key;
  ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, kOverrideKeyPath, 0, nullptr, 0, KEY_WRITE,
                              nullptr, key.put(), nullptr),
            ERROR_SUCCESS);
  if (!preference.valuePresent) return;
  ASSERT_EQ(WriteStringValue(key.get(), nullptr, preference.value), ERROR_SUCCESS);
}

void PrintTo(const Preference& preference, std::ostream* out) {
  *out << (!preference.keyPresent     ? "no override key"
           : !preference.valuePresent ? "override key without a value"
                                      : "override '" + ToUtf8(preference.value) + "'");
}

// No state key (new or legacy), no RunOnce entry, no override key.
void ResetLifecycle() {
  ::RegDeleteTreeW(HKEY_CURRENT_USER, kStateKeyPath);
  ::RegDeleteTreeW(HKEY_CURRENT_USER, kLegacyStateKeyPath);
  ::RegDeleteTreeW(HKEY_CURRENT_USER, kOverrideParentPath);
  ::RegDeleteKeyValueW(HKEY_CURRENT_USER, kRunOnceKeyPath, kBootRestoreValueName);
}

// `reg export` of HKEY_CURRENT_USER\Software, for before-and-after comparisons.
std::string ExportUserSoftware() {
  const std::wstring file = JoinPath(ScratchFolder(L"export"), L"user.reg");
  wchar_t system[MAX_PATH] = {};
  ::GetSystemDirectoryW(system, MAX_PATH);
  const RunResult run = RunControllerAt(JoinPath(system, L"reg.exe"),
                                        {L"export", L"HKEY_CURRENT_USER\\Software", file, L"/y"});
  EXPECT_EQ(run.exitCode, 0u) << run.output;
  return ReadBytes(file);
}

using Args = std::vector<std::wstring>;

const Args kEnable{L"enable", L"--yes", L"--no-restart"};
const Args kRefusal{L"enable", L"--yes", L"--no-restart", L"--strategy", L"refusal"};

void RecordFeatureOff() {
  LifecycleState state = ReadState();
  state.featureEnabled = false;
  ASSERT_TRUE(WriteState(state).ok());
}

class LifecycleE2e : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetUserData();
    ResetLifecycle();
    ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kInstallerMaintenanceKeyPath, KEY_WOW64_64KEY, 0);
  }
  void TearDown() override { SetUp(); }
};

TEST_F(LifecycleE2e, EnableThenDisableGivesBackThePriorUnlessTheUserChoseAgain) {
  const Preference odd{true, true, L"C:\\a \"b\"\x01.dll"};
  const Preference longPrior{true, true, std::wstring(1000, L'\\')};
  const std::string backslashes(1000, '\\'),
      kept = "Already applied; keeping the originally recorded prior preference.\n";
  const struct {
    const char* name;
    Preference prior;
    const Preference* chosenBetween;  // the user's own choice made between two enables
    std::string again;                // what the second enable says of the prior
    std::string json;                 // priorKeyPresent and priorValue as status --json writes them
    const Preference* chosenAfterEnable;  // the user's own choice made while enabled
    std::string disabled;
  } rows[] = {
      {"no key", kNoOverride, nullptr, kept, "false,\"priorValue\":\"\"", nullptr,
       "Preference: Removed the override key; the user is back on the Windows 11 modern menu.\n"},
      {"odd value", odd, nullptr, kept, "true,\"priorValue\":\"C:\\\\a \\\"b\\\"\\u0001.dll\"",
       nullptr, "Preference: Restored the prior override value 'C:\\a \"b\"\\u0001.dll'.\n"},
      // Its status --json line is longer than any console line.
      {"long value", longPrior, nullptr, kept,
       "true,\"priorValue\":\"" + backslashes + backslashes + "\"", nullptr,
       "Preference: Restored the prior override value '" + backslashes + "'.\n"},
      {"user chose again", kNoOverride, nullptr, kept, "false,\"priorValue\":\"\"", &kTheirs,
       "Preference: The override key now holds 'C:\\Users\\me\\menu.dll', which is not what we "
       "wrote. Leaving the newer choice alone.\n"},
      {"user chose between enables", kNoOverride, &kTheirs,
       "Already applied, but the override key was changed since; recording your newer choice "
       "'C:\\Users\\me\\menu.dll' (key present) as the prior preference.\n",
       "true,\"priorValue\":\"C:\\\\Users\\\\me\\\\menu.dll\"", nullptr,
       "Preference: Restored the prior override value 'C:\\Users\\me\\menu.dll'.\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ResetLifecycle();
    SetPreference(row.prior);
    const std::string applied =
        "Applied classic_mode_registry.\nVerification: the machine looks as intended (override "
        "key present: yes, effective mode: classic)\n";
    EXPECT_TRUE(Has(RunController(kEnable), applied));
    if (row.chosenBetween) SetPreference(*row.chosenBetween);
    EXPECT_TRUE(Has(RunController(kEnable), row.again + applied));
    EXPECT_TRUE(Has(RunController({L"status", L"--json"}),
                    "\"suppressionApplied\":true,\"priorKeyPresent\":" + row.json + ","));
    if (row.chosenAfterEnable) SetPreference(*row.chosenAfterEnable);
    EXPECT_TRUE(Has(RunController({L"disable"}), "\n" + row.disabled));
    // The outcome reaches the log too, where a restore at logon leaves its only trace.
    std::string logged = "[INFO] [state] " + row.disabled.substr(12);
    if (const size_t at = logged.find("\\u0001"); at != std::string::npos)
      logged = logged.substr(0, at) + '\x01' + logged.substr(at + 6);
    EXPECT_TRUE(Has(TodaysLog(), logged));
    const Preference* chosen = row.chosenAfterEnable ? row.chosenAfterEnable : row.chosenBetween;
    EXPECT_EQ(ReadPreference(), chosen ? *chosen : row.prior);
    EXPECT_FALSE(is_boot_restore_armed());
    EXPECT_FALSE(ReadState().suppressionApplied || ReadState().featureEnabled);
  }
}

TEST_F(LifecycleE2e, BootRestoreAcrossItsDecisionTable) {
  const struct {
    const char* name;
    bool enable, featureOff, deletedCopy;
    std::string line;
    Preference after;
    bool armed;
  } rows[] = {
      {"nothing applied, stale entry", false, false, false,
       "Nothing was applied; the boot-time restore had nothing to do.\n", kDllOverride, false},
      {"feature disabled", true, true, false,
       "Self-healing at logon (the feature was not left enabled): Restored the prior override "
       "value 'C:\\Tools\\shell \"x\".dll'.\n",
       kDllOverride, false},
      {"feature still enabled", true, false, false,
       "The feature is still enabled and Ravelin is still installed, so this was an ordinary "
       "restart. The override is left in place and the boot-time restore is re-armed.\n",
       kEmptyOverride, true},
      {"controller removed", true, false, true,
       "Self-healing at logon (Ravelin is no longer installed): Restored the prior override "
       "value 'C:\\Tools\\shell \"x\".dll'.\n",
       kDllOverride, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ResetLifecycle();
    SetPreference(kDllOverride);
    ASSERT_TRUE(WriteState(LifecycleState{}).ok());
    ASSERT_TRUE(arm_boot_restore().ok());
    if (row.enable) (void)RunController(kEnable);
    if (row.featureOff) RecordFeatureOff();
    const std::wstring exe = row.deletedCopy ? ControllerCopy(L"gone") : ControllerPath();
    // Moved away rather than deleted: the image of a suspended process is still held open.
    const RunResult run = RunControllerAt(exe, {L"boot-restore"}, 60000, {}, [&] {
      if (row.deletedCopy) {
        EXPECT_TRUE(::MoveFileW(exe.c_str(), (exe + L".old").c_str()));
      }
    });
    EXPECT_EQ(run.output, row.line);
    EXPECT_EQ(ReadPreference(), row.after);
    EXPECT_EQ(is_boot_restore_armed(), row.armed);
  }
}

// A volatile parent refuses a non-volatile child (1021): for the state key that stops the enable
// before anything changes; the override key's parent is replaced, unless another program keeps a
// key under it. An enable whose boot-time restore cannot be armed (the test build of the
// controller fails that step) leaves the state as it found it.
TEST_F(LifecycleE2e, EnableAgainstRegistryFaults) {
  const std::wstring overrideParent = kOverrideParentPath;
  const struct {
    std::vector<std::wstring> volatileKeys;  // created in order; a second one must survive
    const wchar_t* failing;                  // a step that fails with error 5
    std::string line;
  } rows[] = {
      {{L"Software\\Orvanta\\Brenlowpack"},
       nullptr,
       "\nCould not record prior state, so nothing was changed: Could not open the state key for "
       "writing: 1021\n"},
      {{overrideParent}, nullptr, "\nApplied classic_mode_registry.\n"},
      {{overrideParent, overrideParent + L"\\TreatAs"},
       nullptr,
       "\nCould not apply the strategy: Could not create the override key: 1021\n"},
      {{},
       L"set the RunOnce entry",
       "\nCould not arm the boot-time restore, so nothing was changed: Could not write the RunOnce "
       "entry: 5\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    ResetLifecycle();
    for (const std::wstring& key : row.volatileKeys) {
      ::RegDeleteTreeW(HKEY_CURRENT_USER, key.c_str());
      UniqueHkey made;
      ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, nullptr, REG_OPTION_VOLATILE,
                                  KEY_WRITE, nullptr, made.put(), nullptr),
                ERROR_SUCCESS);
    }
    ::SetEnvironmentVariableW(L"CMR_STEP_FAIL", row.failing);
    // Only the test build can fail a step; it has no Hook beside it to load.
    const RunResult run =
        row.failing ? RunControllerAt(JoinPath(ExecutableFolder(), L"step_controller.exe"), kEnable)
                    : RunController(kEnable);
    ::SetEnvironmentVariableW(L"CMR_STEP_FAIL", nullptr);
    const bool applied = row.line == "\nApplied classic_mode_registry.\n";
    EXPECT_EQ(run.exitCode, applied ? 0u : 1u) << run.output;
    EXPECT_TRUE(Has(run, row.line)) << run.output;
    EXPECT_EQ(ReadPreference(), applied ? kEmptyOverride : kNoOverride);
    EXPECT_EQ(is_boot_restore_armed(), applied);
    EXPECT_EQ(ReadState().featureEnabled, applied);
    if (row.volatileKeys.size() > 1) {  // still there to delete
      EXPECT_EQ(::RegDeleteTreeW(HKEY_CURRENT_USER, row.volatileKeys[1].c_str()), ERROR_SUCCESS);
    }
    if (!row.volatileKeys.empty()) ::RegDeleteTreeW(HKEY_CURRENT_USER, row.volatileKeys[0].c_str());
  }
}

// Without --yes only the disclosure is printed and the account stays as it was: never enabled.
TEST_F(LifecycleE2e, DisclosureBeforeEnablingChangesNothing) {
  const std::string before = ExportUserSoftware();
  const RunResult run = RunController({L"enable"});
  EXPECT_EQ(run.exitCode, 2u);
  EXPECT_EQ(run.output, Golden(L"enable_disclosure.txt"));
  EXPECT_EQ(ExportUserSoftware(), before);
  ASSERT_TRUE(WriteState(LifecycleState{}).ok());  // no strategy recorded
  EXPECT_TRUE(Has(RunController({L"status"}), "\n  Suppression applied:  no by none\n"));
}

// Both forms of status in each state an account can be in, checked whole against golden files.
// From row to row the fields take values that tell any two of them apart.
TEST_F(LifecycleE2e, StatusInEachLifecycleState) {
  const struct {
    const char* state;
    const Preference* prior;  // a pointer: GCC 12 misjudges a string member here as uninitialised
    std::vector<Args> verbs;
    const Preference* choiceAfterFirstVerb = nullptr;  // the user's own, made while enabled
    int publications = 0;
    DWORD verdict = 0;  // the Hook's probe verdict, with the detail "seen"; 0: none
  } rows[] = {
      {"never", &kNoOverride, {}},
      {"classic", &kOddOverride, {kEnable}, nullptr, 2, 1},
      {"refusal", &kNoOverride, {kRefusal}, nullptr, 1, 2},
      {"refusal_after_classic", &kDllOverride, {kEnable, kRefusal}, nullptr, 0, 3},
      {"disabled", &kDllOverride, {kEnable, {L"disable"}}},
      {"stood_down", &kNoOverride, {kEnable, {L"disable"}}, &kTheirs, 0, 4},
      {"override_missing", &kEmptyOverride, {kEnable}, &kNoOverride},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.state);
    ResetLifecycle();
    ResetUserData();
    SetPreference(*row.prior);
    for (size_t i = 0; i < row.verbs.size(); ++i) {
      (void)RunController(row.verbs[i]);
      if (i == 0 && row.choiceAfterFirstVerb) SetPreference(*row.choiceAfterFirstVerb);
    }
    if (LifecycleState state = ReadState(); state.present) {
      state.suppressionAppliedAt = L"2026-11-12 20:27:06";
      state.explorerRestarts = 7;
      ASSERT_TRUE(WriteState(state).ok());
    }
    if (row.verdict != 0) {
      ::RegSetKeyValueW(HKEY_CURRENT_USER, kStateKeyPath, L"LastProbeVerdict", REG_DWORD,
                        &row.verdict, sizeof(DWORD));
      ::RegSetKeyValueW(HKEY_CURRENT_USER, kStateKeyPath, L"LastProbeDetail", REG_SZ, L"seen", 10);
    }
    for (int i = 0; i < row.publications; ++i) {
      PublishResult published;
      ConfigPublisher().Publish({}, PublishMode::publish, GlobalsPolicy::withDefaultGlobals,
                                published);
    }
    const std::wstring golden = L"status/" + FromUtf8(row.state);
    EXPECT_EQ(RunController({L"status", L"--json"}).output, Golden(golden + L".json"));
    const std::string text = Golden(golden + L".txt"), out = RunController({L"status"}).output;
    const size_t hook = text.find("<hook>\n");
    EXPECT_EQ(out.substr(0, hook), text.substr(0, hook));
    EXPECT_TRUE(out.ends_with(text.substr(hook + 7))) << out;
  }
}

TEST_F(LifecycleE2e, WithAStandInExplorer) {
  RunResult install = RunController({L"install"});
  EXPECT_EQ(install.exitCode, 1u);
  EXPECT_TRUE(Has(install, "  Desktop (Progman):    MISSING\n"));
  EXPECT_TRUE(install.output.ends_with(
      "\nThis machine does not meet Ravelin requirements. It would run native-only.\n"));

  ExplorerRig rig;
  rig.Start({L"--shell"});
  install = RunController({L"install"});
  EXPECT_EQ(install.exitCode, 0u) << install.output;
  EXPECT_TRUE(Has(install,
                  "  Desktop (Progman):    present\n  Desktop view:         "
                  "SHELLDLL_DefView present\n  Window topology:      as expected\n"));

  // The refusal strategy reaches the Hook (and writes nothing: see the persistent steps).
  const RunResult refusal = RunController(kRefusal);
  EXPECT_EQ(refusal.exitCode, 0u) << refusal.output;
  EXPECT_TRUE(rig.WaitFor("code=5 arg=1")) << rig.Journal();

  // Ten Explorer starts seen within 600 s: refused, and nothing is written back.
  LifecycleState state = ReadState();
  FILETIME now{};
  ::GetSystemTimeAsFileTime(&now);
  state.explorerRestarts = 9;
  state.restartWindowStart = FileTimeToInteger(now) - 600'000'000ull;
  state.lastExplorerStart = 1;  // not the Explorer running now
  ASSERT_TRUE(WriteState(state).ok());
  const RunResult refused = RunController(kEnable);
  EXPECT_EQ(refused.exitCode, 3u);
  EXPECT_TRUE(refused.output.ends_with(Golden(L"enable_refused_restart_loop.txt")));
  EXPECT_EQ(ReadState(), state);
  EXPECT_NE(RunController({L"enable", L"--yes", L"--no-restart", L"--force"}).exitCode, 3u);
}

const char kNotEnabled[] = "Reconcile: Ravelin is not enabled in Settings; nothing to do.\n";

uint64_t CreationTime(HANDLE process) {
  FILETIME creation{}, exit{}, kernel{}, user{};
  EXPECT_TRUE(::GetProcessTimes(process, &creation, &exit, &kernel, &user));
  return FileTimeToInteger(creation);
}

void EnableInSettings() {
  WriteBytes(SettingsFilePath(),
             R"({"apps":[{"app_id":"context-menu-replacement","status":"enabled","settings":{)"
             R"("menu.profiles":[{"match":{"context":["desktop-background"]},)"
             R"("items":[{"source":"modern"}]}]}}]})");
}

// Off in Settings nothing is published; on, an installation without its baseline stops after
// the configuration, before anything of the lifecycle is recorded.
TEST_F(LifecycleE2e, ReconcileStandsAsideOnlyForTheRecordedInstallerStillRunning) {
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
  EXPECT_FALSE(DirectoryExists(PublishedFolder()));

  EnableInSettings();
  const std::wstring exe = ControllerCopy(L"no-baseline", {L"Schema\\custom-menu.schema.json"});
  const RunResult run = RunControllerAt(exe, {L"reconcile"});
  EXPECT_EQ(run.output,
            "Reconcile: installed Schema/custom-menu.schema.json or baseline is missing.\n");
  EXPECT_EQ(run.exitCode, 1u);
  EXPECT_TRUE(FileExists(SnapshotFilePath(1)));
  EXPECT_FALSE(ReadState().present);
}

// Each run starts from the state the one before it left: a fresh account is enabled, an enabled
// one reinjected, and with restart allowed its Explorer, older than the override, restarted.
TEST_F(LifecycleE2e, ReconcileEnablesAFreshAccountThenReinjectsThenRestarts) {
  EnableInSettings();
  ExplorerRig rig;
  const DWORD explorer = rig.StartShell({L"--shell", L"--respawn", L"500"}, L"--shell");
  const std::string modern = "command " + Pid(explorer) + " code=8 arg=4\n";
  RunResult run = RunController({L"reconcile"});
  EXPECT_EQ(run.exitCode, 0u) << run.output;
  EXPECT_TRUE(Has(run, Golden(L"restart_required.txt"))) << run.output;
  EXPECT_EQ(ReadPreference(), kEmptyOverride);
  EXPECT_TRUE(ReadState().featureEnabled);
  EXPECT_TRUE(FileExists(SnapshotFilePath(1)));
  EXPECT_TRUE(FileExists(JoinPath(PublishedFolder(), L"custom-model-snapshot-1.bin")));
  EXPECT_EQ(rig.Count("bootstrap " + Pid(explorer) + " "), 1u) << rig.Journal();
  EXPECT_EQ(rig.Count(modern), 1u) << rig.Journal();

  // No restart allowed: the Hook is loaded again, the recorded mode resent (so it was recorded),
  // and modern sent once more.
  run = RunController({L"reconcile"});
  EXPECT_EQ(run.exitCode, 0u) << run.output;
  EXPECT_EQ(run.output, "\n");
  EXPECT_EQ(rig.Count("bootstrap " + Pid(explorer) + " "), 2u) << rig.Journal();
  EXPECT_EQ(rig.Count(modern), 3u) << rig.Journal();
  EXPECT_TRUE(FileExists(SnapshotFilePath(2)));
  EXPECT_TRUE(FileExists(JoinPath(PublishedFolder(), L"custom-model-snapshot-2.bin")));

  const size_t bootstraps = rig.Count("bootstrap "), modes = rig.Count(" code=8 arg=4\n");
  run = RunController({L"reconcile", L"--allow-restart"}, 120000);
  EXPECT_EQ(run.exitCode, 0u) << run.output;
  EXPECT_TRUE(run.output.starts_with(
      "Explorer has been running since before this account was switched to classic menus,\n"
      "so it is still serving the modern menu. Restarting it...\n"))
      << run.output;
  // Every Hook bootstrapped after the restart got the recorded mode and modern.
  EXPECT_GT(rig.Count("bootstrap "), bootstraps) << rig.Journal();
  EXPECT_EQ(rig.Count(" code=8 arg=4\n") - modes, 2 * (rig.Count("bootstrap ") - bootstraps))
      << rig.Journal();
}

// The user's own menu preference is never lost, whichever persistent step a verb is stopped at:
// step N fails with error 5 (in process, through the step observer), or a test build of the
// controller dies right after it (exit code 86). While the override is not the user's
// preference, the state holds it as the prior with the boot restore armed, through boot-restore,
// and a disable then gives it back exactly.
struct Scenario {
  const char* name;
  Args verb;
  Preference prior;
  bool enabledFirst = false;  // an uninterrupted classic enable runs first
  bool featureOff = false;    // ...and the feature is then recorded off, SuppressionApplied kept
  bool earlierCycle = false;  // an enable and a disable ran earlier without an override
  bool legacy = false;        // ...and the state then lives in the pre-0.9.9 key
};

void PrintTo(const Scenario& s, std::ostream* out) {
  *out << s.name;
}

const Scenario kScenarios[] = {
    {"enable_classic_no_key", kEnable, kNoOverride},
    {"enable_classic_dll", kEnable, kDllOverride},
    {"enable_classic_again", kEnable, kDllOverride, true},
    {"enable_classic_after_a_disable", kEnable, kEmptyOverride, false, false, true},
    {"enable_refusal", kRefusal, kDllOverride},
    {"disable_no_key", {L"disable"}, kNoOverride, true},
    {"disable_dll", {L"disable"}, kDllOverride, true},
    {"uninstall_no_key", {L"uninstall"}, kNoOverride, true},
    {"uninstall_dll", {L"uninstall"}, kDllOverride, true},
    {"boot_restore_feature_off_no_key", {L"boot-restore"}, kNoOverride, true, true},
    {"boot_restore_feature_off_dll", {L"boot-restore"}, kDllOverride, true, true},
    {"boot_restore_feature_on", {L"boot-restore"}, kDllOverride, true},
    {"boot_restore_legacy_feature_off", {L"boot-restore"}, kDllOverride, true, true, false, true},
};

int RunInProcess(const Args& args) {
  std::vector<std::wstring> words{L"controller"};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<wchar_t*> argv;
  for (std::wstring& word : words) argv.push_back(word.data());
  return cmr::RunController(static_cast<int>(argv.size()), argv.data());
}

// Records the persistent steps in order and, after each step that changed it, what the restore
// depends on; the step numbered `refused` (from 1) fails with error 5 instead.
struct RecordSteps final : StepObserver {
  explicit RecordSteps(unsigned refused = 0) : refused(refused) {}
  DWORD BeforeStep(const wchar_t* step) override {
    if (++seen != refused) return ERROR_SUCCESS;
    failed = step;
    lines += "  " + ToUtf8(step) + " (refused)\n";
    return ERROR_ACCESS_DENIED;
  }
  void AfterStep(const wchar_t* step) override {
    const LifecycleState s = ReadState();
    const std::string now =
        "applied=" + std::to_string(s.suppressionApplied) +
        " enabled=" + std::to_string(s.featureEnabled) + " prior=" +
        (s.priorOverrideKeyPresent ? "'" + ToUtf8(s.priorOverrideValue) + "'" : "absent") +
        " armed=" + std::to_string(is_boot_restore_armed()) + " " +
        ::testing::PrintToString(ReadPreference());
    lines += "  " + ToUtf8(step) + (now == last ? "" : "  -> " + now) + "\n";
    last = now;
  }
  unsigned refused, seen = 0;
  std::wstring failed;
  std::string lines, last;
};

void Prepare(const Scenario& s) {
  ResetLifecycle();
  if (s.earlierCycle) {
    SetPreference(kNoOverride);
    (void)RunInProcess(kEnable);
    (void)RunInProcess({L"disable"});
  }
  SetPreference(s.prior);
  if (!s.enabledFirst) return;
  (void)RunInProcess(kEnable);
  if (s.featureOff) RecordFeatureOff();
  if (s.legacy) {
    ASSERT_EQ(::RegRenameKey(HKEY_CURRENT_USER, kStateKeyPath, L"ContextMenuReplacement"), 0);
  }
}

// While something of ours is in force the next logon must be able to undo it (armed). The recorded
// prior and SuppressionApplied show in the last check: only their restore gives the prior back.
void ExpectRecovers(const Preference& prior, const std::string& where) {
  EXPECT_TRUE(ReadPreference() == prior || is_boot_restore_armed()) << where << ", interrupted";
  (void)RunBootRestoreVerb();
  EXPECT_TRUE(ReadPreference() == prior || is_boot_restore_armed()) << where << ", boot-restore";
  if (ReadState().suppressionApplied) (void)RunDisableVerb();
  EXPECT_EQ(ReadPreference(), prior) << where;
}

class LifecycleInterruption : public ::testing::TestWithParam<Scenario> {
 protected:
  void TearDown() override { ResetLifecycle(); }
};

TEST_P(LifecycleInterruption, AtEveryStep) {
  const Scenario& s = GetParam();
  const std::wstring stepController = JoinPath(ExecutableFolder(), L"step_controller.exe");
  unsigned n = 1;
  for (;; ++n) {
    Prepare(s);
    ::SetEnvironmentVariableW(L"CMR_STEP_EXIT", std::to_wstring(n).c_str());
    const RunResult run = RunControllerAt(stepController, s.verb);
    ::SetEnvironmentVariableW(L"CMR_STEP_EXIT", nullptr);
    if (run.exitCode != 86) break;  // the verb finished before step n
    ExpectRecovers(s.prior, "died after step " + std::to_string(n));
    Prepare(s);
    RecordSteps observer(n);
    SetStepObserver(&observer);
    (void)RunInProcess(s.verb);
    SetStepObserver(nullptr);
    const std::string where = "step " + std::to_string(n) + " failed";
    const std::wstring& step = observer.failed;
    // A restore whose own write to the override key fails is attempted once and never again: it
    // says so, clears SuppressionApplied and disarms, so that a key it cannot write does not loop
    // at every logon. The override then stays ours; that is the one case the user is told instead.
    if (s.verb.front() != L"enable" &&
        (step == L"delete the override key" || step == L"create the override key" ||
         step == L"set the override value")) {
      EXPECT_FALSE(ReadState().suppressionApplied || is_boot_restore_armed()) << where;
    } else {
      ExpectRecovers(s.prior, where);
    }
  }
  EXPECT_GT(n, 1u);
}

// Each verb's persistent steps, checked whole against a golden list, then its daily log lines.
TEST(LifecycleSteps, EachVerbInOrder) {
  std::string recorded;
  const auto record = [&](const Scenario& s, unsigned refused) {
    Prepare(s);
    const size_t logged = TodaysLog().size();
    RecordSteps steps(refused);
    SetStepObserver(&steps);
    (void)RunInProcess(s.verb);
    SetStepObserver(nullptr);
    recorded += "[" + std::string(s.name) + "]\n" + steps.lines;
    std::istringstream log(TodaysLog().substr(logged));
    for (std::string line; std::getline(log, line);) {
      recorded += "  log " + line.substr(line.find("] [", line.find("[P:")) + 2) + "\n";
    }
  };
  for (const Scenario& s : kScenarios) record(s, 0);
  // The override's value cannot be set: the half-made key reads as classic, so the restore runs.
  for (const Scenario& s : {kScenarios[0], kScenarios[1]}) record(s, 26);
  ResetLifecycle();
  EXPECT_EQ(recorded, Golden(L"persistent_steps.txt"));
}

INSTANTIATE_TEST_SUITE_P(Verbs, LifecycleInterruption, ::testing::ValuesIn(kScenarios),
                         [](const auto& info) { return std::string(info.param.name); });

// An Explorer that answers every step but the one a row fails, and journals what was asked.
struct ScriptedExplorer final : ExplorerLink {
  explicit ScriptedExplorer(std::string failing) : failing(std::move(failing)) {}
  std::vector<uint64_t> StartTimes() override { return {1}; }  // older than any override write
  size_t UiThreadCount() override { return 1; }
  bool RestartShell() override { return Step("restart") == 0; }
  int InjectHook() override { return Step("inject") * 7; }
  bool EarlierBuildHookLoaded() override { return false; }
  int SendModernReplacementMode() override { return Step("modern"); }
  int Send(const HookCommand& command) override {
    return Step("send " + std::to_string(command.code));
  }
  int Step(const std::string& name) {
    calls += calls.empty() ? name : " " + name;
    return name == failing ? 1 : 0;
  }
  std::string failing, calls;
};

// Each Explorer step of enable and disable failed alone: the exit code says so, and the
// preference, the record and the boot restore are left as the failed step found them.
TEST_F(LifecycleE2e, EachExplorerStepFailedInProcess) {
  const Args kRestarting{L"enable", L"--yes"};
  const struct {
    const char* failing;
    Args verb;
    bool enabledFirst;
    DWORD exitCode;
    const char* calls;
    Preference after;
    bool applied, enabled, armed;
  } rows[] = {
      {"", kRestarting, false, 0, "restart inject", kEmptyOverride, true, true, true},
      {"restart", kRestarting, false, 1, "restart", kEmptyOverride, true, true, true},
      {"inject", kRestarting, false, 7, "restart inject", kEmptyOverride, true, true, true},
      {"inject", kRefusal, false, 7, "inject", kDllOverride, false, true, false},
      {"", {L"disable"}, true, 0, "send 3", kDllOverride, false, false, false},
      {"send 3", {L"disable"}, true, 1, "send 3", kDllOverride, false, false, false},
  };
  for (const auto& row : rows) {
    const std::string where = ToUtf8(row.verb.front()) + " failing '" + row.failing + "'";
    ResetLifecycle();
    SetPreference(kDllOverride);
    ScriptedExplorer explorer(row.failing);
    SetExplorerLink(&explorer);
    if (row.enabledFirst) (void)RunInProcess(kEnable);
    explorer.calls.clear();
    const int exitCode = RunInProcess(row.verb);
    SetExplorerLink(nullptr);
    EXPECT_EQ(exitCode, static_cast<int>(row.exitCode)) << where;
    EXPECT_EQ(explorer.calls, row.calls) << where;
    EXPECT_EQ(ReadPreference(), row.after) << where;
    const LifecycleState state = ReadState();
    EXPECT_EQ(state.suppressionApplied, row.applied) << where;
    EXPECT_EQ(state.featureEnabled, row.enabled) << where;
    EXPECT_EQ(state.priorOverrideValue, kDllOverride.value) << where;
    EXPECT_EQ(is_boot_restore_armed(), row.armed) << where;
  }
  ResetLifecycle();
}

}  // namespace
}  // namespace cmr::e2e

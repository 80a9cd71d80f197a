// The user's own menu preference is never lost, whichever persistent step a verb is stopped at.
//
// Every persistent change runs as a numbered step. For each verb and each step N, two kinds of
// interruption are tried on the real registry of the prefix:
//   - step N fails with error 5 (in this process, through the step observer), and the verb
//     goes on with its own failure handling;
//   - a test build of the controller dies right after step N (a real child process).
// After each one: if the override key holds anything but the user's preference, the state
// records SuppressionApplied with that preference as the prior and the boot restore is armed.
// Then boot-restore runs, the same holds, and once whatever it left enabled is disabled the
// user's preference is back exactly.

#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <vector>

#include "cli/entry.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "lifecycle/boot_restore.h"
#include "lifecycle/lifecycle_verbs.h"
#include "state/lifecycle_state.h"
#include "state/persistent_step.h"
#include "tests/e2e/harness.h"
#include "tests/e2e/lifecycle_fixture.h"

namespace cmr::e2e {
namespace {

constexpr DWORD kDiedAtStep = 86;  // the test build's exit code when it dies at its step

using Args = std::vector<std::wstring>;
const Args kEnableClassic{L"enable", L"--yes", L"--no-restart"};

struct Scenario {
  const char* name;
  Args verb;
  Preference prior;
  bool enabledFirst = false;  // an uninterrupted classic enable runs first
  bool featureOff = false;    // ...and the feature is then recorded off, SuppressionApplied kept
  // An enable and a disable ran earlier, without an override, so the state already holds a
  // prior preference that is no longer the user's.
  bool earlierCycle = false;
};

int RunInProcess(const Args& args) {
  std::vector<std::wstring> words{L"controller"};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<wchar_t*> argv;
  for (std::wstring& word : words) argv.push_back(word.data());
  return cmr::RunController(static_cast<int>(argv.size()), argv.data());
}

class FailOneStep final : public StepObserver {
 public:
  explicit FailOneStep(unsigned failing) : failing_(failing) {}
  DWORD BeforeStep(const wchar_t* step) override {
    if (++seen_ != failing_) return ERROR_SUCCESS;
    failed = step;
    return ERROR_ACCESS_DENIED;
  }
  void AfterStep(const wchar_t*) override {}
  std::wstring failed;

 private:
  unsigned failing_;
  unsigned seen_ = 0;
};

// A restore whose own write to the override key fails is attempted once and never again: it
// says so, clears SuppressionApplied and disarms, so that a key it cannot write does not loop
// at every logon. The override then stays ours; that is the one case the user is told instead.
bool IsRestoreWrite(const Scenario& s, const std::wstring& step) {
  return s.verb.front() != L"enable" &&
         (step == L"delete the override key" || step == L"create the override key" ||
          step == L"set the override value");
}

void Prepare(const Scenario& s) {
  ResetLifecycle();
  if (s.earlierCycle) {
    SetPreference(kNoOverride);
    (void)RunInProcess(kEnableClassic);
    (void)RunInProcess({L"disable"});
  }
  SetPreference(s.prior);
  if (!s.enabledFirst) return;
  (void)RunInProcess(kEnableClassic);
  if (!s.featureOff) return;
  LifecycleState state = ReadState();
  state.featureEnabled = false;
  ASSERT_TRUE(WriteState(state).ok());
}

void ExpectInvariant(const Preference& prior, const std::string& where) {
  const Preference now = ReadPreference();
  if (now == prior) return;
  // Something of ours is in force: it must be undoable.
  const LifecycleState state = ReadState();
  EXPECT_TRUE(now.keyPresent && now.value.empty()) << where << ": " << Describe(now);
  EXPECT_TRUE(state.suppressionApplied) << where;
  EXPECT_EQ(state.priorOverrideKeyPresent, prior.keyPresent) << where;
  EXPECT_EQ(state.priorOverrideValue, prior.value) << where;
  EXPECT_TRUE(is_boot_restore_armed()) << where;
}

void ExpectRecovers(const Preference& prior, const std::string& where) {
  ExpectInvariant(prior, where + ", interrupted");
  (void)RunBootRestoreVerb();
  ExpectInvariant(prior, where + ", after boot-restore");
  if (ReadState().suppressionApplied) (void)RunDisableVerb();
  EXPECT_EQ(ReadPreference(), prior) << where << ": " << Describe(ReadPreference());
}

// Returns the number of steps the verb took.
unsigned g_restoreRefusals = 0;

std::string Name(const Scenario& s) {
  return std::string(s.name) + " (" + Describe(s.prior) + ")";
}

unsigned InterruptAtEveryStep(const Scenario& s) {
  const std::wstring stepController = JoinPath(ExecutableFolder(), L"step_controller.exe");
  unsigned steps = 0;
  for (unsigned n = 1;; ++n) {
    Prepare(s);
    ::SetEnvironmentVariableW(L"CMR_STEP_EXIT", std::to_wstring(n).c_str());
    const RunResult run = RunControllerAt(stepController, s.verb);
    ::SetEnvironmentVariableW(L"CMR_STEP_EXIT", nullptr);
    if (run.exitCode != kDiedAtStep) break;  // the verb finished before step n
    steps = n;
    ExpectRecovers(s.prior, Name(s) + ", died after step " + std::to_string(n));
  }
  for (unsigned n = 1; n <= steps; ++n) {
    Prepare(s);
    FailOneStep observer(n);
    SetStepObserver(&observer);
    (void)RunInProcess(s.verb);
    SetStepObserver(nullptr);
    const std::string where = Name(s) + ", step " + std::to_string(n) + " failed";
    if (IsRestoreWrite(s, observer.failed)) {
      ++g_restoreRefusals;
      EXPECT_FALSE(ReadState().suppressionApplied) << where;
      EXPECT_FALSE(is_boot_restore_armed()) << where;
      continue;
    }
    ExpectRecovers(s.prior, where);
  }
  std::cout << "[interruption] " << s.name << ": " << steps << " steps, " << 2 * steps << " cases, "
            << g_restoreRefusals << " failed restore writes so far\n";
  EXPECT_GT(steps, 0u) << s.name;
  return steps;
}

class LifecycleInterruption : public ::testing::Test {
 protected:
  void TearDown() override { ResetLifecycle(); }
};

TEST_F(LifecycleInterruption, EnableClassic) {
  for (const Preference& prior : {kNoOverride, kEmptyOverride, kDllOverride}) {
    (void)InterruptAtEveryStep({"enable classic", kEnableClassic, prior});
  }
  (void)InterruptAtEveryStep({"enable classic again", kEnableClassic, kDllOverride, true});
  (void)InterruptAtEveryStep(
      {"enable classic after a disable", kEnableClassic, kEmptyOverride, false, false, true});
}

TEST_F(LifecycleInterruption, EnableRefusal) {
  (void)InterruptAtEveryStep({"enable refusal",
                              {L"enable", L"--yes", L"--no-restart", L"--strategy", L"refusal"},
                              kDllOverride});
}

TEST_F(LifecycleInterruption, Disable) {
  for (const Preference& prior : {kNoOverride, kEmptyOverride, kDllOverride}) {
    (void)InterruptAtEveryStep({"disable", {L"disable"}, prior, true});
  }
}

TEST_F(LifecycleInterruption, Uninstall) {
  for (const Preference& prior : {kNoOverride, kDllOverride}) {
    (void)InterruptAtEveryStep({"uninstall", {L"uninstall"}, prior, true});
  }
}

TEST_F(LifecycleInterruption, BootRestore) {
  for (const Preference& prior : {kNoOverride, kDllOverride}) {
    (void)InterruptAtEveryStep({"boot-restore, feature off", {L"boot-restore"}, prior, true, true});
  }
  (void)InterruptAtEveryStep({"boot-restore, feature on", {L"boot-restore"}, kDllOverride, true});
}

}  // namespace
}  // namespace cmr::e2e

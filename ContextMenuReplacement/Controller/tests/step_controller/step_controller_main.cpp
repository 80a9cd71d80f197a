// A test build of the controller: the shipped libraries and entry, plus an observer of the
// persistent steps, driven by the environment so a test can interrupt any verb at any step:
//   CMR_STEP_FAIL=N  step N (counted from 1) fails with error 5 without running
//   CMR_STEP_EXIT=N  the process dies right after step N ran (exit code 86, no clean-up)
// Built for the tests only; the shipped controller has no such observer.

#include <cstdlib>
#include <string>

#include "cli/entry.h"
#include "common/win32.h"
#include "state/persistent_step.h"

namespace {

constexpr UINT kDiedAtStep = 86;

unsigned long StepFromEnvironment(const wchar_t* name) {
  wchar_t text[32] = {};
  if (::GetEnvironmentVariableW(name, text, 32) == 0) return 0;
  return std::wcstoul(text, nullptr, 10);
}

class InterruptingObserver final : public cmr::StepObserver {
 public:
  InterruptingObserver()
      : failAt_(StepFromEnvironment(L"CMR_STEP_FAIL")),
        exitAt_(StepFromEnvironment(L"CMR_STEP_EXIT")) {}

  DWORD BeforeStep(const wchar_t*) override {
    ++step_;
    return step_ == failAt_ ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
  }
  void AfterStep(const wchar_t*) override {
    // The hardest way out there is: no destructors, no flushing, like a power cut.
    if (step_ == exitAt_) ::TerminateProcess(::GetCurrentProcess(), kDiedAtStep);
  }

 private:
  unsigned long failAt_;
  unsigned long exitAt_;
  unsigned long step_ = 0;
};

}  // namespace

int wmain(int argc, wchar_t** argv) {
  static InterruptingObserver observer;
  cmr::SetStepObserver(&observer);
  cmr::AttachParentConsoleIfNeeded();
  return cmr::RunController(argc, argv);
}

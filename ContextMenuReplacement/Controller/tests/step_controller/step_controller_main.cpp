// A test build of the controller: the shipped libraries and entry, plus an observer of the
// persistent steps: with CMR_STEP_EXIT=N in the environment the process dies right after step N
// (counted from 1) ran, with exit code 86 and no clean-up, so a test can interrupt any verb there;
// with CMR_STEP_FAIL=<step name> every step of that name fails with error 5 (access denied).
// Built for the tests only; the shipped controller has no such observer.

#include <cwchar>

#include "cli/entry.h"
#include "common/win32.h"
#include "state/persistent_step.h"

namespace {

constexpr UINT kDiedAtStep = 86;

class InterruptingObserver final : public cmr::StepObserver {
 public:
  InterruptingObserver() {
    wchar_t text[32] = {};
    if (::GetEnvironmentVariableW(L"CMR_STEP_EXIT", text, 32))
      exitAt_ = std::wcstoul(text, nullptr, 10);
    ::GetEnvironmentVariableW(L"CMR_STEP_FAIL", failing_, 64);
  }

  DWORD BeforeStep(const wchar_t* step) override {
    ++step_;
    return std::wcscmp(step, failing_) == 0 ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
  }
  void AfterStep(const wchar_t*) override {
    // The hardest way out there is: no destructors, no flushing, like a power cut.
    if (step_ == exitAt_) ::TerminateProcess(::GetCurrentProcess(), kDiedAtStep);
  }

 private:
  wchar_t failing_[64] = {};
  unsigned long exitAt_ = 0;
  unsigned long step_ = 0;
};

}  // namespace

int wmain(int argc, wchar_t** argv) {
  static InterruptingObserver observer;
  cmr::SetStepObserver(&observer);
  cmr::AttachParentConsoleIfNeeded();
  return cmr::RunController(argc, argv);
}

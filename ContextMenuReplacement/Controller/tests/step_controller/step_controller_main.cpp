// A test build of the controller: the shipped libraries and entry, plus an observer of the
// persistent steps: with CMR_STEP_EXIT=N in the environment the process dies right after step N
// (counted from 1) ran, with exit code 86 and no clean-up, so a test can interrupt any verb there;
// with CMR_STEP_FAIL=<step name> every step of that name fails with error 5 (access denied).
// With CMR_FILE_STEP_EXIT=N it dies in the Nth atomic file write: the temporary is written whole
// and the rename never comes.
// Built for the tests only; the shipped controller has no such observer.

#include <cwchar>

#include "cli/entry.h"
#include "common/file_io.h"
#include "common/win32.h"
#include "state/persistent_step.h"
#include "tests/support/scripted_files.h"

namespace {

constexpr UINT kDiedAtStep = 86;

unsigned long StepFromEnvironment(const wchar_t* name) {
  wchar_t text[32] = {};
  return ::GetEnvironmentVariableW(name, text, 32) ? std::wcstoul(text, nullptr, 10) : 0;
}

class InterruptingObserver final : public cmr::StepObserver {
 public:
  InterruptingObserver() { ::GetEnvironmentVariableW(L"CMR_STEP_FAIL", failing_, 64); }

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
  unsigned long exitAt_ = StepFromEnvironment(L"CMR_STEP_EXIT");
  unsigned long step_ = 0;
};

class InterruptingFiles final : public cmr::ScriptedFiles {
 public:
  cmr::Status WriteAtomically(const std::wstring& target, std::string_view bytes) override {
    if (++writes_ == exitAt_) {
      (void)cmr::WriteNewFile(cmr::TemporaryPathFor(target), bytes);
      ::TerminateProcess(::GetCurrentProcess(), kDiedAtStep);
    }
    return ScriptedFiles::WriteAtomically(target, bytes);
  }

 private:
  unsigned long exitAt_ = StepFromEnvironment(L"CMR_FILE_STEP_EXIT");
  unsigned long writes_ = 0;
};

}  // namespace

int wmain(int argc, wchar_t** argv) {
  static InterruptingObserver observer;
  cmr::SetStepObserver(&observer);
  static InterruptingFiles files;
  cmr::ReplaceSystemFiles(&files);
  cmr::AttachParentConsoleIfNeeded();
  return cmr::RunController(argc, argv);
}

#pragma once
// Every change that the lifecycle makes to persistent state (one registry value set, one key
// created or deleted) runs as a named step through RunPersistentStep. In the shipped program
// that is a plain call. A test build installs an observer that can refuse a chosen step with
// an error, or end the process right after it, so that the user's menu preference can be shown
// to survive an interruption at every single step of enable, disable, uninstall and restore.

#include <utility>

#include "common/win32.h"

namespace cmr {

class StepObserver {
 public:
  virtual ~StepObserver() = default;
  // Before the step: a non-zero Win32 code is returned as the step's result and the step does
  // not run.
  virtual DWORD BeforeStep(const wchar_t* step) = 0;
  // After the step ran, whatever its result.
  virtual void AfterStep(const wchar_t* step) = 0;
};

// Null (the shipped state) removes the observer.
void SetStepObserver(StepObserver* observer) noexcept;
[[nodiscard]] StepObserver* CurrentStepObserver() noexcept;

// Runs `change` (returning a Win32 code, LSTATUS or DWORD) as the step `name`.
template <typename Change>
DWORD RunPersistentStep(const wchar_t* name, Change&& change) {
  StepObserver* observer = CurrentStepObserver();
  if (observer != nullptr) {
    if (const DWORD refused = observer->BeforeStep(name); refused != ERROR_SUCCESS) return refused;
  }
  const DWORD result = static_cast<DWORD>(std::forward<Change>(change)());
  if (observer != nullptr) observer->AfterStep(name);
  return result;
}

}  // namespace cmr

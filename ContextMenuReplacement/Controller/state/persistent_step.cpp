#include "state/persistent_step.h"

#include <atomic>

namespace cmr {

namespace {
std::atomic<StepObserver*> g_observer{nullptr};
}  // namespace

void SetStepObserver(StepObserver* observer) noexcept {
  g_observer.store(observer);
}

StepObserver* CurrentStepObserver() noexcept {
  return g_observer.load();
}

}  // namespace cmr

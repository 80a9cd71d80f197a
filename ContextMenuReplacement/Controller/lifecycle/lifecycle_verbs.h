#pragma once
// The verbs that switch the feature on and off for the current user.
//
// The ordering rule every change follows: nothing persistent changes before the change that
// undoes it is recorded. `enable` with the classic strategy records the prior preference in the
// state, arms the boot-time restore, and only then writes the override; a failed write, or a
// verification that does not see what was written, is undone at once through the restore.

#include "state/lifecycle_state.h"

namespace cmr {

struct EnableOptions {
  bool yes = false;
  bool force = false;
  SuppressionStrategy strategy = SuppressionStrategy::classic;
  bool restart = true;
};

// 0 enabled, 1 failure, 2 not confirmed (only the disclosure was printed), 3 refused by the
// restart-loop guard, or the Hook enrolment's own non-zero result.
int RunEnableVerb(const EnableOptions& options);
// The result of the "shutdown" command sent to the Hooks; the preference is restored and the
// feature recorded off whatever that result is. Never restarts Explorer.
int RunDisableVerb();
// 0, or 1 when classic mode is still in force afterwards.
int RunUninstallVerb();

}  // namespace cmr

#pragma once
// The repair run: brings the published configuration, the published custom model and the Hook
// in Explorer back in line with what the user has switched on. The installer runs it after an
// update and Windows at logon, so it stands aside while the installer is at work and changes
// nothing for a user who has the feature off in Settings.
//
// Order: installer gate, Settings gate, configuration, custom model, then Explorer. Each step
// that fails ends the run with its own line; what an earlier step published stays published.

namespace cmr {

struct ReconcileOptions {
  bool force = false;         // passed to enable: past the restart-loop guard
  bool allowRestart = false;  // a plain reconcile never restarts Explorer
};

// 0 done or nothing to do, 1 failure, 1618 installer at work, or the result of the enable,
// inject or replacement-mode step it ends with.
int RunReconcileVerb(const ReconcileOptions& options);

}  // namespace cmr

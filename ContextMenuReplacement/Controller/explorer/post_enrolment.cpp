#include "explorer/post_enrolment.h"

#include "common/console.h"
#include "explorer/hook_channel.h"
#include "state/lifecycle_state.h"

namespace cmr {

int PostEnrolment(DWORD processId, const EnrolmentResend& resend) {
  if (resend.refusalArmed) {
    PrintLine(L"");
    if (SendCommand(hook_command::kSuppression, L"activation refusal", 1, processId) != 0) {
      PrintLine(L"Could not arm activation refusal; the feature would be silently inert.");
      return 1;
    }
    PrintLine(L"Refusal is per view, so it affects windows opened from now on.");
  }
  if (resend.replacementMode && *resend.replacementMode != 0) {
    PrintLine(L"");
    if (SendCommand(hook_command::kReplacementMode, L"replacement mode (resend)",
                    static_cast<intptr_t>(*resend.replacementMode), processId) != 0) {
      PrintLine(L"Could not resend the replacement mode; newly enrolled processes would be inert.");
      return 1;
    }
  }
  return 0;
}

int PostEnrolment(DWORD processId) {
  const LifecycleState state = ReadState();
  EnrolmentResend resend;
  resend.refusalArmed =
      state.featureEnabled &&
      state.suppressionStrategy == static_cast<uint32_t>(SuppressionStrategy::refusal);
  resend.replacementMode = ReadLastReplacementMode();
  return PostEnrolment(processId, resend);
}

}  // namespace cmr

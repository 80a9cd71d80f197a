#pragma once
// A Hook that enrols after the lifecycle armed refusal or chose a replacement mode starts with
// neither: the controller brings it up to what the lifecycle state records.

#include <optional>

#include "common/win32.h"

namespace cmr {

// What the post-enrolment step resends, as read from the lifecycle state.
struct EnrolmentResend {
  bool refusalArmed = false;             // feature enabled with the activation-refusal strategy
  std::optional<DWORD> replacementMode;  // LastReplacementMode when stored as a REG_DWORD
};

// Brings newly enrolled Hooks of `processId` (0: all) up to the recorded modes; 0 or 1.
int PostEnrolment(DWORD processId, const EnrolmentResend& resend);
// The same, with what the lifecycle state records.
int PostEnrolment(DWORD processId);

}  // namespace cmr

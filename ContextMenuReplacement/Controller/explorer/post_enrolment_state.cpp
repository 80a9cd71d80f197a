#include "explorer/hook_channel.h"

namespace cmr {

// Reads what the post-enrolment step resends from the lifecycle state record.
int PostEnrolment(DWORD processId) {
  // Interim: the lifecycle state record is not readable from this folder yet, so nothing is
  // resent. Replaced by the state record's reader when it lands.
  return PostEnrolment(processId, EnrolmentResend{});
}

}  // namespace cmr

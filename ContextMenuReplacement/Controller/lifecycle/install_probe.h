#pragma once
// `install`: the capability probe. It changes nothing; it reports whether this machine has the
// shell windows the Hook serves and which suppression strategies could be used.

namespace cmr {

// 0 ready, 1 not ready.
int RunInstallVerb();

}  // namespace cmr

#pragma once

namespace cmr {

// Attaches to the parent's console when standard output is not usable.
void AttachParentConsoleIfNeeded();

// Everything wmain does after console attachment: the self-check verbs, the log, dispatch.
// Returns the process exit code.
int RunController(int argc, wchar_t** argv);

}  // namespace cmr

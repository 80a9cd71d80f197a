#pragma once

#include "cli/verb_options.h"

namespace cmr {

// config <init|path|check|validate|publish|watch|status> [file] [--json]; returns the exit code.
int RunConfigVerb(const ConfigArguments& arguments);

}  // namespace cmr

#pragma once

#include "cli/verb_options.h"

namespace cmr {

// custom-model <action> [arguments...] [--json]; returns the exit code.
int RunCustomModelVerb(const CustomModelArguments& arguments);

}  // namespace cmr

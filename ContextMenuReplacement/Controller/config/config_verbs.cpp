#include "config/config_verbs.h"

#include "cli/verb_table.h"

namespace cmr {

int RunConfigVerb(const ConfigArguments&) { return ReportUnavailable(L"config"); }

}  // namespace cmr

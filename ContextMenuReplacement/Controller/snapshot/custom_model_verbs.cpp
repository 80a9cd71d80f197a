#include "snapshot/custom_model_verbs.h"

#include "cli/verb_table.h"

namespace cmr {

int RunCustomModelVerb(const CustomModelArguments&) { return ReportUnavailable(L"custom-model"); }

}  // namespace cmr

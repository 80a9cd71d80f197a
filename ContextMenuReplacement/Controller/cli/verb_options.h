#pragma once
// Option records that the dispatcher builds for the verb handlers, and the option loops that
// fill them. The loops are pure so that every edge of the command line can be tested.

#include <string>
#include <vector>

#include "config/config_verbs.h"
#include "lifecycle/lifecycle_verbs.h"
#include "lifecycle/reconcile.h"
#include "snapshot/custom_model_verbs.h"

namespace cmr {

// Each returns the dispatcher's message for a bad command line, or an empty string when the
// options were read. `args` are the arguments after the verb (argv[2..]).
[[nodiscard]] std::wstring ParseEnableOptions(const std::vector<std::wstring>& args,
                                              EnableOptions& options);
[[nodiscard]] std::wstring ParseReconcileOptions(const std::vector<std::wstring>& args,
                                                 ReconcileOptions& options);
[[nodiscard]] std::wstring ParseConfigArguments(const std::vector<std::wstring>& args,
                                                ConfigArguments& parsed);
[[nodiscard]] std::wstring ParseCustomModelArguments(const std::vector<std::wstring>& args,
                                                     CustomModelArguments& parsed);

}  // namespace cmr

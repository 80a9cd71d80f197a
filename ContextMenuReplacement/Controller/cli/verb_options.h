#pragma once
// Option records that the dispatcher builds for the verb handlers, and the option loops that
// fill them. The loops are pure so that every edge of the command line can be tested.

#include <string>
#include <vector>

#include "common/status.h"
#include "config/config_verbs.h"
#include "lifecycle/lifecycle_verbs.h"
#include "lifecycle/reconcile.h"
#include "snapshot/custom_model_verbs.h"

namespace cmr {

// Each fails with the dispatcher's message for a bad command line, line feed included. `args`
// are the arguments after the verb (argv[2..]).
[[nodiscard]] Status ParseEnableOptions(const std::vector<std::wstring>& args,
                                        EnableOptions& options);
[[nodiscard]] Status ParseReconcileOptions(const std::vector<std::wstring>& args,
                                           ReconcileOptions& options);
[[nodiscard]] Status ParseConfigArguments(const std::vector<std::wstring>& args,
                                          ConfigArguments& parsed);
[[nodiscard]] Status ParseCustomModelArguments(const std::vector<std::wstring>& args,
                                               CustomModelArguments& parsed);

}  // namespace cmr

#pragma once
// The custom-model actions around the user's overlay: publish-user, validate-user, reset and
// prepare-reset. The reset actions find the overlay at its default path in the settings
// folder ("Context menu layout overrides.json").

#include <string>

#include "snapshot/custom_model_verbs.h"
#include "snapshot/publish_pipeline.h"

namespace cmr {

// Prints the refusals: "ERROR: %s" for a fatal one, "  error:   %s" for the documents' faults.
void PrintPipelineErrors(const ModelPipelineResult& result);
// What the validate and publish actions print (the one-line JSON result with `json`); each
// returns the action's exit code.
int ReportValidation(const ModelPipelineResult& result, bool json);
int ReportPublication(const ModelPipelineResult& result, bool json);

int PublishUserAction(const CustomModelArguments& args);
int ValidateUserAction(const CustomModelArguments& args);
int ResetAction(const CustomModelArguments& args);
int PrepareResetAction(const CustomModelArguments& args);

}  // namespace cmr

#pragma once
// The custom-model actions around the user's overlay: publish-user, validate-user, reset and
// prepare-reset. The reset actions find the overlay at its default path in the settings
// folder ("Context menu layout overrides.json").

#include <string>

#include "snapshot/custom_model_verbs.h"
#include "snapshot/publish_pipeline.h"

namespace cmr {

// The one-line JSON result of the publish and validate actions.
[[nodiscard]] std::wstring PipelineResultJson(const ModelPipelineResult& result);
// Prints the refusals: "ERROR: %s" for a fatal one, "  error:   %s" for the documents' faults.
void PrintPipelineErrors(const ModelPipelineResult& result);

int PublishUserAction(const CustomModelArguments& args);
int ValidateUserAction(const CustomModelArguments& args);
int ResetAction(const CustomModelArguments& args);
int PrepareResetAction(const CustomModelArguments& args);

}  // namespace cmr

#pragma once
// The transaction around the custom model: read the schema and the documents, validate,
// flatten inheritance, parse, compile and, when asked, publish the snapshot. Every stage stops
// at its first refusal; nothing is written unless every stage before publication succeeded.
//
// The baseline-only road exists today. The overlay merge and the resets extend the same
// request and result: an overlay path in the request, merge steps between validation and
// flattening, and the reset rollbacks around PublishBaseline.

#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "common/status.h"
#include "common/text.h"
#include "snapshot/custom_model_snapshot.h"

namespace cmr {

struct ModelPipelineResult {
  bool published = false;
  uint32_t version = 0;  // the published version; 0 when nothing was published
  size_t layoutCount = 0;
  size_t nodeCount = 0;
  size_t imageBytes = 0;
  // Empty on success. Otherwise the first refusal; `fatal` says it was not the documents'
  // fault (a file that could not be read or a publication that could not be written).
  MessageList errors;
  bool fatal = false;
};

// A result holding the one refusal `message`; `fatal` as in ModelPipelineResult.
[[nodiscard]] ModelPipelineResult Refused(std::wstring message, bool fatal);
[[nodiscard]] ModelPipelineResult Refused(const Status& failure, bool fatal);

// Parses a schema, baseline or overlay read from `path`. A failure is logged with the path, the
// offset and RapidJSON's reason, for the caller's fixed sentence says neither.
[[nodiscard]] bool ParseModelFile(const std::wstring& path, std::string_view text,
                                  rapidjson::Document& document);

// Logs where the validator found the baseline at `baselinePath` at fault (`violation` as
// SchemaViolation gives it), which the baseline-alone refusal does not print.
void LogBaselineViolation(const std::wstring& baselinePath, const Status& violation);

// Reads, validates, flattens, parses and compiles the baseline alone into `compiled`. The
// result carries the counts, or the refusal (then `compiled` is unspecified). With `publishing`
// set the icons of user commands are extracted into the icon cache first; without it nothing is
// written.
[[nodiscard]] ModelPipelineResult CompileBaseline(const std::wstring& schemaPath,
                                                  const std::wstring& baselinePath,
                                                  CompiledCustomModel& compiled, bool publishing);

// CompileBaseline, then with `publish` set the publication under the next version; with it
// clear nothing is written and no version is taken.
[[nodiscard]] ModelPipelineResult PublishBaseline(const std::wstring& schemaPath,
                                                  const std::wstring& baselinePath, bool publish);

}  // namespace cmr

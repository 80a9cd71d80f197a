#include "snapshot/publish_pipeline.h"

#include <fmt/xchar.h>

#include "common/file_io.h"
#include "common/json_text.h"
#include "common/log.h"
#include "model/layout_inheritance.h"
#include "model/model_document.h"
#include "snapshot/custom_model_publisher.h"
#include "snapshot/user_icons.h"

namespace cmr {

ModelPipelineResult Refused(std::wstring message, bool fatal) {
  ModelPipelineResult result;
  result.errors.push_back(std::move(message));
  result.fatal = fatal;
  return result;
}

ModelPipelineResult Refused(const Status& failure, bool fatal) {
  return Refused(failure.message(), fatal);
}

bool ParseModelFile(const std::wstring& path, std::string_view text,
                    rapidjson::Document& document) {
  JsonParseFailure failure;
  if (ParseJsonText(text, false, document, failure)) return true;
  WriteLogLine(LogLevel::error,
               fmt::format(L"[custom-model] '{}' is not valid JSON at offset {}: {}", path,
                           failure.offset, failure.description));
  return false;
}

void LogBaselineViolation(const std::wstring& baselinePath, const Status& violation) {
  WriteLogLine(LogLevel::error, fmt::format(L"[custom-model] The baseline '{}' does not satisfy "
                                            L"custom-menu.schema.json: {}",
                                            baselinePath, violation.message()));
}

ModelPipelineResult CompileBaseline(const std::wstring& schemaPath,
                                    const std::wstring& baselinePath, CompiledCustomModel& compiled,
                                    bool publishing) {
  const Result<std::string> schemaText = ReadWholeFile(schemaPath);
  const Result<std::string> baselineText = ReadWholeFile(baselinePath);
  if (!schemaText || !baselineText) {
    // The sentence is the one its callers know; which file and why goes to the log.
    WriteLogLine(LogLevel::error,
                 L"[custom-model] " + (!schemaText ? schemaText : baselineText).message());
    return Refused(L"The schema or baseline file could not be read.", true);
  }
  rapidjson::Document schema, baseline;
  if (!ParseModelFile(schemaPath, schemaText.value(), schema) ||
      !ParseModelFile(baselinePath, baselineText.value(), baseline)) {
    return Refused(L"The schema or baseline is not valid JSON.", false);
  }
  if (Status problem = CheckSchema(schema); !problem) {
    WriteLogLine(LogLevel::error, fmt::format(L"[custom-model] Refusing the schema '{}': {}",
                                              schemaPath, problem.message()));
    return Refused(problem, false);
  }
  // The schema first: it states what a document must hold, so a baseline without
  // "document_kind" hears what the schema says about it. The sentence is the one its callers
  // know; where the validator found the fault goes to the log.
  if (Status violation = SchemaViolation(schema, baseline); !violation) {
    LogBaselineViolation(baselinePath, violation);
    return Refused(L"The baseline does not satisfy custom-menu.schema.json.", false);
  }
  DocumentHeader header;
  if (Status error = ReadDocumentHeader(baseline, header); !error) {
    return Refused(error.message(), false);
  }
  if (Status error = RequireBaselineDocument(header); !error) {
    return Refused(error.message(), false);
  }
  if (Status error = FlattenLayouts(baseline); !error) {
    return Refused(error.message(), false);
  }
  ModelDocument model;
  if (Status error = ParseModelDocument(baseline, model); !error) {
    return Refused(error.message(), false);
  }
  // The Hook draws a user command's icon from the cache, never from the program itself; a
  // validation writes nothing, so only a publication fills it, once it knows it can go on.
  if (publishing) {
    if (Status next = CheckNextCustomModelVersion(); !next) return Refused(next, true);
    CacheUserCommandIcons(model);
  }
  compiled = CompileCustomModel(model);
  if (compiled.layouts.empty()) {
    return Refused(L"The baseline has no layouts, so the published model would claim no context.",
                   false);
  }
  ModelPipelineResult result;
  result.layoutCount = compiled.layouts.size();
  result.nodeCount = compiled.nodes.size();
  result.imageBytes = static_cast<size_t>(CustomModelImageSize(compiled));
  if (result.imageBytes > kCustomModelMaxBytes) {
    return Refused(L"The custom model snapshot exceeded its size limit.", false);
  }
  return result;
}

ModelPipelineResult PublishBaseline(const std::wstring& schemaPath,
                                    const std::wstring& baselinePath, bool publish) {
  CompiledCustomModel compiled;
  ModelPipelineResult result = CompileBaseline(schemaPath, baselinePath, compiled, publish);
  if (!result.errors.empty() || !publish) return result;
  const Result<uint32_t> published = PublishCustomModel(compiled);
  if (!published) {
    WriteLogLine(LogLevel::error, L"[custom-model] Publication failed: " + published.message());
    return Refused(published.message(), true);
  }
  result.published = true;
  result.version = published.value();
  const uint32_t version = result.version;
  WriteLogLine(LogLevel::info,
               fmt::format(L"[custom-model] Published custom model version {} ({} bytes): {} "
                           L"layout(s), {} node(s).",
                           version, result.imageBytes, result.layoutCount, result.nodeCount));
  return result;
}

}  // namespace cmr

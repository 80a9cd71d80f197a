#include "snapshot/overlay_pipeline.h"

#include <fmt/xchar.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include "common/json_text.h"
#include "common/log.h"
#include "model/layout_inheritance.h"
#include "model/model_document.h"
#include "model/overlay_merge.h"
#include "snapshot/custom_model_publisher.h"
#include "snapshot/overlay_staging.h"
#include "snapshot/user_icons.h"

namespace cmr {
std::string PrettyOverlayText(const rapidjson::Value& document) {
  rapidjson::StringBuffer buffer;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
  writer.SetIndent(' ', 2);
  document.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
}

Status MergeModelDocuments(const rapidjson::Document& schema, rapidjson::Document& merged,
                           rapidjson::Document* overlay, ModelDocument& model, bool& restamped) {
  restamped = false;
  if (Status error = ValidateAgainstSchema(schema, merged, DocumentKind::baseline); !error) {
    return error;
  }
  if (overlay != nullptr) {
    if (Status error = ValidateAgainstSchema(schema, *overlay, DocumentKind::overlay); !error) {
      return error;
    }
  }
  DocumentHeader header;
  if (Status error = ReadDocumentHeader(merged, header); !error) return error;
  if (Status error = RequireBaselineDocument(header); !error) return error;
  if (overlay != nullptr) {
    if (Status status = VetOverlay(header, *overlay, restamped); !status) return status;
    if (Status status = MergeOverlay(merged, *overlay); !status) return status;
  } else if (Status error = FlattenLayouts(merged); !error) {
    return error;
  }
  return ParseModelDocument(merged, model);
}

namespace {

struct Compiled {
  CompiledCustomModel model;
  std::optional<std::string> restampedOverlay;  // the text to save back, when migrated
  std::string originalOverlay;                  // the overlay's bytes as they were read
};

// Everything up to the compiled model; nothing is written but, when publishing, the icon cache.
ModelPipelineResult Compile(const ModelSources& sources, bool publish, FileOperations& files,
                            Compiled& out) {
  const bool withOverlay = !sources.overlayPath.empty();
  std::string schemaText, baselineText, overlayText;
  for (auto [path, text] : {std::pair{&sources.schemaPath, &schemaText},
                            std::pair{&sources.baselinePath, &baselineText},
                            std::pair{&sources.overlayPath, &overlayText}}) {
    if (path->empty()) continue;
    Result<std::optional<std::string>> read = files.Read(*path);
    if (!read || !read.value()) {
      // The sentence is the one its callers know; which file and why goes to the log.
      WriteLogLine(LogLevel::error,
                   L"[custom-model] Could not read '" + *path + L"'. " + read.message());
      return Refused(withOverlay ? L"The schema, baseline or overlay file could not be read."
                                 : L"The schema or baseline file could not be read.",
                     true);
    }
    *text = std::move(*read.value());
  }
  rapidjson::Document schema, merged, overlay;
  JsonParseFailure failure;
  if (!ParseJsonText(schemaText, false, schema, failure) ||
      !ParseJsonText(baselineText, false, merged, failure) ||
      (withOverlay && !ParseJsonText(overlayText, false, overlay, failure))) {
    return Refused(withOverlay ? L"The schema, baseline or overlay is not valid JSON."
                               : L"The schema or baseline is not valid JSON.",
                   false);
  }
  ModelDocument model;
  bool restamped = false;
  if (Status status =
          MergeModelDocuments(schema, merged, withOverlay ? &overlay : nullptr, model, restamped);
      !status) {
    return Refused(status, false);
  }
  if (restamped) {
    out.restampedOverlay = PrettyOverlayText(overlay);
    out.originalOverlay = overlayText;
  }
  // The icon cache is written only for a publication: validation writes nothing.
  if (publish) CacheUserCommandIcons(model);
  out.model = CompileCustomModel(model);
  ModelPipelineResult result;
  result.layoutCount = out.model.layouts.size();
  result.nodeCount = out.model.nodes.size();
  result.imageBytes = static_cast<size_t>(CustomModelImageSize(out.model));
  if (result.imageBytes > kCustomModelMaxBytes) {
    return Refused(L"The custom model snapshot exceeded its size limit.", false);
  }
  return result;
}

// PublishWithOverlay inside a transaction that has begun (or without one, for validation).
ModelPipelineResult Publish(const ModelSources& sources, bool publish, FileOperations& files) {
  Compiled compiled;
  ModelPipelineResult result = Compile(sources, publish, files, compiled);
  if (!result.errors.empty() || !publish) return result;
  if (compiled.restampedOverlay) {
    if (Status status = files.WriteAtomically(sources.overlayPath, *compiled.restampedOverlay);
        !status) {
      return Refused(status, true);
    }
    WriteLogLine(LogLevel::info,
                 L"[custom-model] The overlay from the predecessor release was re-stamped.");
  }
  Result<uint32_t> version = PublishCustomModel(compiled.model, files);
  if (!version) {
    WriteLogLine(LogLevel::error, L"[custom-model] Publication failed: " + version.message());
    // A failed publication leaves the saved state as it was, the overlay's stamp included.
    if (compiled.restampedOverlay &&
        !files.WriteAtomically(sources.overlayPath, compiled.originalOverlay)) {
      WriteLogLine(LogLevel::error,
                   L"[custom-model] The re-stamped overlay could not be put back as it was.");
    }
    return Refused(version.status(), true);
  }
  result.published = true;
  result.version = version.value();
  WriteLogLine(
      LogLevel::info,
      fmt::format(L"[custom-model] Published custom model version {} ({} bytes): {} "
                  L"layout(s), {} node(s).",
                  result.version, result.imageBytes, result.layoutCount, result.nodeCount));
  return result;
}

// Puts the kept overlay bytes back (or removes any overlay when there was none) and republishes
// what was in effect before; appends the outcome's message to `result`.
void RollBack(const ModelSources& sources, const std::optional<std::string>& kept,
              FileOperations& files, ModelPipelineResult& result) {
  const Status restored =
      kept ? files.WriteAtomically(sources.overlayPath, *kept) : files.Delete(sources.overlayPath);
  if (!restored) {
    result.errors.push_back(
        L"Restoring the previous saved overlay also failed; restart will retry the saved state.");
    return;
  }
  ModelSources previous = sources;
  if (!kept) previous.overlayPath.clear();
  const ModelPipelineResult republished = Publish(previous, true, files);
  if (!republished.published) {
    result.errors.push_back(
        L"Previous saved state restored, but republishing it failed; restart reconciliation "
        L"will retry it.");
  }
}

}  // namespace

ModelPipelineResult PublishWithOverlay(const ModelSources& sources, bool publish,
                                       FileOperations& files) {
  // Validation writes nothing; a publication may save the overlay back, so it stages under the
  // lock like every other writer of the overlay's folder.
  if (!publish) return Publish(sources, false, files);
  OverlayTransaction transaction;
  if (Status begun = transaction.Begin(sources.overlayPath, files); !begun) {
    return Refused(begun, true);
  }
  return Publish(sources, true, files);
}

ModelPipelineResult ResetOverlay(const ModelSources& sources,
                                 const std::optional<std::string>& candidate, FileOperations& files,
                                 bool* overlayExisted) {
  OverlayTransaction transaction;
  if (Status begun = transaction.Begin(sources.overlayPath, files); !begun) {
    return Refused(begun, true);
  }
  Result<std::optional<std::string>> previous = files.Read(sources.overlayPath);
  if (!previous) {
    WriteLogLine(LogLevel::error, L"[custom-model] " + previous.message());
    return Refused(L"Could not read the previous overlay.", true);
  }
  const std::optional<std::string> kept = std::move(previous.value());
  if (overlayExisted != nullptr) *overlayExisted = kept.has_value();

  ModelSources next = sources;
  if (candidate) {
    // The candidate is judged as a file beside the overlay, exactly as it will be read once
    // it is in place; the staged file goes whatever the verdict.
    next.overlayPath = CandidateOverlayPath(sources.overlayPath);
    if (Status status = files.WriteAtomically(next.overlayPath, *candidate); !status) {
      return Refused(status, true);
    }
    ModelPipelineResult checked = Publish(next, false, files);
    if (!files.Delete(next.overlayPath)) {
      // Nothing has changed yet; going on would leave the staged file behind for good.
      return Refused(fmt::format(L"Could not remove the staged candidate '{}'.", next.overlayPath),
                     true);
    }
    if (!checked.errors.empty()) return checked;
    if (Status status = files.WriteAtomically(sources.overlayPath, *candidate); !status) {
      return Refused(status, true);
    }
    next.overlayPath = sources.overlayPath;
  } else {
    next.overlayPath.clear();
    ModelPipelineResult checked = Publish(next, false, files);
    if (!checked.errors.empty()) return checked;
    if (!files.Delete(sources.overlayPath)) {
      return Refused(L"Could not remove the overlay; the saved state is unchanged.", true);
    }
  }

  ModelPipelineResult result = Publish(next, true, files);
  if (!result.published) {
    result.fatal = true;
    RollBack(sources, kept, files, result);
  }
  return result;
}

}  // namespace cmr

#include "snapshot/overlay_verbs.h"

#include <fmt/xchar.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "common/console.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/json_text.h"
#include "snapshot/overlay_pipeline.h"
#include "snapshot/overlay_staging.h"
#include "snapshot/overlay_target_filter.h"
#include "snapshot/target_matching.h"

namespace cmr {
namespace {

bool OverlayArguments(const CustomModelArguments& args) {
  if (args.arguments.size() == 3) return true;
  PrintLine(L"custom-model %s needs <schema> <baseline> <overlay>.", args.action);
  return false;
}

// reset and prepare-reset: <schema> <baseline> [target].
bool ResetArguments(const CustomModelArguments& args) {
  if (args.arguments.empty()) {
    PrintLine(L"custom-model reset needs <schema> <baseline> [target] in this pass.");
    return false;
  }
  if (args.arguments.size() < 2 || args.arguments.size() > 3) {
    PrintLine(L"custom-model reset usage: custom-model reset [<schema> <baseline> [target]]");
    return false;
  }
  return true;
}

std::string CompactText(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

// What a target-scoped reset would leave of the overlay.
struct ScopedReset {
  enum class Outcome { noOverlay, unchanged, filtered } outcome = Outcome::noOverlay;
  rapidjson::Document overlay;
};

// Reads and filters the overlay for `text`; prints the refusal and returns false on failure.
bool FilterForTarget(const CustomModelArguments& args, const std::wstring& text, ScopedReset& out) {
  MenuTarget target;
  if (Status parsed = ParseTarget(text, target); !parsed) {
    PrintLine(L"%s", parsed.message());
    return false;
  }
  const Result<std::optional<std::string>> overlayText = ReadFileIfPresent(OverlayPath(L""));
  if (overlayText && !overlayText.value()) return true;
  JsonParseFailure failure;
  if (!overlayText || !ParseJsonText(*overlayText.value(), false, out.overlay, failure)) {
    PrintLine(L"The overlay file is not valid JSON; cannot perform a target-scoped reset.");
    return false;
  }
  const Result<std::string> baselineText = ReadWholeFile(args.arguments[1]);
  rapidjson::Document baseline;
  Result<size_t> removed = Status::Failure(L"");
  if (baselineText && ParseJsonText(baselineText.value(), false, baseline, failure)) {
    removed = FilterOverlayForTarget(out.overlay, baseline, target);
  }
  if (!removed) {
    PrintLine(L"Could not filter the overlay for target '%s'.", text);
    return false;
  }
  out.outcome =
      removed.value() == 0 ? ScopedReset::Outcome::unchanged : ScopedReset::Outcome::filtered;
  return true;
}

}  // namespace

namespace {

std::wstring PipelineResultJson(const ModelPipelineResult& result) {
  return fmt::format(
      L"{{\"published\":{},\"version\":{},\"layoutCount\":{},\"nodeCount\":{},\"errors\":{}}}",
      result.published ? L"true" : L"false", result.version, result.layoutCount, result.nodeCount,
      JsonStringArray(result.errors));
}

}  // namespace

void PrintPipelineErrors(const ModelPipelineResult& result) {
  for (const std::wstring& error : result.errors) {
    if (result.fatal) {
      Print(L"ERROR: %s\n", error);
    } else {
      PrintLine(L"  error:   %s", error);
    }
  }
}

int ReportValidation(const ModelPipelineResult& result, bool json) {
  if (json) {
    Print(L"%s\n", PipelineResultJson(result));
    return result.errors.empty() ? 0 : 1;
  }
  for (const std::wstring& error : result.errors) PrintLine(L"  error:   %s", error);
  if (!result.errors.empty()) {
    PrintLine(L"Not valid; nothing was published.");
    return 1;
  }
  PrintLine(L"Valid. %zu layout(s), %zu node(s). Nothing was published.", result.layoutCount,
            result.nodeCount);
  return 0;
}

int ReportPublication(const ModelPipelineResult& result, bool json) {
  if (json) {
    Print(L"%s\n", PipelineResultJson(result));
    return result.published ? 0 : 1;
  }
  if (!result.published) {
    PrintPipelineErrors(result);
    PrintLine(L"Nothing was published. The previously published custom model is still in effect.");
    return 1;
  }
  PrintLine(L"Published custom model version %lu: %zu layout(s), %zu node(s).", result.version,
            result.layoutCount, result.nodeCount);
  return 0;
}

int PublishUserAction(const CustomModelArguments& args) {
  if (!OverlayArguments(args)) return 1;
  const ModelPipelineResult result = PublishWithOverlay(
      {args.arguments[0], args.arguments[1], args.arguments[2]}, true, SystemFiles());
  return ReportPublication(result, args.json);
}

int ValidateUserAction(const CustomModelArguments& args) {
  if (!OverlayArguments(args)) return 1;
  const ModelPipelineResult result = PublishWithOverlay(
      {args.arguments[0], args.arguments[1], args.arguments[2]}, false, SystemFiles());
  return ReportValidation(result, args.json);
}

int ResetAction(const CustomModelArguments& args) {
  if (!ResetArguments(args)) return 1;
  const ModelSources sources{args.arguments[0], args.arguments[1], OverlayPath(L"")};
  if (args.arguments.size() == 2) {
    bool existed = false;
    const ModelPipelineResult result = ResetOverlay(sources, std::nullopt, SystemFiles(), &existed);
    if (!result.published) {
      PrintPipelineErrors(result);
      return 1;
    }
    PrintLine(
        L"%s the overlay and republished the baseline: version %lu, %zu layout(s), %zu "
        L"node(s).",
        existed ? L"Removed" : L"No overlay existed;", result.version, result.layoutCount,
        result.nodeCount);
    return 0;
  }
  const std::wstring& target = args.arguments[2];
  ScopedReset scoped;
  if (!FilterForTarget(args, target, scoped)) return 1;
  if (scoped.outcome == ScopedReset::Outcome::noOverlay) {
    PrintLine(L"No customizations exist for target '%s'.", target);
    return 0;
  }
  if (scoped.outcome == ScopedReset::Outcome::unchanged) {
    PrintLine(L"No customizations reference target '%s'; nothing to reset.", target);
    return 0;
  }
  const ModelPipelineResult result =
      ResetOverlay(sources, PrettyOverlayText(scoped.overlay), SystemFiles());
  if (!result.published) {
    PrintPipelineErrors(result);
    return 1;
  }
  PrintLine(L"Reset target '%s' and republished: version %lu, %zu layout(s), %zu node(s).", target,
            result.version, result.layoutCount, result.nodeCount);
  return 0;
}

int PrepareResetAction(const CustomModelArguments& args) {
  if (!ResetArguments(args)) return 1;
  // It writes nothing, but it is what Settings runs before a reset: the leftovers of killed
  // runs go now too. Its answer does not depend on that clean-up, so a busy lock is no refusal.
  OverlayTransaction transaction;
  (void)transaction.Begin(OverlayPath(L""), SystemFiles());
  if (args.arguments.size() == 2) {
    // The full reset leaves no overlay at all.
    Print(FileExists(OverlayPath(L"")) ? L"{\"overlay\":null}\n" : L"{\"unchanged\":true}\n");
    return 0;
  }
  ScopedReset scoped;
  if (!FilterForTarget(args, args.arguments[2], scoped)) return 1;
  if (scoped.outcome != ScopedReset::Outcome::filtered) {
    Print(L"{\"unchanged\":true}\n");
    return 0;
  }
  Print(L"{\"overlay\":%s}\n", FromUtf8(CompactText(scoped.overlay)));
  return 0;
}

}  // namespace cmr

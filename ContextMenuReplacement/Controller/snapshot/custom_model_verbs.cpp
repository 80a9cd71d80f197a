#include "snapshot/custom_model_verbs.h"

#include <fmt/xchar.h>

#include <string_view>
#include <vector>

#include "common/console.h"
#include "common/file_io.h"
#include "common/json_writer.h"
#include "snapshot/custom_model_publisher.h"
#include "snapshot/effective_tree.h"
#include "snapshot/overlay_verbs.h"
#include "snapshot/publish_pipeline.h"
#include "snapshot/target_matching.h"

namespace cmr {
namespace {

using Handler = int (*)(const CustomModelArguments&);

int Validate(const CustomModelArguments& args) {
  if (args.arguments.size() != 2) {
    PrintLine(L"custom-model validate needs <schema> <baseline>.");
    return 1;
  }
  const ModelPipelineResult result = PublishBaseline(args.arguments[0], args.arguments[1], false);
  return ReportValidation(result, args.json);
}

int Publish(const CustomModelArguments& args) {
  if (args.arguments.size() != 2) {
    PrintLine(L"custom-model publish needs <schema> <baseline>.");
    return 1;
  }
  const ModelPipelineResult result = PublishBaseline(args.arguments[0], args.arguments[1], true);
  return ReportPublication(result, args.json);
}

int Effective(const CustomModelArguments& args) {
  if (args.arguments.size() != 1) {
    PrintLine(L"custom-model effective needs <target>.");
    return 1;
  }
  const std::wstring& text = args.arguments[0];
  MenuTarget target;
  if (Status parsed = ParseTarget(text, target); !parsed) {
    PrintLine(L"%s", parsed.message());
    return 1;
  }
  const Result<std::string> control = ReadWholeFile(CustomModelControlPath());
  uint32_t version = 0;
  if (!control || !ReadCustomModelControl(control.value(), version)) {
    PrintLine(L"No compatible custom model has been published yet.");
    return 1;
  }
  const Result<std::string> image = ReadWholeFile(CustomModelSnapshotPath(version));
  CustomModelView view;
  if (!image || !AttachCustomModel(image->data(), image->size(), view)) {
    PrintLine(L"The published custom model snapshot is not readable.");
    return 1;
  }
  std::vector<LayoutMatchView> layouts;
  if (!ReadLayoutMatches(view, layouts)) {
    PrintLine(L"Corrupt layout record.");
    return 1;
  }
  // The raw scan: this verb reports what the layouts claim, without the namespace fallback.
  const MatchResult match = Match(layouts, target);
  if (match.status != MatchStatus::matched) {
    if (args.json) {
      Print(L"{\"target\":%s,\"matched\":false}\n", JsonQuote(text));
    } else {
      PrintLine(L"No layout matches target '%s'.", text);
    }
    return 0;
  }
  const std::wstring_view layoutId = view.Text(view.Layout(match.index).id);
  if (args.json) {
    Print(L"{\"target\":%s,\"matched\":true,\"layoutId\":%s,\"tree\":%s}\n", JsonQuote(text),
          JsonQuote(layoutId), EffectiveTreeJson(view, match.index));
  } else {
    PrintLine(L"Layout '%s' for target '%s':", layoutId, text);
    Print(L"%s", EffectiveTreeText(view, match.index));
  }
  return 0;
}

int Preview(const CustomModelArguments& args) {
  if (args.arguments.size() != 1) {
    PrintLine(L"custom-model preview needs <target>.");
    return 1;
  }
  MenuTarget target;
  if (Status parsed = ParseTarget(args.arguments[0], target); !parsed) {
    PrintLine(L"%s", parsed.message());
    return 1;
  }
  PrintLine(
      L"Synthetic live preview is not implemented. Use the editor preview or an actual "
      L"Explorer context menu.");
  return 1;
}

struct ActionRow {
  std::wstring_view word;
  Handler handler;
};

constexpr ActionRow kActions[] = {
    {L"validate", Validate},
    {L"publish", Publish},
    {L"publish-user", PublishUserAction},
    {L"validate-user", ValidateUserAction},
    {L"effective", Effective},
    {L"reset", ResetAction},
    {L"prepare-reset", PrepareResetAction},
    {L"preview", Preview},
};

}  // namespace

int RunCustomModelVerb(const CustomModelArguments& arguments) {
  for (const ActionRow& row : kActions) {
    if (arguments.action == row.word) return row.handler(arguments);
  }
  PrintLine(
      L"Unknown custom-model action '%s'. Use publish, publish-user, validate-user, "
      L"effective, reset, or preview.",
      arguments.action);
  return 1;
}

}  // namespace cmr

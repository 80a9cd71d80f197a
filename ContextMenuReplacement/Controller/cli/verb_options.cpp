#include "cli/verb_options.h"

#include "common/console.h"

namespace cmr {

Status ParseEnableOptions(const std::vector<std::wstring>& args, EnableOptions& options) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::wstring& word = args[i];
    if (word == L"--yes") {
      options.yes = true;
    } else if (word == L"--force") {
      options.force = true;
    } else if (word == L"--no-restart") {
      options.restart = false;
    } else if (word == L"--strategy" && i + 1 < args.size()) {
      const std::wstring& value = args[++i];
      if (value == L"classic") {
        options.strategy = SuppressionStrategy::classic;
      } else if (value == L"refusal") {
        options.strategy = SuppressionStrategy::refusal;
      } else {
        return Status::Failure(
            FormatConsoleText(L"Unknown strategy '%s'. Use classic or refusal.\n", value));
      }
    } else {
      return Status::Failure(FormatConsoleText(L"Unknown option '%s'.\n", word));
    }
  }
  return {};
}

Status ParseReconcileOptions(const std::vector<std::wstring>& args, ReconcileOptions& options) {
  for (const std::wstring& word : args) {
    if (word == L"--force") {
      options.force = true;
    } else if (word == L"--allow-restart") {
      options.allowRestart = true;
    } else {
      return Status::Failure(FormatConsoleText(L"Unknown reconcile option '%s'.\n", word));
    }
  }
  return {};
}

Status ParseConfigArguments(const std::vector<std::wstring>& args, ConfigArguments& parsed) {
  if (args.empty()) {
    return Status::Failure(
        L"config needs an action: init, path, check, validate, publish, watch, or status.\n");
  }
  parsed.action = args[0];
  bool haveFile = false;
  for (size_t i = 1; i < args.size(); ++i) {
    if (args[i] == L"--json") {
      parsed.json = true;
    } else if (!haveFile) {
      parsed.file = args[i];
      haveFile = true;
    } else {
      return Status::Failure(FormatConsoleText(L"Unexpected argument '%s'.\n", args[i]));
    }
  }
  return {};
}

Status ParseCustomModelArguments(const std::vector<std::wstring>& args,
                                 CustomModelArguments& parsed) {
  if (args.empty()) {
    return Status::Failure(
        L"custom-model needs an action: publish, publish-user, validate-user, effective, or "
        L"reset.\n");
  }
  parsed.action = args[0];
  for (size_t i = 1; i < args.size(); ++i) {
    if (args[i] == L"--json") {
      parsed.json = true;
    } else {
      parsed.arguments.push_back(args[i]);
    }
  }
  return {};
}

}  // namespace cmr

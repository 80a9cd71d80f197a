// The command-line front end as a caller sees it: bytes on the pipe and exit codes.

#include <gtest/gtest.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "tests/e2e/command_rows.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

TEST(CliE2e, DispatcherMessagesAndExitCodes) {
  const std::string usage = ReadBytes(FromUtf8(CMR_GOLDEN_DIR) + L"/usage.txt");
  const auto unknown = [&](const std::string& verb) {
    return "Unknown verb '" + verb + "'\n\n" + usage;
  };
  RunRows({
      {{}, usage, 1},
      // Verbs are matched exactly, whatever their case or script.
      {{L"Status"}, unknown("Status"), 1},
      {{L"St\u00e4ll-\u2713"}, unknown("St\xC3\xA4ll-\xE2\x9C\x93"), 1},
      // placement-contracts takes exactly two arguments; otherwise it is no verb at all.
      {{L"placement-contracts", L"schema.json"}, unknown("placement-contracts"), 1},
      {{L"placement-contracts", L"schema.json", L"fixtures", L"extra"},
       unknown("placement-contracts"),
       1},
      {{L"inject-dialog"}, "inject-dialog needs the dialog's window handle.\n", 1},
      {{L"reconcile", L"--force", L"--now"}, "Unknown reconcile option '--now'.\n", 1},
      {{L"suppress"}, "suppress needs a mode: off, classnotreg, or efail.\n", 1},
      {{L"context"}, "context needs a mode: off, log, or overlay.\n", 1},
      {{L"replacement"}, "replacement needs a mode: off, native, modern, or fail.\n", 1},
      {{L"config"},
       "config needs an action: init, path, check, validate, publish, watch, or status.\n",
       1},
      {{L"config", L"validate", L"a.json", L"b.json"}, "Unexpected argument 'b.json'.\n", 1},
      // "--json" may stand anywhere and any number of times; the one file reaches the handler.
      {{L"config", L"validate", L"--json", L"a.json", L"--json"},
       "config validate reads the settings file; it takes no path argument.\n",
       1},
      {{L"custom-model"},
       "custom-model needs an action: publish, publish-user, validate-user, effective, or "
       "reset.\n",
       1},
      {{L"enable", L"--strategy"}, "Unknown option '--strategy'.\n", 1},
      {{L"enable", L"--yes", L"--Force"}, "Unknown option '--Force'.\n", 1},
      {{L"enable", L"--strategy", L"Classic"},
       "Unknown strategy 'Classic'. Use classic or refusal.\n",
       1},
      // Only the word right after the verb selects JSON.
      // No Hook runs in these tests, so the text form ends in 1 after saying so.
      {{L"status", L"x", L"--json"}, "Context-menu preference\n", 1, true},
      {{L"status", L"--json", L"x"}, "{\"effectiveMode\":", 0, true},
      {{L"boot-restore"}, "", 0, true},
      {{L"restart-explorer"}, "", 1, true},
  });
}

// A file where the log folder belongs makes the folder impossible to create: the self-check
// verbs never open the log, every other verb says so and still runs.
TEST(CliE2e, SelfChecksRunWithoutTheLogAndALogFailureIsReported) {
  ResetUserData();
  (void)EnsureDirectories(JoinPath(ProductFolder(), L"Controller"));
  WriteBytes(JoinPath(ProductFolder(), L"Controller\\Logs"), "not a folder");
  RunRows({
      {{L"model-contracts", L"a", L"b"},
       "model-contracts needs a schema path, fixtures directory and at least one shipped "
       "baseline.\n",
       1},
      {{L"placement-contracts", L"schema.json", L"fixtures"},
       "The schema 'schema.json' could not be read.\n",
       1},
      {{L"suppress"},
       "Could not initialize logging; continuing with console output only.\n"
       "suppress needs a mode: off, classnotreg, or efail.\n",
       1},
  });
  ResetUserData();
}

}  // namespace
}  // namespace cmr::e2e

// The command-line front end as a caller sees it: bytes on the pipe and exit codes.

#include <gtest/gtest.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

std::string Usage() {
  return ReadBytes(FromUtf8(CMR_GOLDEN_DIR) + L"/usage.txt");
}

TEST(CliE2e, NoArgumentsPrintsUsageByteForByte) {
  const RunResult run = RunController({});
  EXPECT_EQ(run.exitCode, 1u);
  ASSERT_EQ(run.output, Usage());
  EXPECT_EQ(run.output.substr(0, 35), "ContextMenuReplacement.Controller\n\n");
}

TEST(CliE2e, UnknownAndDifferentlyCasedVerbs) {
  for (const std::wstring verb :
       {L"Status", L"frobnicate", L"CONFIG", L"--help", L"St\u00e4ll-\u2713"}) {
    const RunResult run = RunController({verb});
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.output, "Unknown verb '" + ToUtf8(verb) + "'\n\n" + Usage());
  }
}

struct DispatchCase {
  std::vector<std::wstring> args;
  std::string output;
  DWORD exitCode;
};

TEST(CliE2e, DispatcherMessagesAndExitCodes) {
  const DispatchCase cases[] = {
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
       "custom-model needs an action: publish, publish-user, validate-user, effective, or reset.\n",
       1},
      {{L"enable", L"--strategy"}, "Unknown option '--strategy'.\n", 1},
      {{L"enable", L"--yes", L"--Force"}, "Unknown option '--Force'.\n", 1},
      {{L"enable", L"--strategy", L"modern"},
       "Unknown strategy 'modern'. Use classic or refusal.\n",
       1},
      {{L"model-contracts", L"a", L"b"},
       "model-contracts needs a schema path, fixtures directory and at least one shipped "
       "baseline.\n",
       1},
      {{L"model-contracts"},
       "model-contracts needs a schema path, fixtures directory and at least one shipped "
       "baseline.\n",
       1},
  };
  for (const DispatchCase& c : cases) {
    const RunResult run = RunController(c.args);
    EXPECT_EQ(run.output, c.output) << ToUtf8(c.args[0]);
    EXPECT_EQ(run.exitCode, c.exitCode) << ToUtf8(c.args[0]);
  }
}

TEST(CliE2e, PlacementContractsIsStrictAboutItsArgumentCount) {
  for (const std::vector<std::wstring>& args :
       {std::vector<std::wstring>{L"placement-contracts", L"schema.json"},
        std::vector<std::wstring>{L"placement-contracts", L"schema.json", L"fixtures", L"extra"}}) {
    const RunResult run = RunController(args);
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.output, "Unknown verb 'placement-contracts'\n\n" + Usage());
  }
}

TEST(CliE2e, SelfCheckVerbsRunWithoutTheLog) {
  ResetUserData();
  (void)RunController({L"model-contracts", L"a", L"b"});
  (void)RunController({L"placement-contracts", L"schema.json", L"fixtures"});
  EXPECT_FALSE(DirectoryExists(JoinPath(ProductFolder(), L"Controller\\Logs")));
  // Every other verb opens the day's log, also one that ends in an argument error.
  (void)RunController({L"suppress"});
  EXPECT_TRUE(DirectoryExists(JoinPath(ProductFolder(), L"Controller\\Logs")));
}

TEST(CliE2e, OnlyPositionTwoSelectsJsonStatusAndBootRestoreAlwaysSucceeds) {
  const RunResult text = RunController({L"status", L"x", L"--json"});
  EXPECT_EQ(text.output.rfind("Context-menu preference\n", 0), 0u) << text.output;
  EXPECT_EQ(RunController({L"status", L"--json", L"x"}).output.rfind("{\"effectiveMode\":", 0), 0u);
  const RunResult boot = RunController({L"boot-restore"});
  EXPECT_EQ(boot.exitCode, 0u);
  EXPECT_EQ(RunController({L"restart-explorer"}).exitCode, 1u);
}

TEST(CliE2e, LogFailureIsReportedAndTheVerbStillRuns) {
  ResetUserData();
  // A file where the log folder belongs makes the folder impossible to create.
  (void)EnsureDirectories(JoinPath(ProductFolder(), L"Controller"));
  WriteBytes(JoinPath(ProductFolder(), L"Controller\\Logs"), "not a folder");
  const RunResult run = RunController({L"suppress"});
  EXPECT_EQ(run.output,
            "Could not initialize logging; continuing with console output only.\n"
            "suppress needs a mode: off, classnotreg, or efail.\n");
  EXPECT_EQ(run.exitCode, 1u);
  ResetUserData();
}

}  // namespace
}  // namespace cmr::e2e

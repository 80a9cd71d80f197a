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
  const std::string usage = Golden(L"usage.txt");
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
      // Only the word right after the verb selects JSON.
      // No Hook runs in these tests, so the text form ends in 1 after saying so.
      {{L"status", L"x", L"--json"}, "Context-menu preference\n", 1, true},
      {{L"status", L"--json", L"x"}, "{\"effectiveMode\":", 0, true},
      {{L"boot-restore"}, "", 0, true},
      {{L"restart-explorer"}, "", 1, true},
  });
  // Every other refusal of the dispatcher and of the verbs' own words.
  const std::string golden = Golden(L"dispatcher_refusals.txt");
  EXPECT_EQ(RunTranscript(golden), golden);
}

// A file where the log folder belongs makes the folder impossible to create: the self-check
// verbs never open the log, every other verb says so and still runs.
TEST(CliE2e, SelfChecksRunWithoutTheLogAndALogFailureIsReported) {
  ResetUserData();
  (void)EnsureDirectories(JoinPath(ProductFolder(), L"Controller"));
  WriteBytes(JoinPath(ProductFolder(), L"Controller\\Logs"), "not a folder");
  const std::string golden = Golden(L"without_the_log.txt");
  EXPECT_EQ(RunTranscript(golden), golden);
  ResetUserData();
}

}  // namespace
}  // namespace cmr::e2e

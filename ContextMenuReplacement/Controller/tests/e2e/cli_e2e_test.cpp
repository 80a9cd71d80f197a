// The command-line front end as a caller sees it: bytes on the pipe and exit codes.

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "tests/e2e/command_rows.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

TEST(CliE2e, DispatcherMessagesAndExitCodes) {
  const std::wstring golden = FromUtf8(CMR_GOLDEN_DIR);
  const std::string usage = ReadBytes(golden + L"/usage.txt");
  rapidjson::Document rows;
  rows.Parse<rapidjson::kParseCommentsFlag>(ReadBytes(golden + L"/dispatcher-rows.json").c_str());
  ASSERT_TRUE(rows.IsArray());
  std::vector<CommandRow> commands;
  for (const rapidjson::Value& row : rows.GetArray()) {
    CommandRow& command = commands.emplace_back();
    for (const auto& arg : row["args"].GetArray())
      command.args.push_back(FromUtf8(arg.GetString()));
    command.output =
        row.HasMember("usage") ? usage
        : row.HasMember("unknown")
            ? "Unknown verb '" + std::string(row["args"][0].GetString()) + "'\n\n" + usage
            : row["output"].GetString();
    command.exitCode = row["exit"].GetUint();
    command.outputStartsWith = row.HasMember("prefix");
  }
  RunRows(commands);
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

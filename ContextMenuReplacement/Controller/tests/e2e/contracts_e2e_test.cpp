// The two self-check suites on the staged install: every shipped fixture passes, a fixture whose
// expectation is wrong fails with a line saying why, and neither suite leaves anything behind.

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

const std::wstring kSchema = InstallFolder() + L"\\Schema\\custom-menu.schema.json";
const std::wstring kContent = InstallFolder() + L"\\Content\\";

// Every line but the last is "PASS  <name>"; the last counts them.
void ExpectAllPassed(const RunResult& run, size_t atLeast) {
  EXPECT_EQ(run.exitCode, 0u);
  const size_t passed = std::ranges::count(run.output, '\n') - 1;
  EXPECT_GE(passed, atLeast);
  const std::regex shape("(PASS  [^\n]+\n)+" + std::to_string(passed) + " passed, 0 failed\\.\n");
  EXPECT_TRUE(std::regex_match(run.output, shape)) << run.output;
}

TEST(ContractsE2e, ShippedFixturesPassAndNothingIsWritten) {
  ResetUserData();
  const RunResult model =
      RunController({L"model-contracts", kSchema, kContent + L"Contracts\\model",
                     kContent + L"Menus\\create-organize.baseline.json"});
  EXPECT_NE(model.output.find("PASS  shipped create-organize.baseline.json\n"), std::string::npos);
  ExpectAllPassed(model, 16);
  ExpectAllPassed(
      RunController({L"placement-contracts", kSchema, kContent + L"Contracts\\placement"}), 5);
  EXPECT_FALSE(DirectoryExists(ProductFolder()));
}

TEST(ContractsE2e, AWrongExpectationFailsWithItsReason) {
  const std::wstring folder = ScratchFolder(L"contracts");
  WriteBytes(
      JoinPath(folder, L"b-kind.json"),
      R"({"probe": "identity", "cases": [["windows:open", "windows"], ["windows:", "windows"]]})");
  WriteBytes(JoinPath(folder, L"a-refusal.json"),
             R"({"baseline": {"document_kind": "baseline", "layouts": [{"id": "l", "items": []}]},)"
             R"( "expect": {"refusal": "Layout 'l' is fine."}})");
  const std::pair<std::vector<std::wstring>, std::string> runs[] = {
      {{L"placement-contracts", kSchema, folder},
       "FAIL  a-refusal: refused with \"Layout 'l' does not inherit from another layout, so it "
       "must declare at least one item.\", expected \"Layout 'l' is fine.\"\n"
       "FAIL  b-kind: case 2: \"windows:\" gave [\"invalid\"], expected [\"windows\"]\n"
       "0 passed, 2 failed.\n"},
      {{L"model-contracts", kSchema, folder, L"missing.json"},
       "FAIL  shipped missing.json: 'missing.json' could not be read.\n"},
  };
  for (const auto& [args, output] : runs) {
    const RunResult result = RunController(args);
    EXPECT_EQ(result.exitCode, 1u);
    EXPECT_EQ(result.output.substr(0, output.size()), output);
  }
}

}  // namespace
}  // namespace cmr::e2e

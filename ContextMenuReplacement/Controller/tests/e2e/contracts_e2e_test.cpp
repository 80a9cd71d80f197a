// The two self-check suites on the staged install: every shipped fixture passes, a fixture whose
// expectation is wrong fails with a line saying why, and neither suite leaves anything behind.

#include <gtest/gtest.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

std::wstring Staged(const wchar_t* relative) {
  return JoinPath(InstallFolder(), relative);
}

const std::wstring kSchema = L"Schema\\custom-menu.schema.json";

// Every line but the last is "PASS  <name>"; the last counts them.
void ExpectAllPassed(const RunResult& run, size_t atLeast) {
  EXPECT_EQ(run.exitCode, 0u) << run.output;
  size_t passed = 0, start = 0;
  for (size_t end = run.output.find('\n'); end != std::string::npos;
       start = end + 1, end = run.output.find('\n', start)) {
    const std::string line = run.output.substr(start, end - start);
    if (line.rfind("PASS  ", 0) == 0) {
      ++passed;
    } else {
      EXPECT_EQ(line, std::to_string(passed) + " passed, 0 failed.");
      EXPECT_EQ(end + 1, run.output.size()) << "the summary is not the last line";
    }
  }
  EXPECT_GE(passed, atLeast) << run.output;
}

TEST(ContractsE2e, ShippedFixturesPassAndNothingIsWritten) {
  ResetUserData();
  const RunResult model = RunController({L"model-contracts", Staged(kSchema.c_str()),
                                         Staged(L"Content\\Contracts\\model"),
                                         Staged(L"Content\\Menus\\create-organize.baseline.json")});
  EXPECT_NE(model.output.find("PASS  shipped create-organize.baseline.json\n"), std::string::npos);
  ExpectAllPassed(model, 16);
  ExpectAllPassed(RunController({L"placement-contracts", Staged(kSchema.c_str()),
                                 Staged(L"Content\\Contracts\\placement")}),
                  5);
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
  const struct {
    std::vector<std::wstring> args;
    std::string output;
  } runs[] = {
      {{L"placement-contracts", Staged(kSchema.c_str()), folder},
       "FAIL  a-refusal: refused with \"Layout 'l' does not inherit from another layout, so it "
       "must declare at least one item.\", expected \"Layout 'l' is fine.\"\n"
       "FAIL  b-kind: case 2: \"windows:\" gave [\"invalid\"], expected [\"windows\"]\n"
       "0 passed, 2 failed.\n"},
      {{L"model-contracts", Staged(kSchema.c_str()), folder, L"missing.json"},
       "FAIL  shipped missing.json: 'missing.json' could not be read.\n"},
  };
  for (const auto& run : runs) {
    const RunResult result = RunController(run.args);
    EXPECT_EQ(result.exitCode, 1u);
    EXPECT_EQ(result.output.substr(0, run.output.size()), run.output);
  }
}

}  // namespace
}  // namespace cmr::e2e

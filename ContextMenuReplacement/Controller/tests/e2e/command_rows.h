#pragma once
// Command lines run through the real controller, each with the console text and exit code it
// must give. Rows run in order, so a row may rely on what the rows before it left behind.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/e2e/harness.h"

namespace cmr::e2e {

struct CommandRow {
  std::vector<std::wstring> args;
  std::string output;
  DWORD exitCode;
  bool outputStartsWith = false;  // for verbs whose later lines describe the machine's state
};

inline void RunRows(const std::vector<CommandRow>& rows) {
  for (const CommandRow& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.args));
    const RunResult run = RunController(row.args);
    EXPECT_EQ(row.outputStartsWith ? run.output.substr(0, row.output.size()) : run.output,
              row.output)
        << run.output;
    EXPECT_EQ(run.exitCode, row.exitCode);
  }
}

}  // namespace cmr::e2e

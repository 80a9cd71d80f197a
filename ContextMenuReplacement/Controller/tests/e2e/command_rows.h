#pragma once
// Command lines run through the real controller, each with the console text and exit code it
// must give. Rows run in order, so a row may rely on what the rows before it left behind.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/text.h"
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
    std::wstring line;
    for (const std::wstring& arg : row.args) line += arg + L" ";
    SCOPED_TRACE(ToUtf8(line));
    const RunResult run = RunController(row.args);
    if (row.outputStartsWith) {
      EXPECT_TRUE(run.output.starts_with(row.output)) << run.output;
    } else {
      EXPECT_EQ(run.output, row.output);
    }
    EXPECT_EQ(run.exitCode, row.exitCode);
  }
}

}  // namespace cmr::e2e

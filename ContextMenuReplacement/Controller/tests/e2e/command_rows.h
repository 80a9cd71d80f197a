#pragma once
// Command lines run through the real controller, each with the console text and exit code it
// must give. Rows run in order, so a row may rely on what the rows before it left behind.

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
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
    SCOPED_TRACE(::testing::PrintToString(row.args));
    const RunResult run = RunController(row.args);
    EXPECT_EQ(row.outputStartsWith ? run.output.substr(0, row.output.size()) : run.output,
              row.output)
        << run.output;
    EXPECT_EQ(run.exitCode, row.exitCode);
  }
}

// Runs the command line of each "> " line of a golden transcript (words split at blanks) and
// writes down what each gave the same way: the line, the output, "= exit <code>", then what
// `after` adds. The result is compared with the golden text whole.
inline std::string RunTranscript(const std::string& golden,
                                 const std::function<std::string()>& after = {}) {
  std::string transcript;
  std::istringstream lines(golden);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("> ")) continue;
    std::vector<std::wstring> args{L""};
    for (const wchar_t c : FromUtf8(line.substr(2)))
      c == L' ' ? args.emplace_back() : args.back() += c;
    const RunResult run = RunController(args);
    transcript += line + "\n" + run.output + "= exit " + std::to_string(run.exitCode) + "\n";
    if (after) transcript += after();
  }
  return transcript;
}

}  // namespace cmr::e2e

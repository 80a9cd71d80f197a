#pragma once
// Data files kept beside the tests: expected bytes, input documents and table rows.

#include <sstream>
#include <string>
#include <vector>

#include "common/file_io.h"
#include "common/text.h"

namespace cmr {

inline std::wstring GoldenFile(const std::wstring& name) {
  return FromUtf8(CMR_GOLDEN_DIR) + L"/" + name;
}

// The lines of a table kept in a data file, each split at tabs into its fields. A file that
// cannot be read gives no rows, so callers check the count they expect.
inline std::vector<std::vector<std::string>> GoldenRows(const std::wstring& name) {
  std::vector<std::vector<std::string>> rows;
  const Result<std::string> text = ReadWholeFile(GoldenFile(name));
  std::istringstream lines(text.ok() ? text.value() : std::string());
  for (std::string line; std::getline(lines, line);) {
    rows.emplace_back(1);
    for (const char c : line) c == '\t' ? rows.back().emplace_back() : rows.back().back() += c;
  }
  return rows;
}

}  // namespace cmr

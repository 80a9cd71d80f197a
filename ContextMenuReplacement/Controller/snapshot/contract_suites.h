#pragma once
// The two self-check verbs. Each runs every fixture file ("*.json", in name order) of a folder
// through the program's own model code and prints "PASS  <name>" or "FAIL  <name>: <why>" per
// fixture, then a summary line. The exit code is 0 only when every check passed. They write no
// file, publish nothing and open no log, so they are safe on any installed machine.

#include <string>
#include <vector>

namespace cmr {

// model-contracts <schema> <fixtures-directory> <baseline>...: first each shipped baseline
// alone (it must validate and compile, and keep its ids and titles fit for overlays), then
// the fixtures, which may name those baselines by file name.
[[nodiscard]] int RunModelContracts(const std::wstring& schemaPath,
                                    const std::wstring& fixturesFolder,
                                    const std::vector<std::wstring>& baselinePaths);

// placement-contracts <schema> <fixtures-directory>: the fixtures alone, which carry their own
// documents.
[[nodiscard]] int RunPlacementContracts(const std::wstring& schemaPath,
                                        const std::wstring& fixturesFolder);

}  // namespace cmr

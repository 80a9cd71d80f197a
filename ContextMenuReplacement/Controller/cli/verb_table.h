#pragma once
// The verb table: {word, handler} rows compared in order against argv[1].

#include <span>
#include <string>
#include <vector>

namespace cmr {

// A handler receives the arguments after the verb (argv[2..]) and returns the exit code.
using VerbHandler = int (*)(const std::vector<std::wstring>& args);

struct VerbRow {
  const wchar_t* word;
  VerbHandler handler;
};

[[nodiscard]] std::span<const VerbRow> VerbTable();

}  // namespace cmr

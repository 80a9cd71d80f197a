#pragma once

#include <string>
#include <vector>

namespace cmr {

// The command line of the custom-model verb as the dispatcher read it.
struct CustomModelArguments {
  std::wstring action;
  std::vector<std::wstring> arguments;
  bool json = false;
};

// custom-model <action> [arguments...] [--json]; returns the exit code.
int RunCustomModelVerb(const CustomModelArguments& arguments);

}  // namespace cmr

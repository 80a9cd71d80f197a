#pragma once

#include <string>

namespace cmr {

// The command line of the config verb as the dispatcher read it.
struct ConfigArguments {
  std::wstring action;
  std::wstring file;  // empty: the shared settings file
  bool json = false;
};

// config <init|path|check|validate|publish|watch|status> [file] [--json]; returns the exit code.
int RunConfigVerb(const ConfigArguments& arguments);

}  // namespace cmr

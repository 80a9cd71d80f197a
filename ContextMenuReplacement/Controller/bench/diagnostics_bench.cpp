// The diagnostics verbs the tray program polls, start to exit against the no-argument run: both
// answer from a data file or the registry, so they should cost no more than starting up.

#include "bench/bench.h"

namespace {

const bool polled = cmr::bench::Register(
    {"diagnostics: inventory --json and dialog-crashes --json vs no arguments (ratio)", 0, [] {
       cmr::bench::NoteRatioToNoArguments("inventory --json", L"inventory --json", 30);
       cmr::bench::NoteRatioToNoArguments("dialog-crashes --json", L"dialog-crashes --json", 30);
     }});

}  // namespace

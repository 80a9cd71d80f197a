#include "cli/entry.h"

#include <io.h>

#include <cstdio>
#include <string>
#include <vector>

#include "cli/usage_text.h"
#include "cli/verb_table.h"
#include "common/console.h"
#include "common/log.h"
#include "common/win32.h"
#include "snapshot/contract_suites.h"

namespace cmr {

namespace {

void ReopenOnConsole(FILE* stream, const wchar_t* mode, DWORD stdHandle) {
  FILE* reopened = nullptr;
  if (_wfreopen_s(&reopened, L"CONOUT$", mode, stream) == 0 && reopened != nullptr) {
    ::SetStdHandle(stdHandle, reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(reopened))));
  }
}

}  // namespace

void AttachParentConsoleIfNeeded() {
  const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
  // Redirected or inherited output (a pipe from the Settings application) is used as it is.
  if (output != nullptr && output != INVALID_HANDLE_VALUE) return;
  if (!::AttachConsole(ATTACH_PARENT_PROCESS)) return;
  ReopenOnConsole(stdout, L"w", STD_OUTPUT_HANDLE);
  ReopenOnConsole(stderr, L"w", STD_ERROR_HANDLE);
}

int RunController(int argc, wchar_t** argv) {
  // The two self-check verbs run before, and without, the log.
  if (argc == 4 && std::wstring(argv[1]) == L"placement-contracts") {
    return RunPlacementContracts(argv[2], argv[3]);
  }
  if (argc >= 2 && std::wstring(argv[1]) == L"model-contracts") {
    if (argc < 5) {
      Print(
          L"model-contracts needs a schema path, fixtures directory and at least one shipped "
          L"baseline.\n");
      return 1;
    }
    return RunModelContracts(argv[2], argv[3], std::vector<std::wstring>(argv + 4, argv + argc));
  }

  if (OpenLog(L"Ravelin", L"Controller", L"")) {
    // Support reads a day's log without the exe at hand: each run says which build wrote it.
    WriteLogLine(LogLevel::info,
                 L"ContextMenuReplacement.Controller " CMR_VERSION_TEXT L" started");
  } else {
    Print(L"Could not initialize logging; continuing with console output only.\n");
  }

  if (argc < 2) {
    PrintUsage();
    return 1;
  }

  const std::wstring verb = argv[1];
  const std::vector<std::wstring> args(argv + 2, argv + argc);
  for (const VerbRow& row : VerbTable()) {
    if (verb == row.word) return row.handler(args);
  }
  Print(L"Unknown verb '%s'\n\n", verb);
  PrintUsage();
  return 1;
}

}  // namespace cmr

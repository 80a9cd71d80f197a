#include "cli/entry.h"

int wmain(int argc, wchar_t** argv) {
  cmr::AttachParentConsoleIfNeeded();
  return cmr::RunController(argc, argv);
}

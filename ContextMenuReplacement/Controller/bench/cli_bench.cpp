#include "bench/bench.h"
#include "cli/usage_text.h"
#include "common/console.h"

CMR_BENCH("cli: format a console line with three arguments", 2000) {
  const std::wstring line = cmr::FormatConsoleText(
      L"Published version %lu (%lu bytes): %zu profile(s), %zu item(s), %zu user command(s).", 7u,
      1048576u, size_t{3}, size_t{12}, size_t{2});
  cmr::bench::Consume(line.data());
}

CMR_BENCH("cli: build the usage text", 2000) {
  const std::wstring text = cmr::UsageText();
  cmr::bench::Consume(text.data());
}

#include "lifecycle/install_probe.h"

#include <fmt/xchar.h>

#include "common/console.h"
#include "common/data_paths.h"
#include "common/win32.h"
#include "lifecycle/explorer_link.h"
#include "lifecycle/suppression_strategy.h"

namespace cmr {

namespace suppression = context_menu_replacement::suppression;

namespace {

// RtlGetVersion tells the truth where GetVersionEx is shimmed to the manifest's version.
unsigned long WindowsBuildNumber() {
  using RtlGetVersionFn = LONG(WINAPI*)(OSVERSIONINFOW*);
  const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
  if (ntdll == nullptr) return 0;
  const auto get = reinterpret_cast<RtlGetVersionFn>(
      reinterpret_cast<void*>(::GetProcAddress(ntdll, "RtlGetVersion")));
  OSVERSIONINFOW info{};
  info.dwOSVersionInfoSize = sizeof(info);
  if (get == nullptr || get(&info) != 0) return 0;
  return info.dwBuildNumber;
}

}  // namespace

int RunInstallVerb() {
  PrintLine(L"Capability probe");
  PrintLine(L"");
  PrintLine(L"  Windows build:        %lu (recorded for diagnostics, not gated on)",
            WindowsBuildNumber());
  const size_t threads = CurrentExplorerLink().UiThreadCount();
  PrintLine(L"  Explorer UI threads:  %zu", threads);

  const HWND progman = ::FindWindowW(L"Progman", nullptr);
  const bool defView =
      progman != nullptr && ::FindWindowExW(progman, nullptr, L"SHELLDLL_DefView", nullptr);
  PrintLine(L"  Desktop (Progman):    %s", progman != nullptr ? L"present" : L"MISSING");
  PrintLine(L"  Desktop view:         %s",
            defView ? L"SHELLDLL_DefView present"
                    : L"not under Progman (it can live under a WorkerW instead)");
  const bool topologyOk = progman != nullptr && threads > 0;
  PrintLine(L"  Window topology:      %s", topologyOk ? L"as expected" : L"UNEXPECTED");

  bool anyAvailable = false;
  for (const SuppressionStrategy id :
       {SuppressionStrategy::classic, SuppressionStrategy::refusal}) {
    const std::unique_ptr<suppression::strategy> candidate = suppression::make_strategy(id);
    std::wstring message;
    const bool available = candidate->is_available(message);
    anyAvailable = anyAvailable || available;
    PrintLine(L"  %s %s - %s", fmt::format(L"{:<26}", suppression::strategy_name(id)),
              available ? L"available" : L"UNAVAILABLE", message);
    PrintLine(L"      %s", candidate->describe());
    PrintLine(L"      restart required: %s", candidate->needs_restart() ? L"yes" : L"no");
  }
  PrintLine(L"");
  const std::wstring configuration = DefaultMenuJsonPath();
  PrintLine(L"  Configuration file:   %s", configuration);
  PrintLine(L"                        %s",
            ::GetFileAttributesW(configuration.c_str()) != INVALID_FILE_ATTRIBUTES
                ? L"present"
                : L"not created yet - run 'config init'");
  PrintLine(L"");
  if (!topologyOk || !anyAvailable) {
    PrintLine(L"This machine does not meet Ravelin requirements. It would run native-only.");
    return 1;
  }
  PrintLine(L"Ready. Run 'enable' to turn the feature on; it will disclose what it changes first.");
  return 0;
}

}  // namespace cmr

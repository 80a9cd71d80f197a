#include "lifecycle/installer_gate.h"

#include "common/file_time.h"
#include "common/unique_handle.h"
#include "state/registry_value.h"

namespace cmr {

bool InstallerBusy(const InstallerFacts& facts) noexcept {
  if (facts.processId == 0 || !facts.recorded) return false;
  if (facts.openError == ERROR_ACCESS_DENIED) return true;
  if (facts.openError != ERROR_SUCCESS) return false;  // the installer is gone
  if (!facts.created) return true;
  return *facts.created == *facts.recorded && facts.stillRunning;
}

InstallerFacts ReadInstallerFacts() {
  InstallerFacts facts;
  UniqueHkey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kInstallerMaintenanceKeyPath, 0,
                      KEY_QUERY_VALUE | KEY_WOW64_64KEY, key.put()) != ERROR_SUCCESS) {
    return facts;
  }
  facts.processId = ReadDwordValue(key.get(), L"Process").value_or(0);
  if (facts.processId == 0) return facts;
  facts.recorded = ReadQwordValue(key.get(), L"Created");
  if (!facts.recorded) return facts;
  UniqueHandle process(
      ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, facts.processId));
  if (!process) {
    facts.openError = ::GetLastError();
    return facts;
  }
  FILETIME creation{}, exit{}, kernel{}, user{};
  if (!::GetProcessTimes(process.get(), &creation, &exit, &kernel, &user)) return facts;
  facts.created = FileTimeToInteger(creation);
  facts.stillRunning = ::WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT;
  return facts;
}

}  // namespace cmr

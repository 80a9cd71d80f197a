#include "lifecycle/suppression_strategy.h"

#include <fmt/xchar.h>

#include "common/file_time.h"
#include "common/unique_handle.h"
#include "common/win32.h"
#include "lifecycle/override_key.h"
#include "state/registry_value.h"

namespace cmr {

ClassicModeReading ReadClassicMode() {
  ClassicModeReading reading;
  reading.effectiveMode = L"modern";
  UniqueHkey key;
  if (::RegOpenKeyExW(HKEY_CURRENT_USER, kOverrideKeyPath, 0, KEY_READ, key.put()) !=
      ERROR_SUCCESS) {
    return reading;
  }
  reading.keyPresent = true;
  FILETIME written{};
  if (::RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                         nullptr, nullptr, nullptr, &written) == ERROR_SUCCESS) {
    reading.lastWriteTime = FileTimeToInteger(written);
  }
  reading.value = ReadStringValue(key.get(), nullptr).value_or(L"");
  reading.valueEmpty = reading.value.empty();
  reading.effectiveMode = reading.valueEmpty ? L"classic" : L"modern";
  return reading;
}

bool IsExplorerAlreadyClassic(const ClassicModeReading& reading,
                              const std::vector<uint64_t>& explorerStartTimes) {
  if (!reading.keyPresent || !reading.valueEmpty) return false;
  if (reading.lastWriteTime == 0) return true;
  // An Explorer started at or before the write still serves the menu it read at its start.
  for (const uint64_t started : explorerStartTimes) {
    if (started != 0 && started <= reading.lastWriteTime) return false;
  }
  return true;
}

}  // namespace cmr

namespace context_menu_replacement::suppression {

namespace {

using cmr::ClassicModeReading;

class classic_mode_registry final : public strategy {
 public:
  bool is_available(std::wstring& message) override {
    const DWORD created = cmr::ProbeClassesWritable();
    if (created != ERROR_SUCCESS) {
      message = fmt::format(L"cannot write under HKCU\\Software\\Classes\\CLSID: {}", created);
      return false;
    }
    message =
        L"the override key is writable; whether Windows honours it is verified after the "
        L"Explorer restart, not assumed";
    return true;
  }

  bool apply(std::wstring& message) override {
    DWORD result = cmr::CreateOverrideKey();
    // A volatile parent only takes volatile children; ours must survive a reboot. The parent
    // goes only when nothing else lives under it, so then the second create fails the same way.
    if (result == ERROR_CHILD_MUST_BE_VOLATILE) {
      (void)cmr::DeleteOverrideParent();  // a parent that stays fails the create below
      result = cmr::CreateOverrideKey();
    }
    if (result != ERROR_SUCCESS) {
      message = fmt::format(L"Could not create the override key: {}", result);
      return false;
    }
    result = cmr::SetOverrideValue(L"");
    if (result != ERROR_SUCCESS) {
      message = fmt::format(L"Could not write the override value: {}", result);
      return false;
    }
    message.clear();
    return true;
  }

  bool remove(std::wstring& message) override {
    const DWORD result = cmr::DeleteOverrideKey();
    if (result != ERROR_SUCCESS && result != ERROR_FILE_NOT_FOUND) {
      message = fmt::format(L"Could not remove the override key: {}", result);
      return false;
    }
    // Stays when something else lives under it.
    (void)cmr::DeleteOverrideParent();
    message.clear();
    return true;
  }

  bool needs_restart() const override { return true; }
  uint32_t persistence() const override { return 1; }

  bool verify(std::wstring& message) override {
    const ClassicModeReading reading = cmr::ReadClassicMode();
    message = fmt::format(L"override key present: {}, effective mode: {}",
                          reading.keyPresent ? L"yes" : L"no", reading.effectiveMode);
    return reading.keyPresent && reading.valueEmpty;
  }

  std::wstring describe() const override {
    return L"classic_mode_registry (machine-persistent, needs an Explorer restart, covers "
           L"supported Explorer context menus)";
  }
  SuppressionStrategy id() const override { return SuppressionStrategy::classic; }
};

// Changes nothing on the machine: the caller delivers the refusal to the Hook, so apply and
// remove are one and the same on purpose.
class runtime_activation_refusal final : public strategy {
 public:
  bool is_available(std::wstring& message) override {
    message =
        L"always available; it writes nothing and needs no restart, but it cannot suppress the "
        L"desktop background";
    return true;
  }
  bool apply(std::wstring& message) override { return delivered(message); }
  bool remove(std::wstring& message) override { return delivered(message); }
  bool needs_restart() const override { return false; }
  uint32_t persistence() const override { return 0; }
  bool verify(std::wstring& message) override {
    message =
        L"process-lifetime; confirmed by the hook's suppression probe rather than by machine "
        L"state";
    return true;
  }
  std::wstring describe() const override {
    return L"runtime_activation_refusal (process-lifetime, no restart, no persistent state, "
           L"cannot suppress the desktop background)";
  }
  SuppressionStrategy id() const override { return SuppressionStrategy::refusal; }

 private:
  static bool delivered(std::wstring& message) {
    message = L"delivered to the hook by the caller";
    return true;
  }
};

}  // namespace

std::unique_ptr<strategy> make_strategy(SuppressionStrategy id) {
  switch (id) {
    case SuppressionStrategy::classic: return std::make_unique<classic_mode_registry>();
    case SuppressionStrategy::refusal: return std::make_unique<runtime_activation_refusal>();
    default: return nullptr;
  }
}

const wchar_t* strategy_name(SuppressionStrategy id) {
  switch (id) {
    case SuppressionStrategy::classic: return L"classic_mode_registry";
    case SuppressionStrategy::refusal: return L"runtime_activation_refusal";
    default: return L"none";
  }
}

}  // namespace context_menu_replacement::suppression

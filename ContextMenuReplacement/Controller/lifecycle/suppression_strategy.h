#pragma once
// How Windows' own modern context menu is kept out of the replacement's way, and the reading of
// Windows' per-user classic-menu switch that enable, restore and status share.
//
// The switch: Windows shows the classic menu when the override key
//   HKCU\Software\Classes\CLSID\{86ca1aa0-34aa-4e8b-a509-50c905bae2a2}\InprocServer32
// exists and its default value is empty. A present key whose default value is missing or is
// not a string reads as classic too, deliberately the same as an empty string.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "state/lifecycle_state.h"

namespace cmr {

inline constexpr wchar_t kOverrideParentPath[] =
    L"Software\\Classes\\CLSID\\{86ca1aa0-34aa-4e8b-a509-50c905bae2a2}";
inline constexpr wchar_t kOverrideKeyPath[] =
    L"Software\\Classes\\CLSID\\{86ca1aa0-34aa-4e8b-a509-50c905bae2a2}\\InprocServer32";

struct ClassicModeReading {
  bool keyPresent = false;
  bool valueEmpty = false;     // key present and its default value empty, missing or not a string
  std::wstring value;          // REG_SZ or REG_EXPAND_SZ, unexpanded, at most 1023 characters
  uint64_t lastWriteTime = 0;  // the key's FILETIME; 0 when absent or unreadable
  std::wstring effectiveMode;  // "classic" or "modern"
};

[[nodiscard]] ClassicModeReading ReadClassicMode();

// The override holds exactly what enable writes. Anything else there is the user's newer choice.
[[nodiscard]] inline bool HoldsOurOverride(const ClassicModeReading& reading) {
  return reading.keyPresent && reading.valueEmpty;
}

// Every running Explorer has already read the switch: it is on, and no Explorer started at or
// before the switch was written. `explorerStartTimes` are the creation FILETIMEs of the
// discovered Explorer processes, 0 for one whose time could not be read.
[[nodiscard]] bool IsExplorerAlreadyClassic(const ClassicModeReading& reading,
                                            const std::vector<uint64_t>& explorerStartTimes);

}  // namespace cmr

namespace context_menu_replacement::suppression {

// A strategy is named by the SuppressionStrategy number the state records for it.
using cmr::SuppressionStrategy;

class strategy {
 public:
  virtual ~strategy() = default;
  // Each fills `message` with one line: the reason on failure, a note on some successes.
  virtual bool is_available(std::wstring& message) = 0;
  virtual bool apply(std::wstring& message) = 0;
  virtual bool remove(std::wstring& message) = 0;
  // Explorer must restart before the strategy takes effect.
  virtual bool needs_restart() const = 0;
  // 1: writes machine state that must be recorded and restored; 0: lives with Explorer.
  virtual uint32_t persistence() const = 0;
  virtual bool verify(std::wstring& message) = 0;
  virtual std::wstring describe() const = 0;
  virtual SuppressionStrategy id() const = 0;
};

// Null for an identifier other than 1 or 2.
[[nodiscard]] std::unique_ptr<strategy> make_strategy(SuppressionStrategy id);

// "classic_mode_registry", "runtime_activation_refusal", or "none" for any other number.
[[nodiscard]] const wchar_t* strategy_name(SuppressionStrategy id);

}  // namespace context_menu_replacement::suppression

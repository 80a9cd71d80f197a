#pragma once
// The registry reads shared by the watchdog record verbs: the product's record keys under the
// current user, listed and read with the product's reading rule (a value of another type than
// its format says reads as absent).

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/status.h"
#include "common/unique_handle.h"

namespace cmr {

// Parent of every per-user record the Hook and the tray program keep about this product.
inline constexpr wchar_t kRavelinKey[] = L"Software\\Orvanta\\Brenlowpack\\Ravelin";

// Opens HKCU\<path> for reading (and deleting beneath it when `forDelete`). A missing key is
// not a failure: the result is then an empty key. Any other failure names the key.
[[nodiscard]] Result<UniqueHkey> OpenRecordKey(const std::wstring& path, bool forDelete = false);

struct RegistryValueEntry {
  std::wstring name;
  DWORD type = REG_NONE;
  std::string data;  // raw bytes as stored
};

// Every value of the key, sorted by name (ordinal). A key that could not be enumerated ends the
// list where it failed, with a failure naming `path`.
[[nodiscard]] Result<std::vector<RegistryValueEntry>> ListValues(HKEY key,
                                                                 const std::wstring& path);
// Every subkey name, sorted (ordinal).
[[nodiscard]] Result<std::vector<std::wstring>> ListSubkeys(HKEY key, const std::wstring& path);

// The stored data of one value when its type is `type`; absent otherwise.
[[nodiscard]] std::optional<std::string> ReadTypedValue(HKEY key, const wchar_t* name, DWORD type);
// REG_SZ text up to its first NUL.
[[nodiscard]] std::optional<std::wstring> ReadTextValue(HKEY key, const wchar_t* name);
// REG_QWORD of exactly eight bytes.
[[nodiscard]] std::optional<uint64_t> QwordOf(const RegistryValueEntry& entry);

// "YYYY-MM-DD HH:MM:SS" in UTC, and the JSON string "YYYY-MM-DDTHH:MM:SSZ" (quotes included),
// of a FILETIME count; a count the system cannot convert reads as "(invalid time)".
[[nodiscard]] std::wstring FileTimeText(uint64_t fileTime);
[[nodiscard]] std::wstring FileTimeJson(uint64_t fileTime);

// The command line both record verbs share: no argument or "--json" lists the records, "clear
// <name>" removes one. Argument errors print their line and give exit code 1.
struct RecordVerb {
  const wchar_t* name;         // "dialog-crashes"
  const wchar_t* missingName;  // the line when "clear" has no name
  bool emptyNameIsMissing;     // an empty name gets that line too
  int (*list)(bool json);
  int (*clear)(const std::wstring& name);
};
[[nodiscard]] int RunRecordVerb(const RecordVerb& verb, const std::vector<std::wstring>& args);

}  // namespace cmr

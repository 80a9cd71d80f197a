#include "diagnostics/record_registry.h"

#include <algorithm>

#include "common/console.h"
#include "common/json_writer.h"
#include "common/system_error.h"

namespace cmr {

Result<UniqueHkey> OpenRecordKey(const std::wstring& path, bool forDelete) {
  UniqueHkey key;
  const REGSAM access = forDelete ? (KEY_READ | DELETE | KEY_SET_VALUE) : KEY_READ;
  const LSTATUS result = ::RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, access, key.put());
  if (result == ERROR_FILE_NOT_FOUND) return UniqueHkey();
  if (result != ERROR_SUCCESS) {
    return Win32Failure(fmt::format(L"Could not open 'HKEY_CURRENT_USER\\{}'", path), result);
  }
  return key;
}

Result<std::vector<RegistryValueEntry>> ListValues(HKEY key, const std::wstring& path) {
  std::vector<RegistryValueEntry> entries;
  if (key == nullptr) return entries;
  for (DWORD index = 0;; ++index) {
    // Value names are at most 16383 characters; the data size is asked for first.
    wchar_t name[16384];
    DWORD nameLength = 16384;
    DWORD type = REG_NONE;
    DWORD size = 0;
    LSTATUS result = ::RegEnumValueW(key, index, name, &nameLength, nullptr, &type, nullptr, &size);
    if (result == ERROR_NO_MORE_ITEMS) break;
    if (result != ERROR_SUCCESS) {
      return Win32Failure(
          fmt::format(L"Could not list the values of 'HKEY_CURRENT_USER\\{}'", path), result);
    }
    RegistryValueEntry entry;
    entry.name.assign(name, nameLength);
    entry.type = type;
    entry.data.resize(size);
    DWORD read = size;
    result = ::RegQueryValueExW(key, entry.name.c_str(), nullptr, &type,
                                reinterpret_cast<BYTE*>(entry.data.data()), &read);
    if (result != ERROR_SUCCESS) continue;  // changed under us; the next listing shows it
    entry.type = type;
    entry.data.resize(read);
    entries.push_back(std::move(entry));
  }
  std::sort(
      entries.begin(), entries.end(),
      [](const RegistryValueEntry& a, const RegistryValueEntry& b) { return a.name < b.name; });
  return entries;
}

Result<std::vector<std::wstring>> ListSubkeys(HKEY key, const std::wstring& path) {
  std::vector<std::wstring> names;
  if (key == nullptr) return names;
  for (DWORD index = 0;; ++index) {
    wchar_t name[256];  // key names are at most 255 characters
    DWORD length = 256;
    const LSTATUS result =
        ::RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (result == ERROR_NO_MORE_ITEMS) break;
    if (result != ERROR_SUCCESS) {
      return Win32Failure(
          fmt::format(L"Could not list the subkeys of 'HKEY_CURRENT_USER\\{}'", path), result);
    }
    names.emplace_back(name, length);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::optional<std::string> ReadTypedValue(HKEY key, const wchar_t* name, DWORD type) {
  DWORD stored = REG_NONE;
  DWORD size = 0;
  if (::RegQueryValueExW(key, name, nullptr, &stored, nullptr, &size) != ERROR_SUCCESS ||
      stored != type) {
    return std::nullopt;
  }
  std::string data(size, '\0');
  if (::RegQueryValueExW(key, name, nullptr, &stored, reinterpret_cast<BYTE*>(data.data()),
                         &size) != ERROR_SUCCESS ||
      stored != type) {
    return std::nullopt;
  }
  data.resize(size);
  return data;
}

std::optional<std::wstring> ReadTextValue(HKEY key, const wchar_t* name) {
  const std::optional<std::string> data = ReadTypedValue(key, name, REG_SZ);
  if (!data) return std::nullopt;
  std::wstring text(data->size() / sizeof(wchar_t), L'\0');
  std::copy_n(data->data(), text.size() * sizeof(wchar_t), reinterpret_cast<char*>(text.data()));
  if (const size_t end = text.find(L'\0'); end != std::wstring::npos) text.resize(end);
  return text;
}

std::optional<uint64_t> QwordOf(const RegistryValueEntry& entry) {
  if (entry.type != REG_QWORD || entry.data.size() != sizeof(uint64_t)) return std::nullopt;
  uint64_t value = 0;
  std::copy_n(entry.data.data(), sizeof value, reinterpret_cast<char*>(&value));
  return value;
}

namespace {

std::optional<SYSTEMTIME> ToSystemTime(uint64_t fileTime) {
  FILETIME time{static_cast<DWORD>(fileTime), static_cast<DWORD>(fileTime >> 32)};
  SYSTEMTIME system{};
  if (!::FileTimeToSystemTime(&time, &system)) return std::nullopt;
  return system;
}

}  // namespace

std::wstring FileTimeText(uint64_t fileTime) {
  const std::optional<SYSTEMTIME> t = ToSystemTime(fileTime);
  if (!t) return L"(invalid time)";
  return fmt::format(L"{:04}-{:02}-{:02} {:02}:{:02}:{:02}", t->wYear, t->wMonth, t->wDay, t->wHour,
                     t->wMinute, t->wSecond);
}

std::wstring FileTimeJson(uint64_t fileTime) {
  const std::optional<SYSTEMTIME> t = ToSystemTime(fileTime);
  if (!t) return JsonQuote(L"(invalid time)");
  return fmt::format(L"\"{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z\"", t->wYear, t->wMonth, t->wDay,
                     t->wHour, t->wMinute, t->wSecond);
}

int RunRecordVerb(const RecordVerb& verb, const std::vector<std::wstring>& args) {
  if (args.empty()) return verb.list(false);
  if (args[0] == L"--json") {
    if (args.size() > 1) {
      PrintLine(L"Unexpected argument '%s'.", args[1]);
      return 1;
    }
    return verb.list(true);
  }
  if (args[0] == L"clear") {
    if (args.size() < 2 || (verb.emptyNameIsMissing && args[1].empty())) {
      PrintLine(L"%s", verb.missingName);
      return 1;
    }
    if (args.size() > 2) {
      PrintLine(L"Unexpected argument '%s'.", args[2]);
      return 1;
    }
    return verb.clear(args[1]);
  }
  PrintLine(L"Unknown %s argument '%s'.", verb.name, args[0]);
  return 1;
}

}  // namespace cmr

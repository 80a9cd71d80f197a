#include "diagnostics/provider_strikes.h"

#include <algorithm>
#include <optional>

// clang-format off
// After win32.h: the lean Windows headers leave COM out.
#include "common/win32.h"
#include <objbase.h>
// clang-format on

#include "common/console.h"
#include "common/json_writer.h"
#include "common/system_error.h"
#include "diagnostics/record_registry.h"

namespace cmr {

StrikeVerdict JudgeStrikes(const std::vector<uint64_t>& strikes) {
  StrikeVerdict verdict;
  if (strikes.empty()) return verdict;
  const uint64_t newest = *std::max_element(strikes.begin(), strikes.end());
  for (const uint64_t at : strikes) {
    const bool expired = newest - at > kStrikeWindow;
    verdict.expired.push_back(expired);
    if (!expired) ++verdict.counting;
  }
  verdict.blocked = verdict.counting >= kStrikesToBlock;
  return verdict;
}

std::vector<uint64_t> DecodeStrikes(std::string_view bytes) {
  std::vector<uint64_t> strikes;
  for (size_t at = 0; at + sizeof(uint64_t) <= bytes.size(); at += sizeof(uint64_t)) {
    uint64_t value = 0;
    for (size_t i = 0; i < sizeof value; ++i) {
      value |= uint64_t{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
    }
    strikes.push_back(value);
  }
  return strikes;
}

bool IsClsidText(const std::wstring& text) {
  if (text.size() != 38 || text.front() != L'{' || text.back() != L'}') return false;
  CLSID clsid{};
  return SUCCEEDED(::CLSIDFromString(text.c_str(), &clsid));
}

namespace {

struct StrikeRecord {
  std::wstring clsid;
  std::optional<std::wstring> name;
  std::vector<uint64_t> strikes;
  std::optional<std::wstring> lastFault;
};

std::wstring JsonOrNull(const std::optional<std::wstring>& text) {
  return text ? JsonQuote(*text) : std::wstring(L"null");
}

int ListStrikes(bool json) {
  Result<UniqueHkey> key = OpenRecordKey(kProviderStrikesKey);
  Result<std::vector<std::wstring>> names =
      key ? ListSubkeys(key.value().get(), kProviderStrikesKey)
          : Result<std::vector<std::wstring>>(key.status());
  if (!names) {
    PrintLine(L"%s", names.message());
    return 1;
  }
  std::vector<StrikeRecord> records;
  for (const std::wstring& clsid : names.value()) {
    UniqueHkey handler;
    if (::RegOpenKeyExW(key.value().get(), clsid.c_str(), 0, KEY_READ, handler.put()) !=
        ERROR_SUCCESS) {
      continue;  // removed while we listed
    }
    StrikeRecord record{clsid,
                        ReadTextValue(handler.get(), L"Name"),
                        {},
                        ReadTextValue(handler.get(), L"LastFault")};
    if (const std::optional<std::string> bytes =
            ReadTypedValue(handler.get(), L"Strikes", REG_BINARY)) {
      record.strikes = DecodeStrikes(*bytes);
    }
    records.push_back(std::move(record));
  }

  if (json) {
    std::wstring line = L"[";
    for (const StrikeRecord& record : records) {
      const StrikeVerdict verdict = JudgeStrikes(record.strikes);
      if (line.size() > 1) line += L',';
      line += L"{\"clsid\":" + JsonQuote(record.clsid) + L",\"name\":" + JsonOrNull(record.name) +
              L",\"blocked\":" + (verdict.blocked ? L"true" : L"false") + L",\"strikes\":[";
      for (size_t i = 0; i < record.strikes.size(); ++i) {
        if (i > 0) line += L',';
        line += L"{\"at\":" + FileTimeJson(record.strikes[i]) + L",\"expired\":" +
                (verdict.expired[i] ? L"true" : L"false") + L"}";
      }
      line += L"],\"lastFault\":" + JsonOrNull(record.lastFault) + L"}";
    }
    PrintJsonLine(line + L"]");
    return 0;
  }
  if (records.empty()) {
    PrintLine(L"No context menu handler has been struck by the watchdog.");
    return 0;
  }
  PrintLine(L"Context menu handlers struck by the watchdog:");
  for (const StrikeRecord& record : records) {
    const StrikeVerdict verdict = JudgeStrikes(record.strikes);
    PrintLine(L"  %s '%s': %zu of %zu strikes within seven days; %s.", record.clsid,
              record.name.value_or(L"(unnamed)"), verdict.counting, kStrikesToBlock,
              verdict.blocked ? L"no longer activated" : L"still activated");
    for (size_t i = 0; i < record.strikes.size(); ++i) {
      PrintLine(L"    %s UTC%s", FileTimeText(record.strikes[i]),
                verdict.expired[i] ? L" (expired)" : L"");
    }
    if (record.lastFault) PrintLine(L"    Last fault: %s", *record.lastFault);
  }
  return 0;
}

int ClearStrikes(const std::wstring& clsid) {
  if (!IsClsidText(clsid)) {
    PrintLine(L"'%s' is not a CLSID; write it as {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}.", clsid);
    return 1;
  }
  Result<UniqueHkey> key = OpenRecordKey(kProviderStrikesKey, true);
  if (!key) {
    PrintLine(L"%s", key.message());
    return 1;
  }
  const LSTATUS result = key.value() ? ::RegDeleteTreeW(key.value().get(), clsid.c_str())
                                     : static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND);
  if (result == ERROR_FILE_NOT_FOUND) {
    PrintLine(L"No strike record exists for handler '%s'.", clsid);
    return 1;
  }
  if (result != ERROR_SUCCESS) {
    PrintLine(L"%s", Win32Message(fmt::format(L"Could not remove the strike record of '{}'", clsid),
                                  result));
    return 1;
  }
  PrintLine(L"The strike record of handler '%s' was removed; the hook may activate it again.",
            clsid);
  return 0;
}

}  // namespace

int RunProviderStrikesVerb(const std::vector<std::wstring>& args) {
  return RunRecordVerb({L"provider-strikes", L"provider-strikes clear needs a handler CLSID.",
                        false, ListStrikes, ClearStrikes},
                       args);
}

}  // namespace cmr

#include "diagnostics/classic_icons.h"

#include <vector>

#include "common/console.h"
#include "common/json_writer.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "diagnostics/provider_strikes.h"

namespace cmr {

std::optional<IconRequest> ParseIconRequest(std::wstring_view line, size_t lineNumber,
                                            std::wstring& error) {
  std::vector<std::wstring> fields;
  size_t start = 0;
  for (;;) {
    const size_t tab = line.find(L'\t', start);
    fields.emplace_back(line.substr(start, tab == std::wstring_view::npos ? tab : tab - start));
    if (tab == std::wstring_view::npos) break;
    start = tab + 1;
  }
  if (fields.size() != 3) {
    error = fmt::format(
        L"Line {} has {} fields; a request is 'handler<TAB>{{CLSID}}<TAB>label' or "
        L"'verb<TAB>root<TAB>verb path'.",
        lineNumber, fields.size());
    return std::nullopt;
  }
  IconRequest request;
  if (fields[0] == L"handler") {
    if (!IsClsidText(fields[1])) {
      error = fmt::format(L"Line {} names '{}', which is not a CLSID.", lineNumber, fields[1]);
      return std::nullopt;
    }
    request.handler = true;
    request.clsid = fields[1];
    request.label = fields[2];
    return request;
  }
  if (fields[0] == L"verb") {
    if (fields[1].empty() || fields[2].empty()) {
      error = fmt::format(L"Line {} has an empty root or verb path.", lineNumber);
      return std::nullopt;
    }
    request.root = fields[1];
    request.verbPath = fields[2];
    return request;
  }
  error = fmt::format(L"Line {} has the unknown request kind '{}'.", lineNumber, fields[0]);
  return std::nullopt;
}

std::wstring VerbKeyPath(const std::wstring& root, const std::wstring& verbPath) {
  std::wstring path = root;
  size_t start = 0;
  for (;;) {
    const size_t slash = verbPath.find(L'\\', start);
    path +=
        L"\\shell\\" + verbPath.substr(start, slash == std::wstring::npos ? slash : slash - start);
    if (slash == std::wstring::npos) return path;
    start = slash + 1;
  }
}

std::wstring IconLocation(std::wstring text) {
  std::wstring index = L"0";
  if (const size_t comma = text.rfind(L','); comma != std::wstring::npos) {
    const std::wstring tail = text.substr(comma + 1);
    size_t digits = tail.size() > 0 && tail[0] == L'-' ? 1 : 0;
    const bool numeric =
        tail.size() > digits && tail.find_first_not_of(L"0123456789", digits) == std::wstring::npos;
    if (numeric) {
      index = tail;
      text.resize(comma);
    }
  }
  while (!text.empty() && text.back() == L' ') text.pop_back();
  if (text.size() >= 2 && text.front() == L'"' && text.back() == L'"') {
    text = text.substr(1, text.size() - 2);
  }
  return text + L"," + index;
}

namespace {

// The merged classes root as Windows builds it: per-user classes win over the machine's.
UniqueHkey OpenClassesKey(const std::wstring& path) {
  for (HKEY hive : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE}) {
    UniqueHkey key;
    if (::RegOpenKeyExW(hive, (L"Software\\Classes\\" + path).c_str(), 0, KEY_READ, key.put()) ==
        ERROR_SUCCESS) {
      return key;
    }
  }
  return {};
}

// The icon of the value `name` (nullptr: the default value) of the key, or the reason it has
// none in `reason`.
std::optional<std::wstring> IconOfValue(HKEY key, const wchar_t* name, const std::wstring& keyPath,
                                        std::wstring& reason) {
  DWORD type = REG_NONE;
  DWORD size = 0;
  const LSTATUS probe = ::RegQueryValueExW(key, name, nullptr, &type, nullptr, &size);
  if (probe != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ)) {
    reason =
        fmt::format(L"The key '{}' has no icon value of type REG_SZ or REG_EXPAND_SZ.", keyPath);
    return std::nullopt;
  }
  std::wstring text(size / sizeof(wchar_t) + 1, L'\0');
  DWORD read = static_cast<DWORD>(text.size() * sizeof(wchar_t));
  if (::RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text.data()), &read) !=
      ERROR_SUCCESS) {
    reason =
        fmt::format(L"The key '{}' has no icon value of type REG_SZ or REG_EXPAND_SZ.", keyPath);
    return std::nullopt;
  }
  text.resize(text.find(L'\0'));
  // Shell handlers store plain REG_SZ with "%SystemRoot%" too, so both types are expanded.
  const DWORD needed = ::ExpandEnvironmentStringsW(text.c_str(), nullptr, 0);
  if (needed > 0) {
    std::wstring expanded(needed, L'\0');
    if (::ExpandEnvironmentStringsW(text.c_str(), expanded.data(), needed) == needed) {
      expanded.resize(needed - 1);
      text = std::move(expanded);
    }
  }
  if (text.empty()) {
    reason = fmt::format(L"The icon value of '{}' is empty.", keyPath);
    return std::nullopt;
  }
  return IconLocation(std::move(text));
}

std::wstring Answer(const IconRequest& request) {
  std::wstring reason;
  std::optional<std::wstring> icon;
  std::wstring echo;
  if (request.handler) {
    echo = L"{\"kind\":\"handler\",\"clsid\":" + JsonQuote(request.clsid) + L",\"label\":" +
           JsonQuote(request.label) + L"}";
    const std::wstring path = L"CLSID\\" + request.clsid + L"\\DefaultIcon";
    if (UniqueHkey key = OpenClassesKey(path)) {
      icon = IconOfValue(key.get(), nullptr, path, reason);
    } else {
      reason = fmt::format(L"The handler '{}' has no DefaultIcon key.", request.clsid);
    }
  } else {
    echo = L"{\"kind\":\"verb\",\"root\":" + JsonQuote(request.root) + L",\"verbPath\":" +
           JsonQuote(request.verbPath) + L"}";
    const std::wstring path = VerbKeyPath(request.root, request.verbPath);
    if (UniqueHkey key = OpenClassesKey(path)) {
      icon = IconOfValue(key.get(), L"Icon", path, reason);
    } else {
      reason = fmt::format(L"The verb key '{}' does not exist.", path);
    }
  }
  std::wstring line = L"{\"request\":" + echo + L",\"icon\":";
  if (icon) return line + JsonQuote(*icon) + L"}\n";
  return line + L"null,\"reason\":" + JsonQuote(reason) + L"}\n";
}

void AnswerLine(std::string line, size_t lineNumber) {
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (line.empty()) return;
  std::wstring error;
  if (std::optional<IconRequest> request = ParseIconRequest(FromUtf8(line), lineNumber, error)) {
    WriteStandardOutput(Answer(*request));
  } else {
    WriteStandardOutput(
        fmt::format(L"{{\"line\":{},\"error\":{}}}\n", lineNumber, JsonQuote(error)));
  }
}

}  // namespace

int RunClassicIconsVerb() {
  const HANDLE input = ::GetStdHandle(STD_INPUT_HANDLE);
  if (input == nullptr || input == INVALID_HANDLE_VALUE) return 0;
  std::string pending;
  size_t lineNumber = 0;
  char buffer[4096];
  DWORD read = 0;
  // A pipe reports its end as ERROR_BROKEN_PIPE, a file as a read of zero bytes.
  while (::ReadFile(input, buffer, sizeof buffer, &read, nullptr) && read > 0) {
    pending.append(buffer, read);
    size_t start = 0;
    for (size_t end; (end = pending.find('\n', start)) != std::string::npos; start = end + 1) {
      AnswerLine(pending.substr(start, end - start), ++lineNumber);
    }
    pending.erase(0, start);
  }
  if (!pending.empty()) AnswerLine(pending, ++lineNumber);
  return 0;
}

}  // namespace cmr

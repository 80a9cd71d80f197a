#pragma once
// `classic-icons --json`: the icon a classic menu row would draw, resolved from the registry,
// for the Settings Builder. Requests come from standard input until its end, one per line
// (UTF-8, LF or CRLF; blank lines are skipped):
//   handler<TAB>{CLSID}<TAB>label   the default value of CLSID\{CLSID}\DefaultIcon
//   verb<TAB>root<TAB>verb path     the Icon value of <root>\shell\<verb>; a verb path of
//                                   several '\'-separated verbs names a nested verb, each
//                                   level under the previous one's "shell" key
// Keys are read from the per-user classes first and the machine's after, the way the merged
// classes root resolves them. Each request is answered at once with one JSON line:
//   {"request":{"kind":"handler","clsid":"{...}","label":"..."},"icon":"C:\\x.dll,-3"}
//   {"request":{"kind":"verb","root":"*","verbPath":"a\\b"},"icon":null,"reason":"..."}
// The icon is "path,index": environment strings expanded, quotes around the path removed, and
// ",0" added when the stored text names no index. A malformed line is answered with
//   {"line":<n>,"error":"..."}
// and the loop goes on. The exit code is 0 at the end of input.
//
// Reasons and errors (texts of the JSON lines):
//   "The handler '<clsid>' has no DefaultIcon key."
//   "The verb key '<root>\shell\<...>' does not exist."
//   "The key '<key>' has no icon value of type REG_SZ or REG_EXPAND_SZ."
//   "The icon value of '<key>' is empty."
//   "Line <n> has <k> fields; a request is 'handler<TAB>{CLSID}<TAB>label' or
//   'verb<TAB>root<TAB>verb path'." "Line <n> has the unknown request kind '<kind>'." "Line <n>
//   names '<text>', which is not a CLSID." "Line <n> has an empty root or verb path."

#include <optional>
#include <string>
#include <string_view>

namespace cmr {

struct IconRequest {
  bool handler = false;  // a handler request; otherwise a verb request
  std::wstring clsid;    // handler requests
  std::wstring label;
  std::wstring root;  // verb requests
  std::wstring verbPath;
};

// Pure: reads one request line (without its line end). On a malformed line returns nothing and
// sets `error` to its text; `lineNumber` counts from 1.
[[nodiscard]] std::optional<IconRequest> ParseIconRequest(std::wstring_view line, size_t lineNumber,
                                                          std::wstring& error);
// Pure: the registry key path (below the classes root) whose value draws a verb's icon.
[[nodiscard]] std::wstring VerbKeyPath(const std::wstring& root, const std::wstring& verbPath);
// Pure: "path,index" from an already expanded icon text.
[[nodiscard]] std::wstring IconLocation(std::wstring text);

// Reads standard input to its end and answers every line. Returns the exit code.
[[nodiscard]] int RunClassicIconsVerb();

}  // namespace cmr

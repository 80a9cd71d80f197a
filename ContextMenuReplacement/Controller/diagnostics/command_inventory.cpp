#include "diagnostics/command_inventory.h"

// clang-format off
// After win32.h: the lean Windows headers leave the COM interfaces out.
#include "common/win32.h"
#include <objbase.h>
#include <ocidl.h>
#include <shobjidl.h>
// clang-format on

#include "common/console.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/json_members.h"
#include "common/json_text.h"
#include "common/json_writer.h"
#include "common/system_error.h"
#include "diagnostics/provider_strikes.h"

namespace cmr {

Result<std::vector<InventoryCommand>> ParseCommandInventory(std::string_view text,
                                                            const std::wstring& path) {
  rapidjson::Document document;
  JsonParseFailure failure;
  if (!ParseJsonText(text, false, document, failure)) {
    return Failure(L"The command inventory '{}' is not valid JSON: {} (offset {}).", path,
                   failure.description, failure.offset);
  }
  const rapidjson::Value* commands = JsonMember(document, "commands");
  if (commands == nullptr || !commands->IsArray()) {
    return Failure(L"The command inventory '{}' has no 'commands' array.", path);
  }
  std::vector<InventoryCommand> table;
  for (rapidjson::SizeType i = 0; i < commands->Size(); ++i) {
    const rapidjson::Value& entry = (*commands)[i];
    InventoryCommand command;
    const std::pair<const char*, std::wstring*> strings[] = {
        {"identity", &command.identity},
        {"clsid", &command.clsid},
        {"canonicalName", &command.canonicalName},
        {"title", &command.title}};
    for (const auto& [key, target] : strings) {
      const rapidjson::Value* value = JsonMember(entry, key);
      if (value == nullptr || !value->IsString()) {
        return Failure(L"Command {} of the command inventory '{}' has no string '{}'.", i + 1, path,
                       FromUtf8(key));
      }
      *target = JsonWide(*value);
    }
    for (const auto& [key, target] : {strings[1], strings[2]}) {
      if (!IsClsidText(*target)) {
        return Failure(
            L"Command {} of the command inventory '{}' has '{}' as '{}', which is not a CLSID in "
            L"braces.",
            i + 1, path, *target, FromUtf8(key));
      }
    }
    const rapidjson::Value* families = JsonMember(entry, "families");
    bool familiesValid = families != nullptr && families->IsArray();
    for (rapidjson::SizeType f = 0; familiesValid && f < families->Size(); ++f) {
      familiesValid = (*families)[f].IsString();
      if (familiesValid) command.families.push_back(JsonWide((*families)[f]));
    }
    if (!familiesValid) {
      return Failure(
          L"Command {} of the command inventory '{}' has no 'families' array of strings.", i + 1,
          path);
    }
    table.push_back(std::move(command));
  }
  return table;
}

std::wstring CommandInventoryJson(const std::vector<InventoryCommand>& commands) {
  std::wstring line = L"[";
  for (const InventoryCommand& c : commands) {
    if (line.size() > 1) line += L',';
    line += L"{\"identity\":" + JsonQuote(c.identity) + L",\"clsid\":" + JsonQuote(c.clsid) +
            L",\"canonicalName\":" + JsonQuote(c.canonicalName) + L",\"title\":" +
            JsonQuote(c.title) + L",\"families\":" + JsonStringArray(c.families) + L"}";
  }
  return line + L"]";
}

std::wstring CommandInventoryPath() {
  return JoinPath(ExecutableFolder(), L"Content\\Inventory\\first-party-commands.json");
}

namespace {

// "<call> failed with 0x80040154: Class not registered." style tail of a probe line.
std::wstring HresultText(HRESULT hr) {
  return SystemTextSentence(fmt::format(L"0x{:08X}", static_cast<unsigned long>(hr)),
                            static_cast<DWORD>(hr));
}

template <typename T>
struct ComPtr {
  T* p = nullptr;
  ~ComPtr() {
    if (p != nullptr) p->Release();
  }
  void** put() { return reinterpret_cast<void**>(&p); }
};

// Prints the probe lines of one command; returns whether every probe passed.
bool ProbeCommand(const InventoryCommand& command) {
  CLSID clsid{};
  CLSID expected{};
  // The inventory's own identifiers, always well formed; a bad one leaves GUID_NULL, which the
  // probes below then report as not creatable.
  (void)::CLSIDFromString(command.clsid.c_str(), &clsid);
  (void)::CLSIDFromString(command.canonicalName.c_str(), &expected);
  ComPtr<IUnknown> object;
  const HRESULT created =
      ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, object.put());
  if (FAILED(created)) {
    PrintLine(L"    Activation: CoCreateInstance failed with %s", HresultText(created));
    return false;
  }
  PrintLine(L"    Activation: ok.");
  bool passed = true;
  ComPtr<IObjectWithSite> site;
  if (const HRESULT hr = object.p->QueryInterface(IID_IObjectWithSite, site.put()); FAILED(hr)) {
    PrintLine(L"    Site support: IObjectWithSite is missing, %s", HresultText(hr));
    passed = false;
  } else {
    PrintLine(L"    Site support: ok.");
  }
  ComPtr<IExplorerCommand> explorerCommand;
  GUID reported{};
  if (const HRESULT hr = object.p->QueryInterface(IID_IExplorerCommand, explorerCommand.put());
      FAILED(hr)) {
    PrintLine(L"    Canonical name: IExplorerCommand is missing, %s", HresultText(hr));
    return false;
  }
  if (const HRESULT hr = explorerCommand.p->GetCanonicalName(&reported); FAILED(hr)) {
    PrintLine(L"    Canonical name: GetCanonicalName failed with %s", HresultText(hr));
    return false;
  }
  if (!::IsEqualGUID(reported, expected)) {
    wchar_t text[40] = {};
    ::StringFromGUID2(reported, text, 40);
    PrintLine(L"    Canonical name: '%s' differs from '%s'.", std::wstring(text),
              command.canonicalName);
    return false;
  }
  PrintLine(L"    Canonical name: ok.");
  return passed;
}

}  // namespace

int RunInventoryVerb(bool json) {
  const std::wstring path = CommandInventoryPath();
  Result<std::string> text = ReadWholeFile(path);
  if (!text) {
    PrintLine(L"%s", text.message());
    return 1;
  }
  Result<std::vector<InventoryCommand>> table = ParseCommandInventory(text.value(), path);
  if (!table) {
    PrintLine(L"%s", table.message());
    return 1;
  }
  if (json) {
    PrintJsonLine(CommandInventoryJson(table.value()));
    return 0;
  }
  const HRESULT initialised = ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  if (FAILED(initialised)) {
    PrintLine(L"COM could not be initialised: %s", HresultText(initialised));
    return 1;
  }
  PrintLine(L"First-party command inventory (%zu commands):", table->size());
  bool passed = true;
  for (const InventoryCommand& command : table.value()) {
    std::wstring contexts;
    for (const std::wstring& family : command.families) {
      contexts += (contexts.empty() ? L"" : L", ") + family;
    }
    PrintLine(L"  %s '%s' %s", command.identity, command.title, command.clsid);
    PrintLine(L"    Contexts: %s", contexts);
    passed &= ProbeCommand(command);
  }
  ::CoUninitialize();
  return passed ? 0 : 1;
}

}  // namespace cmr

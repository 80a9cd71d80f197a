#include "config/menu_document.h"

#include <fmt/xchar.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstring>

#include "common/file_io.h"
#include "common/json_text.h"
#include "common/unique_handle.h"
#include "common/win32.h"
// CLSIDFromString; not part of the lean windows.h.
#include <objbase.h>

#include "config/json_path.h"

namespace cmr {

namespace {

// The value as the user wrote it, for messages: strings without quotes, anything else as JSON.
std::wstring ValueText(const rapidjson::Value& value) {
  if (value.IsString()) return JsonWide(value);
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return FromUtf8(std::string_view(buffer.GetString(), buffer.GetSize()));
}

// Interns a string value. Plain ASCII of ordinary length, by far the common case, is widened
// on the stack instead of through a fresh conversion per string.
StringRef InternValue(StringPool& pool, const rapidjson::Value& value) {
  const char* text = value.GetString();
  const size_t length = value.GetStringLength();
  wchar_t buffer[512];
  if (length > std::size(buffer)) return pool.Intern(JsonWide(value));
  for (size_t i = 0; i < length; ++i) {
    const auto unit = static_cast<unsigned char>(text[i]);
    if (unit >= 0x80) return pool.Intern(JsonWide(value));
    buffer[i] = static_cast<wchar_t>(unit);
  }
  return pool.Intern(std::wstring_view(buffer, length));
}

uint32_t ContextBitOf(const rapidjson::Value& word) {
  const std::string_view text(word.GetString(), word.GetStringLength());
  if (text == "desktop-background") return kContextDesktopBackground;
  if (text == "folder-background") return kContextFolderBackground;
  if (text == "folder-item") return kContextFolderItem;
  if (text == "other-item") return kContextOtherItem;
  return 0;
}

bool NonEmptyString(const rapidjson::Value* value) {
  return value && value->IsString() && value->GetStringLength() > 0;
}

// Item paths are only formatted when a message needs one; most items never do.
struct ItemPath {
  const JsonPath& profile;
  size_t index;
  [[nodiscard]] JsonPath Get() const { return profile.Key(L"items").Index(index); }
};

// The optional "command" of a modern item, into `record`; false after reporting a bad one.
bool ParseModernCommand(const rapidjson::Value& item, const ItemPath& where, ItemRecord& record,
                        MessageList& errors) {
  const rapidjson::Value* command = JsonMember(item, "command");
  if (!command) return true;
  const std::wstring text = ValueText(*command);
  CLSID clsid{};
  // CLSIDFromString also resolves a ProgID through this machine's registry; only the
  // braced form names the same command on every machine.
  const bool braced = text.size() == 38 && text.front() == L'{' && text.back() == L'}';
  if (!command->IsString() || !braced || FAILED(::CLSIDFromString(text.c_str(), &clsid))) {
    errors.push_back(
        fmt::format(L"{}: 'command' must be a CLSID in braces, for example "
                    L"\"{{A2877438-9A16-4629-912A-1223B4E3B025}}\". Got '{}'.",
                    where.Get(), text));
    return false;
  }
  static_assert(sizeof(clsid) == sizeof(record.command));
  std::memcpy(record.command.data(), &clsid, sizeof(clsid));
  return true;
}

// A user command's fields, into `record` and the argument list; false after reporting every
// fault found.
bool ParseUserItem(const rapidjson::Value& item, const ItemPath& where, ItemRecord& record,
                   MenuConfiguration& config, MessageList& errors) {
  bool ok = true;
  const rapidjson::Value* arguments = JsonMember(item, "arguments");
  if (arguments) {
    if (!arguments->IsArray()) {
      errors.push_back(fmt::format(
          L"{}: 'arguments' must be an array of strings. Each argument is passed as one token "
          L"and is never concatenated into a shell command.",
          where.Get()));
      ok = false;
    } else {
      // Too many and not a string are both reported: parsing collects what it can.
      if (arguments->Size() > kMaxUserArguments) {
        errors.push_back(fmt::format(L"{}: {} arguments exceeds the limit of {}.", where.Get(),
                                     arguments->Size(), kMaxUserArguments));
        ok = false;
      }
      for (rapidjson::SizeType a = 0; a < arguments->Size(); ++a) {
        if (!(*arguments)[a].IsString()) {
          errors.push_back(
              fmt::format(L"{} must be a string.", where.Get().Key(L"arguments").Index(a)));
          ok = false;
        }
      }
    }
  }
  const rapidjson::Value* executable = JsonMember(item, "executable");
  if (!NonEmptyString(executable)) {
    errors.push_back(
        fmt::format(L"{}: a user command needs a non-empty 'executable'.", where.Get()));
    ok = false;
  }
  const rapidjson::Value* title = JsonMember(item, "title");
  if (!NonEmptyString(title)) {
    errors.push_back(fmt::format(L"{}: a user command needs a non-empty 'title'.", where.Get()));
    ok = false;
  }
  if (!ok) return false;

  record.source = ItemSource::user;
  record.title = InternValue(config.pool, *title);
  record.executable = InternValue(config.pool, *executable);
  if (arguments) {
    record.argumentCount = arguments->Size();
    for (const rapidjson::Value& argument : arguments->GetArray()) {
      config.arguments.push_back(InternValue(config.pool, argument));
    }
  }
  return true;
}

// Classifies and, when acceptable, appends one item. Returns whether it was appended.
bool ParseItem(const rapidjson::Value& item, const ItemPath& where, MenuConfiguration& config,
               MessageList& errors, MessageList& warnings) {
  if (!item.IsObject()) {
    errors.push_back(fmt::format(L"{} must be an object.", where.Get()));
    return false;
  }
  ItemRecord record;
  record.firstArgument = static_cast<uint32_t>(config.arguments.size());
  if (JsonStringIs(JsonMember(item, "type"), "separator")) {
    record.source = ItemSource::separator;
    config.items.push_back(record);
    return true;
  }
  const rapidjson::Value* source = JsonMember(item, "source");
  if (JsonStringIs(source, "classic")) {
    const rapidjson::Value* include = JsonMember(item, "include");
    if (include && include->IsString() && !JsonStringIs(include, "*")) {
      warnings.push_back(fmt::format(
          L"{}: only \"include\": \"*\" is supported for the classic source; the whole captured "
          L"menu will be shown.",
          where.Get()));
    }
    record.source = ItemSource::classic;
    config.items.push_back(record);
    return true;
  }
  if (JsonStringIs(source, "modern")) {
    record.source = ItemSource::modern;
    if (!ParseModernCommand(item, where, record, errors)) return false;
    config.items.push_back(record);
    return true;
  }
  if (!JsonStringIs(source, "user")) {
    errors.push_back(fmt::format(
        L"{}: 'source' must be classic, modern or user, or the item must have \"type\": "
        L"\"separator\".",
        where.Get()));
    return false;
  }

  if (!ParseUserItem(item, where, record, config, errors)) return false;
  config.items.push_back(record);
  ++config.userCommandCount;
  return true;
}

void ParseProfile(const rapidjson::Value& profile, const JsonPath& path, MenuConfiguration& config,
                  MessageList& errors, MessageList& warnings) {
  if (!profile.IsObject()) {
    errors.push_back(fmt::format(L"{} must be an object.", path));
    return;
  }
  const rapidjson::Value* match = JsonMember(profile, "match");
  const rapidjson::Value* contexts = match ? JsonMember(*match, "context") : nullptr;
  if (!contexts || !contexts->IsArray()) {
    errors.push_back(fmt::format(L"{} needs a 'match' object with a 'context' array.", path));
    return;
  }
  const JsonPath contextPath = path.Key(L"match").Key(L"context");
  uint32_t mask = 0;
  for (rapidjson::SizeType j = 0; j < contexts->Size(); ++j) {
    const rapidjson::Value& word = (*contexts)[j];
    if (!word.IsString()) {
      errors.push_back(fmt::format(L"{} must be a string.", contextPath.Index(j)));
      continue;
    }
    const uint32_t bit = ContextBitOf(word);
    if (bit == 0) {
      warnings.push_back(fmt::format(
          L"{} is '{}', which is not a known context, and was skipped. Use desktop-background, "
          L"folder-background, folder-item or other-item.",
          contextPath.Index(j), JsonWide(word)));
    }
    mask |= bit;
  }
  if (mask == 0) {
    warnings.push_back(fmt::format(
        L"{} matches no known context (all entries were unrecognized), so it was skipped.", path));
    return;
  }
  const rapidjson::Value* items = JsonMember(profile, "items");
  if (!items || !items->IsArray()) {
    errors.push_back(fmt::format(L"{} needs an 'items' array.", path));
    return;
  }
  ProfileRecord record;
  record.contextMask = mask;
  record.firstItem = static_cast<uint32_t>(config.items.size());
  for (rapidjson::SizeType k = 0; k < items->Size(); ++k) {
    if (ParseItem((*items)[k], ItemPath{path, k}, config, errors, warnings)) ++record.itemCount;
  }
  if (record.itemCount == 0) {
    warnings.push_back(
        fmt::format(L"{} has no usable items, so its contexts will show an empty menu.", path));
  }
  // Recorded even when empty: an empty menu for these contexts is what the user asked for.
  config.profiles.push_back(record);
}

}  // namespace

bool ParseModifierMask(std::wstring_view text, uint32_t& mask) {
  uint32_t result = 0;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find_first_of(L"+ ", start);
    if (end == std::wstring_view::npos) end = text.size();
    const std::wstring_view piece = text.substr(start, end - start);
    if (!piece.empty()) {
      if (EqualsIgnoreCase(piece, L"ctrl") || EqualsIgnoreCase(piece, L"control")) {
        result |= kModifierControl;
      } else if (EqualsIgnoreCase(piece, L"shift")) {
        result |= kModifierShift;
      } else if (EqualsIgnoreCase(piece, L"alt")) {
        result |= kModifierAlt;
      } else if (!EqualsIgnoreCase(piece, L"none")) {
        return false;
      }
    }
    start = end + 1;
  }
  mask = result;
  return true;
}

bool ParseMenuDocument(const rapidjson::Value& document, MenuConfiguration& configuration,
                       MessageList& errors, MessageList& warnings) {
  const size_t errorsBefore = errors.size();
  if (!document.IsObject()) {
    errors.push_back(L"The top level of the file must be a JSON object.");
    return false;
  }
  if (const rapidjson::Value* enabled = JsonMember(document, "enabled")) {
    if (enabled->IsBool()) {
      configuration.enabled = enabled->GetBool();
    } else {
      errors.push_back(L"'enabled' must be true or false.");
    }
  }
  if (const rapidjson::Value* bypass = JsonMember(document, "nativeMenuBypass")) {
    if (!bypass->IsString()) {
      errors.push_back(L"'nativeMenuBypass' must be a string such as \"Ctrl+Shift\".");
    } else if (!ParseModifierMask(JsonWide(*bypass), configuration.bypassMask)) {
      errors.push_back(fmt::format(
          L"'nativeMenuBypass' value '{}' is not understood. Use Ctrl, Shift, Alt or None, "
          L"combined with '+'.",
          JsonWide(*bypass)));
    }
  }
  if (const rapidjson::Value* opacity = JsonMember(document, "backgroundOpacityPercent")) {
    if (opacity->IsUint() && opacity->GetUint() <= 100) {
      configuration.opacityPercent = opacity->GetUint();
    } else {
      errors.push_back(L"'backgroundOpacityPercent' must be a whole number from 0 to 100.");
    }
  }
  return ParseMenuProfiles(JsonMember(document, "profiles"), configuration, errors, warnings) &&
         errors.size() == errorsBefore;
}

bool ParseMenuProfiles(const rapidjson::Value* profiles, MenuConfiguration& configuration,
                       MessageList& errors, MessageList& warnings) {
  const size_t errorsBefore = errors.size();
  if (!profiles || !profiles->IsArray()) {
    errors.push_back(L"'profiles' is required and must be an array.");
    return false;
  }
  // Sized once from the document instead of doubling their way up item by item: near the size
  // limit these are megabyte blocks, and every fresh one costs its page faults.
  size_t itemCount = 0, argumentCount = 0, stringCount = 0, stringUnits = 0;
  const auto countString = [&](const rapidjson::Value* value) {
    if (value && value->IsString()) {
      ++stringCount;
      stringUnits += value->GetStringLength() + 1;
    }
  };
  for (const rapidjson::Value& profile : profiles->GetArray()) {
    const rapidjson::Value* items = JsonMember(profile, "items");
    if (!items || !items->IsArray()) continue;
    itemCount += items->Size();
    for (const rapidjson::Value& item : items->GetArray()) {
      countString(JsonMember(item, "title"));
      countString(JsonMember(item, "executable"));
      const rapidjson::Value* arguments = JsonMember(item, "arguments");
      if (!arguments || !arguments->IsArray()) continue;
      argumentCount += arguments->Size();
      for (const rapidjson::Value& argument : arguments->GetArray()) countString(&argument);
    }
  }
  configuration.profiles.reserve(configuration.profiles.size() + profiles->Size());
  configuration.items.reserve(configuration.items.size() + itemCount);
  configuration.arguments.reserve(configuration.arguments.size() + argumentCount);
  configuration.pool.Reserve(stringUnits, stringCount);
  const JsonPath profilesPath(L"profiles");
  for (rapidjson::SizeType i = 0; i < profiles->Size(); ++i) {
    ParseProfile((*profiles)[i], profilesPath.Index(i), configuration, errors, warnings);
  }
  return errors.size() == errorsBefore;
}

std::string_view StarterDocumentText() noexcept {
  static constexpr char kText[] =
      "// Brenlowpack - replacement context menu.\n"
      "//\n"
      "// Saved changes take effect on the NEXT menu. Explorer does not need to\n"
      "// restart. Run 'Controller.exe config watch' to publish on save, or\n"
      "// 'Controller.exe config publish' once.\n"
      "//\n"
      "// Contexts: desktop-background, folder-background, folder-item and other-item.\n"
      "// The first profile matching a context wins.\n"
      "//\n"
      "// Item sources:\n"
      "//   { \"source\": \"classic\", \"include\": \"*\" }  Explorer's own entries\n"
      "//   { \"source\": \"modern\" }                    our IExplorerCommand entries\n"
      "//   { \"type\": \"separator\" }\n"
      "//   { \"source\": \"user\", ... }                 runs a program you name\n"
      "//\n"
      "// A user command's executable and arguments are stored as separate tokens\n"
      "// and are never concatenated into a shell command line. {targetPath},\n"
      "// {targetDir} and {targetName} are replaced with what was right-clicked.\n"
      "{\n"
      "  \"enabled\": true,\n"
      "  \"nativeMenuBypass\": \"Ctrl+Shift\",\n"
      "  \"profiles\": [\n"
      "    {\n"
      "      \"match\": { \"context\": [\"folder-item\", \"folder-background\", "
      "\"desktop-background\"] },\n"
      "      \"items\": [\n"
      "        { \"source\": \"modern\" },\n"
      "        { \"type\": \"separator\" },\n"
      "        {\n"
      "          \"source\": \"user\",\n"
      "          \"title\": \"Open PowerShell here\",\n"
      "          \"executable\": \"powershell.exe\",\n"
      "          \"arguments\": [\"-NoExit\", \"-Command\", \"Set-Location -LiteralPath "
      "$args[0]\", \"{targetDir}\"]\n"
      "        },\n"
      "        { \"type\": \"separator\" },\n"
      "        { \"source\": \"classic\", \"include\": \"*\" }\n"
      "      ]\n"
      "    },\n"
      "    {\n"
      "      \"match\": { \"context\": [\"other-item\"] },\n"
      "      \"items\": [\n"
      "        { \"source\": \"modern\" },\n"
      "        { \"type\": \"separator\" },\n"
      "        { \"source\": \"classic\", \"include\": \"*\" }\n"
      "      ]\n"
      "    }\n"
      "  ]\n"
      "}\n";
  return std::string_view(kText, sizeof(kText) - 1);
}

Status WriteStarterDocument(const std::wstring& path) {
  Status written = WriteNewFile(path, StarterDocumentText());
  if (written.systemError() == ERROR_FILE_EXISTS || written.systemError() == ERROR_ALREADY_EXISTS) {
    return Failure(L"'{}' already exists; refusing to overwrite it.", path);
  }
  return written;
}

}  // namespace cmr

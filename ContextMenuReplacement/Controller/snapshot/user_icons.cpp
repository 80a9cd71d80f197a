#include "snapshot/user_icons.h"

#include <fmt/xchar.h>

#include <cstring>
#include <map>
#include <vector>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/unique_handle.h"
#include "common/win32.h"
#include "model/command_identity.h"

namespace cmr {
namespace {

uint64_t Fnv1a(std::wstring_view text) {
  uint64_t hash = 0xcbf29ce484222325ULL;
  for (const wchar_t unit : text) {
    hash ^= static_cast<uint16_t>(unit);
    hash *= 0x100000001b3ULL;
  }
  return hash;
}

// The name of the first icon group of a module: an integer id or a string.
struct GroupName {
  ULONG_PTR id = 0;
  std::wstring text;
  bool found = false;
};

BOOL CALLBACK TakeFirstGroup(HMODULE, LPCWSTR, LPWSTR name, LONG_PTR param) {
  auto* group = reinterpret_cast<GroupName*>(param);
  if (IS_INTRESOURCE(name)) {
    group->id = reinterpret_cast<ULONG_PTR>(name);
  } else {
    group->text = name;
  }
  group->found = true;
  return FALSE;  // the first one is all we want
}

std::string_view ResourceBytes(HMODULE module, LPCWSTR name, LPCWSTR type) {
  HRSRC found = ::FindResourceW(module, name, type);
  if (found == nullptr) return {};
  HGLOBAL loaded = ::LoadResource(module, found);
  const void* bytes = loaded != nullptr ? ::LockResource(loaded) : nullptr;
  if (bytes == nullptr) return {};
  return {static_cast<const char*>(bytes), ::SizeofResource(module, found)};
}

uint16_t U16(std::string_view bytes, size_t at) {
  uint16_t value = 0;
  std::memcpy(&value, bytes.data() + at, 2);
  return value;
}

// An ".ico" file holding every image of the module's first icon group. The group directory
// (6 bytes, then 14-byte entries naming RT_ICON resources by id) becomes the file's directory
// (6 bytes, then 16-byte entries with the image's file offset), followed by the images.
std::string IconFromModule(const std::wstring& source) {
  const UniqueHmodule module(::LoadLibraryExW(
      source.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE));
  if (!module) return {};
  GroupName group;
  // The callback ends the enumeration at the first group, which reads as a failure; `found` is
  // the answer.
  (void)::EnumResourceNamesW(module.get(), MAKEINTRESOURCEW(14) /* RT_GROUP_ICON */, TakeFirstGroup,
                             reinterpret_cast<LONG_PTR>(&group));
  if (!group.found) return {};
  const std::string_view directory = ResourceBytes(
      module.get(), group.text.empty() ? MAKEINTRESOURCEW(group.id) : group.text.c_str(),
      MAKEINTRESOURCEW(14));
  if (directory.size() < 6) return {};
  const size_t count = U16(directory, 4);
  if (count == 0 || directory.size() < 6 + 14 * count) return {};
  std::string file(6 + 16 * count, '\0');
  std::memcpy(file.data(), directory.data(), 6);
  for (size_t i = 0; i < count; ++i) {
    const size_t entry = 6 + 14 * i;
    const std::string_view image = ResourceBytes(
        module.get(), MAKEINTRESOURCEW(U16(directory, entry + 12)), MAKEINTRESOURCEW(3));
    if (image.empty()) return {};
    const auto offset = static_cast<uint32_t>(file.size());
    const auto size = static_cast<uint32_t>(image.size());
    std::memcpy(&file[6 + 16 * i], directory.data() + entry, 8);  // sizes, colours, planes, bits
    std::memcpy(&file[6 + 16 * i + 8], &size, 4);
    std::memcpy(&file[6 + 16 * i + 12], &offset, 4);
    file.append(image);
  }
  return file;
}

// The first image of an ".ico" source as a one-image ".ico".
std::string IconFromIcoFile(const std::string& bytes) {
  if (bytes.size() < 22 || U16(bytes, 0) != 0 || U16(bytes, 2) != 1 || U16(bytes, 4) == 0) {
    return {};
  }
  uint32_t size = 0, offset = 0;
  std::memcpy(&size, bytes.data() + 14, 4);
  std::memcpy(&offset, bytes.data() + 18, 4);
  if (offset > bytes.size() || size > bytes.size() - offset) return {};
  std::string file = bytes.substr(0, 22);
  file[4] = 1, file[5] = 0;
  const uint32_t first = 22;
  std::memcpy(&file[18], &first, 4);
  return file + bytes.substr(offset, size);
}

}  // namespace

std::wstring UserIconCachePath(std::wstring_view iconSource) {
  return JoinPath(JoinPath(ProductFolder(), L"user-icons"),
                  fmt::format(L"{:016x}.ico", Fnv1a(iconSource)));
}

bool ExtractFirstIcon(const std::wstring& iconSource, const std::wstring& target) {
  // Read from the file's resources rather than through ExtractIconExW: that makes icon
  // handles, which needs the window station, and under Wine starts a desktop process that
  // inherits the caller's standard handles and keeps a reader's pipe open.
  std::string icon;
  if (const Result<std::string> bytes = ReadWholeFile(iconSource);
      bytes && bytes->size() >= 2 && bytes->substr(0, 2) != "MZ") {
    icon = IconFromIcoFile(bytes.value());
  } else if (bytes) {
    icon = IconFromModule(iconSource);
  }
  if (icon.empty()) return false;
  return EnsureDirectories(ParentFolder(target)).ok() && AtomicWriteFile(target, icon).ok();
}

void CacheUserCommandIcons(ModelDocument& model) {
  if (model.schemaVersion >= 3) return;
  std::map<std::wstring, std::wstring> cached;  // source -> cached file, "" when none
  auto cache = [&](const std::wstring& source) -> std::wstring {
    if (source.empty()) return {};
    const auto found = cached.find(source);
    if (found != cached.end()) return found->second;
    std::wstring target = UserIconCachePath(source);
    if (!ExtractFirstIcon(source, target)) target.clear();
    return cached.emplace(source, std::move(target)).first->second;
  };
  for (CommandDefinition& definition : model.definitions) {
    definition.cachedIcon = cache(definition.iconPath);
  }
  std::vector<std::vector<ModelNode>*> pending;
  for (Layout& layout : model.layouts) pending.push_back(&layout.items);
  while (!pending.empty()) {
    std::vector<ModelNode>& items = *pending.back();
    pending.pop_back();
    for (ModelNode& node : items) {
      if (ClassifyIdentity(node.commandId) == IdentityKind::user) {
        node.cachedIcon = cache(node.iconPath);
      }
      pending.push_back(&node.items);
    }
  }
}

}  // namespace cmr

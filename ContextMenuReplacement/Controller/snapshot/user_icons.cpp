#include "snapshot/user_icons.h"

#include <fmt/xchar.h>
#include <shlobj.h>

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

// The rows of one bitmap as a bottom-up DIB of `bits` per pixel.
bool ReadBits(HDC dc, HBITMAP bitmap, int width, int height, WORD bits, std::string& out) {
  BITMAPINFO info{};
  info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
  info.bmiHeader.biWidth = width;
  info.bmiHeader.biHeight = height;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = bits;
  info.bmiHeader.biCompression = BI_RGB;
  const size_t stride = ((static_cast<size_t>(width) * bits + 31) / 32) * 4;
  out.assign(stride * static_cast<size_t>(height), '\0');
  // 1-bit DIBs carry a two-entry colour table after the header.
  std::vector<unsigned char> header(sizeof(BITMAPINFOHEADER) + 2 * sizeof(RGBQUAD));
  std::memcpy(header.data(), &info, sizeof(BITMAPINFOHEADER));
  return ::GetDIBits(dc, bitmap, 0, static_cast<UINT>(height), out.data(),
                     reinterpret_cast<BITMAPINFO*>(header.data()), DIB_RGB_COLORS) == height;
}

}  // namespace

std::wstring UserIconCachePath(std::wstring_view iconSource) {
  return JoinPath(JoinPath(ProductFolder(), L"user-icons"),
                  fmt::format(L"{:016x}.ico", Fnv1a(iconSource)));
}

bool ExtractFirstIcon(const std::wstring& iconSource, const std::wstring& target) {
  HICON raw = nullptr;
  if (::ExtractIconExW(iconSource.c_str(), 0, &raw, nullptr, 1) == 0 || raw == nullptr) {
    return false;
  }
  const UniqueHicon icon(raw);
  ICONINFO info{};
  if (!::GetIconInfo(icon.get(), &info)) return false;
  const UniqueGdiObject color(info.hbmColor), mask(info.hbmMask);
  if (!color || !mask) return false;  // monochrome icons are not cached
  BITMAP shape{};
  if (::GetObjectW(color.get(), sizeof(shape), &shape) == 0) return false;
  const int width = shape.bmWidth, height = shape.bmHeight;
  if (width <= 0 || height <= 0 || width > 256 || height > 256) return false;
  const UniqueMemoryDc dc(::CreateCompatibleDC(nullptr));
  std::string pixels, andMask;
  if (!dc || !ReadBits(dc.get(), static_cast<HBITMAP>(color.get()), width, height, 32, pixels) ||
      !ReadBits(dc.get(), static_cast<HBITMAP>(mask.get()), width, height, 1, andMask)) {
    return false;
  }
  // ICONDIR (6 bytes), one ICONDIRENTRY (16), then the image: a BITMAPINFOHEADER whose height
  // counts the colour and the mask rows, the 32-bit pixels, the 1-bit AND mask.
  const uint32_t imageBytes = 40 + static_cast<uint32_t>(pixels.size() + andMask.size());
  std::string file(22 + imageBytes, '\0');
  auto put16 = [&](size_t at, uint16_t v) { std::memcpy(&file[at], &v, 2); };
  auto put32 = [&](size_t at, uint32_t v) { std::memcpy(&file[at], &v, 4); };
  put16(2, 1);  // type: icon
  put16(4, 1);  // one image
  file[6] = static_cast<char>(width == 256 ? 0 : width);
  file[7] = static_cast<char>(height == 256 ? 0 : height);
  put16(10, 1);   // planes
  put16(12, 32);  // bits per pixel
  put32(14, imageBytes);
  put32(18, 22);
  put32(22, 40);
  put32(26, static_cast<uint32_t>(width));
  put32(30, static_cast<uint32_t>(2 * height));
  put16(34, 1);
  put16(36, 32);
  put32(42, static_cast<uint32_t>(pixels.size() + andMask.size()));
  std::memcpy(&file[62], pixels.data(), pixels.size());
  std::memcpy(&file[62 + pixels.size()], andMask.data(), andMask.size());
  return EnsureDirectories(ParentFolder(target)).ok() && AtomicWriteFile(target, file).ok();
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

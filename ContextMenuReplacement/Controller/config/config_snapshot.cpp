#include "config/config_snapshot.h"

#include <fmt/xchar.h>

#include <algorithm>

#include "common/byte_image.h"

namespace cmr {

namespace {

// Converts a size that the 1 MiB limit keeps far below 4 GiB; an absurd configuration still only
// produces a wrong offset inside a buffer that is refused for its size.
uint32_t U32(uint64_t value) {
  return static_cast<uint32_t>(value);
}

void PutStringRef(ByteImageWriter& out, size_t offset, StringRef ref) {
  out.PutU32(offset, ref.offset);
  out.PutU32(offset + 4, ref.length);
}

// Copies at most `capacity - 1` units so the field always ends in a zero unit.
void PutFixedText(ByteImageWriter& out, size_t offset, const std::wstring& text, size_t capacity) {
  const size_t count = std::min(text.size(), capacity - 1);
  std::u16string units(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(count));
  out.PutUnits(offset, units.data(), units.size());
}

}  // namespace

SnapshotLayout LayoutSnapshot(const MenuConfiguration& configuration) noexcept {
  SnapshotLayout layout;
  layout.profilesOffset = kSnapshotHeaderBytes;
  layout.itemsOffset =
      U32(Align8(layout.profilesOffset + kProfileRowBytes * configuration.profiles.size()));
  layout.argumentsOffset =
      U32(Align8(layout.itemsOffset + kItemRowBytes * configuration.items.size()));
  layout.poolOffset =
      U32(layout.argumentsOffset + kStringRefBytes * configuration.arguments.size());
  layout.totalBytes = Align8(layout.poolOffset + configuration.pool.byteSize());
  return layout;
}

std::string FlattenConfiguration(const MenuConfiguration& configuration, uint32_t version) {
  const SnapshotLayout layout = LayoutSnapshot(configuration);
  ByteImageWriter out(layout.totalBytes);
  // The header's twelve words in the order of the format above.
  const uint32_t header[] = {kConfigMagic,
                             kConfigLayout,
                             version,
                             U32(layout.totalBytes),
                             U32(configuration.profiles.size()),
                             layout.profilesOffset,
                             U32(configuration.items.size()),
                             layout.itemsOffset,
                             U32(configuration.arguments.size()),
                             layout.argumentsOffset,
                             layout.poolOffset,
                             U32(configuration.pool.byteSize())};
  static_assert(sizeof(header) == kSnapshotHeaderBytes);
  for (size_t i = 0; i < std::size(header); ++i) out.PutU32(4 * i, header[i]);

  size_t at = layout.profilesOffset;
  for (const ProfileRecord& profile : configuration.profiles) {
    out.PutU32(at, profile.contextMask);
    out.PutU32(at + 4, profile.firstItem);
    out.PutU32(at + 8, profile.itemCount);
    at += kProfileRowBytes;
  }
  at = layout.itemsOffset;
  for (const ItemRecord& item : configuration.items) {
    out.PutU32(at, static_cast<uint32_t>(item.source));
    PutStringRef(out, at + 4, item.title);
    PutStringRef(out, at + 12, item.executable);
    out.PutU32(at + 20, item.firstArgument);
    out.PutU32(at + 24, item.argumentCount);
    out.PutBytes(at + 28, item.command.data(), item.command.size());
    at += kItemRowBytes;
  }
  at = layout.argumentsOffset;
  for (const StringRef& argument : configuration.arguments) {
    PutStringRef(out, at, argument);
    at += kStringRefBytes;
  }
  const std::vector<char16_t>& units = configuration.pool.units();
  out.PutUnits(layout.poolOffset, units.data(), units.size());
  return out.take();
}

std::string EncodeControlBlock(const MenuConfiguration& configuration, uint32_t version) {
  const AppearanceGlobals& a = configuration.appearance;
  ByteImageWriter out(kControlBytes);
  out.PutU32(0, kConfigMagic);
  out.PutU32(4, kConfigLayout);
  out.PutU32(8, version);
  // The Hook treats 0 as "not configured"; a fully transparent menu is not offered.
  const uint32_t opacity =
      configuration.opacityPercent == 0 ? kDefaultOpacityPercent : configuration.opacityPercent;
  // Words in the order of the format above, from the first global to "show separators" and from
  // "image fill" to the end.
  const uint32_t leading[] = {configuration.enabled ? 1u : 0u,
                              configuration.bypassMask,
                              opacity,
                              a.fontWeight,
                              a.fontSizeDip,
                              a.iconSizeDip,
                              a.menuHorizontalPaddingDip,
                              a.menuVerticalPaddingDip,
                              a.itemHorizontalMarginDip,
                              a.itemVerticalMarginDip,
                              a.separatorIntensityPercent,
                              a.showAccessKeys,
                              a.backgroundMode,
                              a.customBackgroundColor,
                              a.customForegroundColor,
                              a.customForegroundEnabled,
                              a.showBandLabels,
                              a.animationDurationMs,
                              a.showHotkeys,
                              a.showSeparators};
  const uint32_t trailing[] = {a.backgroundImageFill, a.backgroundImageOpacityPercent,
                               a.hoverOpacityPercent, a.snapshotBlurEnabled ? 0u : 1u,
                               a.menuMinimumWidthDip, a.surfaceOptOutMask,
                               a.customHeaderColor,   a.customHeaderEnabled,
                               a.customHotkeyColor,   a.customHotkeyEnabled,
                               a.menuMaximumWidthDip};
  static_assert(kControlGlobalsOffset + sizeof(leading) == kControlFontFamilyOffset);
  static_assert(kControlTrailingOffset + sizeof(trailing) == kControlBytes);
  for (size_t i = 0; i < std::size(leading); ++i) {
    out.PutU32(kControlGlobalsOffset + 4 * i, leading[i]);
  }
  PutFixedText(out, kControlFontFamilyOffset, a.fontFamily, kFontFamilyUnits);
  PutFixedText(out, kControlImagePathOffset, a.backgroundImagePath, kImagePathUnits);
  for (size_t i = 0; i < std::size(trailing); ++i) {
    out.PutU32(kControlTrailingOffset + 4 * i, trailing[i]);
  }
  return out.take();
}

Status CheckSnapshotImage(std::string_view image, uint32_t expectedVersion) {
  ByteImageReader in(image);
  const uint32_t magic = in.U32(0);
  const uint32_t layout = in.U32(4);
  const uint32_t version = in.U32(8);
  const uint64_t total = in.U32(12);
  const uint64_t profileCount = in.U32(16);
  const uint64_t profilesOffset = in.U32(20);
  const uint64_t itemCount = in.U32(24);
  const uint64_t itemsOffset = in.U32(28);
  const uint64_t argumentCount = in.U32(32);
  const uint64_t argumentsOffset = in.U32(36);
  const uint64_t poolOffset = in.U32(40);
  const uint64_t poolBytes = in.U32(44);
  if (in.failed()) return Status::Failure(L"The snapshot is shorter than its header.");
  if (magic != kConfigMagic || layout != kConfigLayout)
    return Status::Failure(L"The snapshot has a foreign magic or layout.");
  if (version != expectedVersion) {
    return Failure(L"The snapshot is version {}, not {}.", version, expectedVersion);
  }
  if (total != image.size()) return Status::Failure(L"The snapshot's totalBytes is not its size.");
  if (profilesOffset != kSnapshotHeaderBytes ||
      itemsOffset < profilesOffset + kProfileRowBytes * profileCount ||
      argumentsOffset < itemsOffset + kItemRowBytes * itemCount ||
      poolOffset < argumentsOffset + kStringRefBytes * argumentCount || poolBytes % 2 != 0 ||
      poolOffset + poolBytes > total) {
    return Status::Failure(L"A region of the snapshot lies outside it or overlaps another.");
  }
  const uint64_t poolUnits = poolBytes / 2;
  auto stringInside = [&](uint64_t at) {
    const uint64_t offset = in.U32(at);
    const uint64_t length = in.U32(at + 4);
    if (offset == 0 && length == 0) return true;
    return offset + length < poolUnits && in.Unit(poolOffset + 2 * (offset + length)) == 0;
  };
  for (uint64_t p = 0; p < profileCount; ++p) {
    const uint64_t at = profilesOffset + kProfileRowBytes * p;
    if (uint64_t{in.U32(at + 4)} + in.U32(at + 8) > itemCount) {
      return Failure(L"Profile {} names items outside the item region.", p);
    }
  }
  for (uint64_t i = 0; i < itemCount; ++i) {
    const uint64_t at = itemsOffset + kItemRowBytes * i;
    if (in.U32(at) > static_cast<uint32_t>(ItemSource::separator) ||
        uint64_t{in.U32(at + 20)} + in.U32(at + 24) > argumentCount || !stringInside(at + 4) ||
        !stringInside(at + 12)) {
      return Failure(L"Item {} is malformed.", i);
    }
  }
  for (uint64_t a = 0; a < argumentCount; ++a) {
    if (!stringInside(argumentsOffset + kStringRefBytes * a)) {
      return Failure(L"Argument {} lies outside the string pool.", a);
    }
  }
  if (in.failed()) return Status::Failure(L"A row of the snapshot lies outside it.");
  return {};
}

}  // namespace cmr

#pragma once
// The two files the Hook reads on every menu, and the code that lays them out.
//
// Both live in the `published` folder. All integers are little-endian u32, all strings UTF-16LE.
// Both files begin with magic 0x424E43D5 (bytes D5 43 4E 42) and layout 18; the layout is the
// format version of the pair, and a reader that finds another one must treat both files as
// unusable and fall back to its built-in behaviour.
//
// control.bin: exactly 720 bytes, mapped by readers and writers alike.
//   0 magic | 4 layout | 8 version: the number n of the current snapshot-<n>.bin
//  12 enabled (0/1)           16 bypass modifier mask (MOD_ALT 1, MOD_CONTROL 2, MOD_SHIFT 4)
//  20 background opacity %, 0 written as 78
//  24 font weight             28 font size dip          32 icon size dip
//  36 menu padding h dip      40 menu padding v dip     44 item margin h dip
//  48 item margin v dip       52 separator intensity %  56 show access keys (0/1)
//  60 background mode (system 0, light 1, dark 2, custom 3)
//  64 custom background COLORREF   68 custom foreground COLORREF   72 custom foreground on
//  76 show band labels        80 animation ms           84 show hotkeys    88 show separators
//  92 font family, 32 units zero-terminated and zero-padded
// 156 background image path, 260 units zero-terminated and zero-padded
// 676 image fill (stretch 0, cover 1, tile 2, center 3)    680 image opacity %
// 684 hover opacity %
// 688 blur OFF: stored inverted so that an all-zero block means blur on
// 692 menu minimum width dip
// 696 surface opt-out mask: 0x01 taskbar background, 0x02 clock, 0x04 start, 0x08 pinned app,
//     0x10 app menu not replaced; 0x20 the window organizer is switched off
// 700 custom header COLORREF  704 custom header on   708 custom hotkey COLORREF
// 712 custom hotkey on        716 menu maximum width dip
//
// The version word is the commit point of a publication. The writer stores it last, with a
// full-barrier atomic exchange through a shared mapping, and only after snapshot-<n>.bin is
// complete and closed; the globals (12..719) are written separately and never touch it. There is
// no sequence counter over the globals: a reader copies the 720 bytes it needs once per menu.
//
// snapshot-<n>.bin: the menu configuration of version n, usable in place from a read-only
// mapping. A 48-byte header of twelve u32 words, then four regions, each 8-byte aligned, with
// every padding byte zero:
//   0 magic | 4 layout | 8 version n | 12 totalBytes (file size, final padding included)
//  16 profileCount | 20 profilesOffset (always 48) | 24 itemCount | 28 itemsOffset
//  32 argumentCount | 36 argumentsOffset | 40 poolOffset | 44 poolBytes (2 x code units)
//   profiles  at 48:                         12 bytes per row: contextMask (0x02 desktop
//             background, 0x04 folder background, 0x08 folder item, 0x10 other item),
//             firstItem, itemCount. First matching row wins, so row order matters.
//   items     at align8(48 + 12 x profiles): 44 bytes per row: 0 source (0 classic, 1 modern,
//             2 user, 3 separator), 4 title StringRef, 12 executable StringRef, 20 firstArgument,
//             24 argumentCount (at most 32), 28 the 16-byte command CLSID (zero: all modern
//             entries, and for every other source).
//   arguments at align8(items + 44 x items):  8 bytes per StringRef, each user item's run
//             contiguous; an item without arguments points at the current end with count 0.
//   pool      at arguments + 8 x arguments:   UTF-16 units; StringRef {offset, length} counts
//             units from the pool start, and the unit after each string is zero. Equal strings
//             share one entry.
//   totalBytes = align8(pool + poolBytes), at most 1 MiB.
//
// A reader maps control.bin, checks magic and layout, reads the version (an aligned 32-bit load
// followed by an acquire barrier; an interlocked read would write to a read-only view), opens that
// snapshot,
// and before using any row checks (CheckSnapshotImage does exactly this): magic, layout and
// version equal to the control file's; totalBytes equal to the file size; profilesOffset 48;
// every region inside totalBytes; every row's item and argument run inside its region; every
// StringRef inside the pool with a zero unit after it. Old snapshot files are never deleted, so a
// reader still holding version n keeps a valid file.

#include <cstdint>
#include <string>
#include <string_view>

#include "common/status.h"
#include "config/menu_configuration.h"

namespace cmr {

inline constexpr uint32_t kConfigMagic = 0x424E43D5;
inline constexpr uint32_t kConfigLayout = 18;
inline constexpr size_t kControlBytes = 720;
inline constexpr size_t kSnapshotHeaderBytes = 48;
inline constexpr size_t kProfileRowBytes = 12;
inline constexpr size_t kItemRowBytes = 44;
inline constexpr size_t kStringRefBytes = 8;
inline constexpr uint64_t kSnapshotLimitBytes = 1048576;

// Offsets of the control block's fields that the writers address on their own; the words in
// between follow the order of the format above.
inline constexpr size_t kControlVersionOffset = 8;
inline constexpr size_t kControlGlobalsOffset = 12;
inline constexpr size_t kControlFontFamilyOffset = 92;
inline constexpr size_t kControlImagePathOffset = 156;
inline constexpr size_t kControlTrailingOffset = 676;
static_assert(kControlImagePathOffset == kControlFontFamilyOffset + 2 * kFontFamilyUnits);
static_assert(kControlTrailingOffset == kControlImagePathOffset + 2 * kImagePathUnits);

struct SnapshotLayout {
  uint32_t profilesOffset = 0;
  uint32_t itemsOffset = 0;
  uint32_t argumentsOffset = 0;
  uint32_t poolOffset = 0;
  uint64_t totalBytes = 0;
};

// Where the regions of a configuration's snapshot go; the size can be known without building.
[[nodiscard]] SnapshotLayout LayoutSnapshot(const MenuConfiguration& configuration) noexcept;

// The snapshot of `configuration` for `version` (0 for a size check), zero-filled between regions.
[[nodiscard]] std::string FlattenConfiguration(const MenuConfiguration& configuration,
                                               uint32_t version);

// The whole 720-byte control block for `configuration` with the given version word.
[[nodiscard]] std::string EncodeControlBlock(const MenuConfiguration& configuration,
                                             uint32_t version);

// The checks a reader applies before it uses a row; fails with the first one that does not
// hold, as a sentence. Success means the image may be used for `expectedVersion`.
[[nodiscard]] Status CheckSnapshotImage(std::string_view image, uint32_t expectedVersion);

}  // namespace cmr

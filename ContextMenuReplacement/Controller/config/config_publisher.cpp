#include "config/config_publisher.h"

#include <fmt/xchar.h>

#include <cstring>

#include "common/data_paths.h"
#include "common/log.h"
#include "common/byte_image.h"
#include "common/file_io.h"
#include "common/system_error.h"
#include "common/unique_handle.h"
#include "config/config_snapshot.h"

namespace cmr {

namespace {

// control.bin mapped read-write, 720 bytes, shared with every reader in Explorer.
struct MappedControl {
  UniqueHandle file;
  UniqueHandle mapping;
  UniqueView view;
  unsigned char* bytes() const { return static_cast<unsigned char*>(view.get()); }
};

bool MapControl(const std::wstring& path, MappedControl& control, MessageList& errors) {
  (void)EnsureDirectories(ParentFolder(path));
  control.file.reset(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!control.file) {
    errors.push_back(fmt::format(L"Could not open '{}': {}", path, ErrorText(::GetLastError())));
    return false;
  }
  // A longer file is a foreign one that ReadControl refuses; cut it to the real size, or every
  // later publication would read version 0 again and rewrite snapshot-1.bin under its readers.
  // A failure here (a reader has it mapped) leaves it as it is.
  LARGE_INTEGER size{};
  if (::GetFileSizeEx(control.file.get(), &size) && size.QuadPart > LONGLONG{kControlBytes}) {
    LARGE_INTEGER end{};
    end.QuadPart = kControlBytes;
    if (::SetFilePointerEx(control.file.get(), end, nullptr, FILE_BEGIN)) {
      (void)::SetEndOfFile(control.file.get());
    }
  }
  // A mapping of exactly 720 bytes also extends a new or short file with zero bytes.
  control.mapping.reset(
      ::CreateFileMappingW(control.file.get(), nullptr, PAGE_READWRITE, 0, kControlBytes, nullptr));
  if (!control.mapping) {
    errors.push_back(fmt::format(L"Could not map '{}': {}", path, ErrorText(::GetLastError())));
    return false;
  }
  control.view.reset(
      ::MapViewOfFile(control.mapping.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, kControlBytes));
  if (!control.view) {
    errors.push_back(fmt::format(L"Could not view '{}': {}", path, ErrorText(::GetLastError())));
    return false;
  }
  return true;
}

void StoreU32(unsigned char* at, uint32_t value) {
  for (int i = 0; i < 4; ++i) at[i] = static_cast<unsigned char>(value >> (8 * i));
}

}  // namespace

bool ReadControl(const std::wstring& controlPath, ControlReading& out) {
  out = {};
  std::string bytes;
  if (ReadWholeFile(controlPath, bytes) != ReadStatus::ok || bytes.size() != kControlBytes) {
    return false;
  }
  ByteImageReader in(bytes);
  if (in.U32(0) != kConfigMagic) return false;
  out.layout = in.U32(4);
  out.version = in.U32(kControlVersionOffset);
  return true;
}

bool PublishGlobals(const std::wstring& controlPath, const MenuConfiguration& configuration,
                    MessageList& errors) {
  MappedControl control;
  if (!MapControl(controlPath, control, errors)) return false;
  const std::string image = EncodeControlBlock(configuration, 0);
  std::memcpy(control.bytes() + kControlGlobalsOffset, image.data() + kControlGlobalsOffset,
              kControlBytes - kControlGlobalsOffset);
  // Magic and layout last, so a control file that was foreign becomes valid only once its
  // globals are in place.
  StoreU32(control.bytes(), kConfigMagic);
  StoreU32(control.bytes() + 4, kConfigLayout);
  ::FlushViewOfFile(control.view.get(), kControlBytes);
  return true;
}

bool PublishVersion(const std::wstring& controlPath, uint32_t version, MessageList& errors) {
  MappedControl control;
  if (!MapControl(controlPath, control, errors)) return false;
  StoreU32(control.bytes(), kConfigMagic);
  StoreU32(control.bytes() + 4, kConfigLayout);
  // The view is page-aligned, so the word at offset 8 is aligned for an interlocked operation.
  ::InterlockedExchange(reinterpret_cast<volatile LONG*>(control.bytes() + kControlVersionOffset),
                        static_cast<LONG>(version));
  ::FlushViewOfFile(control.view.get(), kControlBytes);
  return true;
}

PublishedFolderTarget::PublishedFolderTarget() : folder_(PublishedFolder()) {}
PublishedFolderTarget::PublishedFolderTarget(std::wstring folder) : folder_(std::move(folder)) {}

uint32_t PublishedFolderTarget::CurrentVersion() {
  ControlReading reading;
  (void)ReadControl(JoinPath(folder_, L"control.bin"), reading);
  return reading.version;
}

bool PublishedFolderTarget::PublishGlobals(const MenuConfiguration& configuration,
                                           MessageList& errors) {
  return cmr::PublishGlobals(JoinPath(folder_, L"control.bin"), configuration, errors);
}

bool PublishedFolderTarget::WriteSnapshot(uint32_t version, std::string_view bytes,
                                          MessageList& errors) {
  return WriteWholeFile(JoinPath(folder_, fmt::format(L"snapshot-{}.bin", version)), bytes, errors);
}

bool PublishedFolderTarget::PublishVersion(uint32_t version, MessageList& errors) {
  return cmr::PublishVersion(JoinPath(folder_, L"control.bin"), version, errors);
}

bool CheckSnapshotSize(uint64_t bytes, MessageList& errors) {
  if (bytes <= kSnapshotLimitBytes) return true;
  errors.push_back(fmt::format(L"The configuration flattens to {} bytes, over the {} byte limit.",
                               bytes, kSnapshotLimitBytes));
  return false;
}

void PublishConfiguration(const MenuConfiguration& configuration, PublishMode mode,
                          GlobalsPolicy globals, PublicationTarget& target, PublishResult& result) {
  result.profileCount = configuration.profiles.size();
  result.itemCount = configuration.items.size();
  result.userCommandCount = configuration.userCommandCount;
  if (mode == PublishMode::checkOnly) {
    const std::string image = FlattenConfiguration(configuration, 0);
    result.snapshotBytes = image.size();
    (void)CheckSnapshotSize(image.size(), result.errors);
    return;
  }
  const uint32_t next = target.CurrentVersion() + 1;
  const std::string image = FlattenConfiguration(configuration, next);
  if (!CheckSnapshotSize(image.size(), result.errors)) return;
  if (globals == GlobalsPolicy::withDefaultGlobals) {
    if (!target.PublishGlobals(configuration, result.errors)) return;
    LogGlobalsPublished(configuration.enabled, configuration.bypassMask,
                        configuration.opacityPercent);
  }
  // The snapshot is complete and closed before its number is announced: a reader that sees the
  // new version always finds a whole file.
  if (!target.WriteSnapshot(next, image, result.errors)) return;
  if (!target.PublishVersion(next, result.errors)) return;
  result.published = true;
  result.version = next;
  result.snapshotBytes = image.size();
  LogConfigurationPublished(next, image.size(), result.profileCount, result.itemCount,
                            result.userCommandCount);
}

}  // namespace cmr

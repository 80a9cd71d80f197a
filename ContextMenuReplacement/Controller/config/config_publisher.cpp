#include "config/config_publisher.h"

#include <fmt/xchar.h>

#include <cstring>

#include "common/byte_image.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/publication.h"
#include "config/config_log.h"
#include "config/config_snapshot.h"

namespace cmr {

namespace {

void StoreU32(unsigned char* at, uint32_t value) {
  for (int i = 0; i < 4; ++i) at[i] = static_cast<unsigned char>(value >> (8 * i));
}

// Every field from offset 12 on, then magic and layout last, so a control file that was
// foreign becomes valid only once its globals are in place. The version word is not touched.
void WriteGlobals(const std::string& block, unsigned char* bytes) {
  std::memcpy(bytes + kControlGlobalsOffset, block.data() + kControlGlobalsOffset,
              kControlBytes - kControlGlobalsOffset);
  StoreU32(bytes, kConfigMagic);
  StoreU32(bytes + 4, kConfigLayout);
}

class ConfigSnapshotFormat final : public SnapshotFormat {
 public:
  // `globals`, when given, is a whole control block whose globals go out with the version.
  explicit ConfigSnapshotFormat(const std::wstring& folder, const std::string* globals = nullptr)
      : folder_(folder), globals_(globals) {}

  const wchar_t* LockName() const override { return L"Local\\BnlxCmrConfigPublication"; }
  std::wstring Folder() const override { return folder_; }
  std::wstring FilePrefix() const override { return L"snapshot-"; }
  std::wstring SnapshotPath(uint32_t version) const override {
    return JoinPath(folder_, fmt::format(L"snapshot-{}.bin", version));
  }
  std::wstring ControlPath() const override { return JoinPath(folder_, L"control.bin"); }

  Result<uint32_t> AnnouncedVersion(FileOperations& files) const override {
    Result<std::optional<std::string>> bytes = files.Read(ControlPath());
    if (!bytes) return bytes.status();
    if (!bytes.value()) return 0u;
    const std::optional<ControlReading> control = ParseControl(*bytes.value());
    return control ? control->version : 0u;
  }

  // The commit point: the globals (menu.json's fixed ones) when this publication carries them,
  // magic and layout with plain stores, then the version with a full-barrier atomic exchange
  // through the shared mapping, so a reader that sees the new number also sees a complete
  // control block. Globals and version share one mapping, so a failure to open it leaves
  // control.bin exactly as it was; without globals only bytes 0..11 are touched.
  Status Announce(FileOperations& files, uint32_t version) const override {
    return files.UpdateMapped(ControlPath(), kControlBytes, [this, version](unsigned char* bytes) {
      if (globals_ != nullptr) WriteGlobals(*globals_, bytes);
      StoreU32(bytes, kConfigMagic);
      StoreU32(bytes + 4, kConfigLayout);
      // The view is page-aligned, so the word at offset 8 is aligned for an interlocked operation.
      ::InterlockedExchange(reinterpret_cast<volatile LONG*>(bytes + kControlVersionOffset),
                            static_cast<LONG>(version));
    });
  }

  // The configuration's readers know two failures by these words, and only the snapshot's own
  // path: a temporary file is an implementation detail. The writer's detail goes to the log.
  Status SnapshotWriteFailure(const std::wstring& path, Status failure) const override {
    LogSnapshotWriteFailed(failure.message());
    return FailedWhileWriting(failure) ? Failure(L"Could not write '{}'.", path)
                                       : Failure(L"Could not open '{}' for writing.", path);
  }

 private:
  std::wstring folder_;
  const std::string* globals_;
};

}  // namespace

std::optional<ControlReading> ParseControl(std::string_view bytes) {
  if (bytes.size() != kControlBytes) return std::nullopt;
  ByteImageReader in(bytes);
  if (in.U32(0) != kConfigMagic) return std::nullopt;
  return ControlReading{in.U32(4), in.U32(kControlVersionOffset)};
}

bool ReadControl(const std::wstring& controlPath, ControlReading& out) {
  out = {};
  const Result<std::optional<std::string>> bytes = ReadFileIfPresent(controlPath);
  if (!bytes || !bytes.value()) return false;
  const std::optional<ControlReading> control = ParseControl(*bytes.value());
  if (!control) return false;
  out = *control;
  return true;
}

ConfigPublisher::ConfigPublisher() : ConfigPublisher(PublishedFolder(), SystemFiles()) {}
ConfigPublisher::ConfigPublisher(std::wstring folder, FileOperations& files)
    : folder_(std::move(folder)), files_(files) {}

Status ConfigPublisher::PublishGlobals(const MenuConfiguration& configuration) {
  const std::string block = EncodeControlBlock(configuration, 0);
  return files_.UpdateMapped(ConfigSnapshotFormat(folder_).ControlPath(), kControlBytes,
                             [&block](unsigned char* bytes) { WriteGlobals(block, bytes); });
}

Status ConfigPublisher::CheckNextVersion() {
  return NextVersion(ConfigSnapshotFormat(folder_), files_).status();
}

Status CheckSnapshotSize(uint64_t bytes) {
  if (bytes <= kSnapshotLimitBytes) return {};
  return Failure(L"The configuration flattens to {} bytes, over the {} byte limit.", bytes,
                 kSnapshotLimitBytes);
}

void ConfigPublisher::Publish(const MenuConfiguration& configuration, PublishMode mode,
                              GlobalsPolicy globals, PublishResult& result) {
  result.profileCount = configuration.profiles.size();
  result.itemCount = configuration.items.size();
  result.userCommandCount = configuration.userCommandCount;
  if (mode == PublishMode::checkOnly) {
    result.snapshotBytes = LayoutSnapshot(configuration).totalBytes;
    if (Status fits = CheckSnapshotSize(result.snapshotBytes); !fits) {
      result.errors.push_back(fits.message());
    }
    return;
  }
  uint64_t imageBytes = 0;
  SnapshotBuild build;
  build.image = [&](uint32_t version) -> Result<std::string> {
    std::string image = FlattenConfiguration(configuration, version);
    if (Status fits = CheckSnapshotSize(image.size()); !fits) return fits;
    imageBytes = image.size();
    return image;
  };
  const bool withGlobals = globals == GlobalsPolicy::withDefaultGlobals;
  const std::string block = withGlobals ? EncodeControlBlock(configuration, 0) : std::string();
  const Result<uint32_t> published =
      PublishSnapshot(ConfigSnapshotFormat(folder_, withGlobals ? &block : nullptr), files_, build);
  if (!published) {
    result.errors.push_back(published.message());
    return;
  }
  if (withGlobals) {
    LogGlobalsPublished(configuration.enabled, configuration.bypassMask,
                        configuration.opacityPercent);
  }
  result.published = true;
  result.version = published.value();
  result.snapshotBytes = imageBytes;
  LogConfigurationPublished(result.version, imageBytes, result.profileCount, result.itemCount,
                            result.userCommandCount);
}

}  // namespace cmr

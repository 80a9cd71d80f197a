#pragma once
// Publication of the configuration snapshot: snapshot-<n>.bin written whole, then the version
// word of control.bin exchanged (formats in config/config_snapshot.h).

#include <cstdint>
#include <string>
#include <string_view>

#include "common/status.h"
#include "common/text.h"
#include "config/menu_configuration.h"

namespace cmr {

struct ControlReading {
  uint32_t layout = 0;
  uint32_t version = 0;
};

// Reads control.bin. Succeeds only for a file of exactly 720 bytes with the right magic; on any
// failure both fields of `out` are 0.
[[nodiscard]] bool ReadControl(const std::wstring& controlPath, ControlReading& out);

// Writes every global (bytes 12..719) and then magic and layout into the mapped control file,
// creating it (720 zero bytes) when missing. The version word is never touched, so the snapshot
// in force stays in force. Appends "Could not open/map/view '{}': {}" on failure.
[[nodiscard]] bool PublishGlobals(const std::wstring& controlPath,
                                  const MenuConfiguration& configuration, MessageList& errors);

// The commit point: magic and layout with plain stores, then the version with a full-barrier
// atomic exchange through the shared mapping, so a reader that sees the new number also sees a
// complete control block. Only bytes 0..11 are touched.
[[nodiscard]] bool PublishVersion(const std::wstring& controlPath, uint32_t version,
                                  MessageList& errors);

// The operations a publication performs on the published folder. The real one works on files;
// tests replace it to fail a step that the platform cannot be made to fail on demand.
class PublicationTarget {
 public:
  virtual ~PublicationTarget() = default;
  // The version in control.bin; 0 when it is missing, short, long or foreign.
  [[nodiscard]] virtual uint32_t CurrentVersion() = 0;
  [[nodiscard]] virtual bool PublishGlobals(const MenuConfiguration& configuration,
                                            MessageList& errors) = 0;
  // Writes snapshot-<version>.bin whole and closes it.
  [[nodiscard]] virtual bool WriteSnapshot(uint32_t version, std::string_view bytes,
                                           MessageList& errors) = 0;
  [[nodiscard]] virtual bool PublishVersion(uint32_t version, MessageList& errors) = 0;
};

// The published folder on disk (the per-user one unless a test names another).
class PublishedFolderTarget : public PublicationTarget {
 public:
  PublishedFolderTarget();
  explicit PublishedFolderTarget(std::wstring folder);

  [[nodiscard]] uint32_t CurrentVersion() override;
  [[nodiscard]] bool PublishGlobals(const MenuConfiguration& configuration,
                                    MessageList& errors) override;
  [[nodiscard]] bool WriteSnapshot(uint32_t version, std::string_view bytes,
                                   MessageList& errors) override;
  [[nodiscard]] bool PublishVersion(uint32_t version, MessageList& errors) override;

 private:
  std::wstring folder_;
};

// What one load-and-publish run did, for the verbs to report.
struct PublishResult {
  bool valid = false;
  bool aclAccepted = false;
  bool published = false;
  uint32_t version = 0;
  uint64_t snapshotBytes = 0;
  size_t profileCount = 0;
  size_t itemCount = 0;
  size_t userCommandCount = 0;
  MessageList errors;
  MessageList warnings;
};

enum class PublishMode { checkOnly, publish };
enum class GlobalsPolicy { withDefaultGlobals, keepPublishedGlobals };

// Publishes a parsed, valid configuration: records its counts, refuses a snapshot over 1 MiB
// (exactly 1 MiB is fine), then (menu.json) the globals, then snapshot-<next>.bin, then the
// version. A step that fails stops the run and leaves control.bin's version as it was. With
// checkOnly only the size is checked and nothing is written. Appends to `result`.
void PublishConfiguration(const MenuConfiguration& configuration, PublishMode mode,
                          GlobalsPolicy globals, PublicationTarget& target, PublishResult& result);

// The size refusal, shared by the check-only and publishing paths.
[[nodiscard]] bool CheckSnapshotSize(uint64_t bytes, MessageList& errors);

}  // namespace cmr

#pragma once
// Publication of the configuration snapshot: snapshot-<n>.bin written whole, then the version
// word of control.bin exchanged (formats in config/config_snapshot.h), through the program's one
// publication routine (common/publication.h).
//
// Publications of the configuration are serialised between processes by the named mutex
// "Local\BnlxCmrConfigPublication", held from reading control.bin's version to its exchange:
// without it two publishers take the same number, and the second renames its snapshot over the
// one the first has just announced.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/file_operations.h"
#include "common/status.h"
#include "config/menu_configuration.h"

namespace cmr {

struct ControlReading {
  uint32_t layout = 0;
  uint32_t version = 0;
};

// A control block: exactly 720 bytes with the right magic; anything else is std::nullopt.
[[nodiscard]] std::optional<ControlReading> ParseControl(std::string_view bytes);

// Reads control.bin. Succeeds only for a file of exactly 720 bytes with the right magic; on any
// failure both fields of `out` are 0.
[[nodiscard]] bool ReadControl(const std::wstring& controlPath, ControlReading& out);

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

// The published folder (the per-user one unless a test names another) and the file operations
// that reach it.
class ConfigPublisher {
 public:
  ConfigPublisher();
  ConfigPublisher(std::wstring folder, FileOperations& files);

  // Writes every global (bytes 12..719) and then magic and layout into the mapped control file,
  // creating it (720 zero bytes) when missing. The version word is never touched, so the
  // snapshot in force stays in force. Fails with "Could not open/map/view '{}': {}".
  [[nodiscard]] Status PublishGlobals(const MenuConfiguration& configuration);

  // The refusal a publication would meet because no later version can be announced (see
  // NextVersion in common/publication.h). Asked before globals are written, so that a
  // publication refused for it changes nothing at all.
  [[nodiscard]] Status CheckNextVersion();

  // Publishes a parsed, valid configuration: records its counts, refuses a snapshot over 1 MiB
  // (exactly 1 MiB is fine), then writes snapshot-<next>.bin, then (menu.json) the globals and
  // the version in one mapping of control.bin. The snapshot goes before the globals so that any
  // failure leaves control.bin exactly as it was. With checkOnly only the size is checked and
  // nothing is written. Appends to `result`.
  void Publish(const MenuConfiguration& configuration, PublishMode mode, GlobalsPolicy globals,
               PublishResult& result);

 private:
  std::wstring folder_;
  FileOperations& files_;
};

// The size refusal, shared by the check-only and publishing paths.
[[nodiscard]] Status CheckSnapshotSize(uint64_t bytes);

}  // namespace cmr

#pragma once
// The files the overlay pipeline stages beside the overlay it works on ("<overlay>": that
// overlay's own file name, most often "Context menu layout overrides.json" in the settings
// folder), each named with the id of the process that writes it:
//
//   "<overlay>.<pid>.tmp"                  the atomic write of the overlay itself: a re-stamped
//                                          overlay saved back, a reset's candidate put in
//                                          place, a rollback restoring the previous bytes;
//   "<overlay>.candidate-<pid>"            a reset's candidate, staged to be validated;
//   "<overlay>.candidate-<pid>.<pid>.tmp"  the atomic write of that staged candidate (the same
//                                          id twice).
//
// Each lives only while its process runs, unless the process is killed in between; then it
// would stay beside the one file the user edits by hand for good. So every publication with an
// overlay, every reset and every prepare-reset begins with an OverlayTransaction: it takes the
// custom model's publication lock and removes the names of exactly these shapes, beside that
// overlay, whose process no longer runs (the rule of common/orphaned_files.h); the publication or
// reset then stages and publishes under the same lock. Nothing else in the folder is touched:
// not the overlay, not another scope's overlay or its staged files, not anyone else's
// temporaries.

#include <optional>
#include <string>
#include <string_view>

#include "common/file_operations.h"
#include "common/publication.h"

namespace cmr {

// The staged candidate's name: the overlay path + ".candidate-<pid>".
[[nodiscard]] std::wstring CandidateOverlayPath(const std::wstring& overlayPath);

// The id of the process that staged `fileName` beside the overlay named `overlayName`, when the
// name has one of the shapes above; nullopt for every other name.
[[nodiscard]] std::optional<unsigned long> OverlayStagerOf(std::wstring_view fileName,
                                                           std::wstring_view overlayName);

// Holds the custom model's publication lock from Begin to its end.
class OverlayTransaction {
 public:
  // Takes the lock, then removes what ended processes staged beside `overlayPath` (nothing when
  // it is empty). Fails only when the lock cannot be had; nothing is removed then.
  [[nodiscard]] Status Begin(const std::wstring& overlayPath, FileOperations& files);

 private:
  PublicationLock lock_;
};

}  // namespace cmr

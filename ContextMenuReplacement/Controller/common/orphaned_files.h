#pragma once
// Files that a process of this program stages under a name carrying its own process id: the
// atomic write's "<target>.<pid>.tmp", the overlay's staged candidate. A process killed between
// creating one and renaming or deleting it leaves it behind for good unless someone else
// removes it, and the only safe judge of "left behind" is whether its process still runs.
//
// The rule, for every folder that has such files:
//   - only names of the exact shapes its writer stages are ever considered (the caller's
//     `creatorOf` says which, and whose they are);
//   - a file goes only when no process with its id runs now. An id that runs may be a process
//     that reused the id of a dead one: its file stays until that process ends too. An id whose
//     process cannot be opened for another reason (access denied) counts as running;
//   - the removal runs under the lock that serialises the writers of that folder, and every
//     writer stages under it too, so a remover never deletes a name that a new process with a
//     reused id is staging at that very moment.

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "common/file_operations.h"

namespace cmr {

// The decimal digits of a process id, the whole of `digits`; nullopt for anything else.
[[nodiscard]] std::optional<unsigned long> ParseProcessId(std::wstring_view digits);

// The atomic write's temporary "<target>.<pid>.tmp" split into the target's name and the id.
struct TemporaryName {
  std::wstring_view target;
  unsigned long pid = 0;
};
[[nodiscard]] std::optional<TemporaryName> SplitTemporaryName(std::wstring_view fileName);

// Whether a process with this id runs now.
[[nodiscard]] bool ProcessRuns(unsigned long pid);

// The id of the process that staged `fileName`, when the name has one of the shapes the
// folder's writer stages; nullopt for every other name.
using CreatorOf = std::function<std::optional<unsigned long>(std::wstring_view fileName)>;

// Deletes through `files` each file of `folder` that matches `pattern` (a FindFirstFileW
// pattern, a coarse filter only) and whose creator no longer runs. Failures are ignored: a file
// that cannot go now is tried again the next time.
void RemoveOrphanedFiles(const std::wstring& folder, const std::wstring& pattern,
                         const CreatorOf& creatorOf, FileOperations& files);

}  // namespace cmr

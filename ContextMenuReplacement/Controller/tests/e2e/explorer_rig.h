#pragma once
// The Explorer tests' side of the rig: starts stand-in Explorers, reads their shared journal,
// and on the way out makes every stand-in Hook inert and lets every stand-in leave, including
// the shells the controller started, without ending any process by force.

#include <string>
#include <vector>

#include "common/unique_handle.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {

class ExplorerRig {
 public:
  ExplorerRig();
  ~ExplorerRig();
  ExplorerRig(const ExplorerRig&) = delete;
  ExplorerRig& operator=(const ExplorerRig&) = delete;

  // <build>\rig, where the stand-in explorer.exe and its copies live.
  static std::wstring Folder();
  static std::wstring Explorer();

  // Starts a stand-in and waits until it has made its windows; returns its process id.
  DWORD Start(const std::vector<std::wstring>& args, const std::wstring& image = Explorer());
  // The same as the shell a restart ends and starts again: the stand-in is put where the restart
  // looks for it (<Windows directory>\explorer.exe), the stand-in shell window list replaces
  // Wine's (which cannot count folder windows) until the rig goes, and the shells the controller
  // starts take `nextShells` as their options.
  DWORD StartShell(const std::vector<std::wstring>& args, const std::wstring& nextShells);

  std::string Journal() const;
  // Waits until the journal holds `text` `count` times.
  bool WaitFor(const std::string& text, size_t count = 1, unsigned timeoutMs = 20000) const;
  size_t Count(const std::string& text) const { return e2e::Count(Journal(), text); }

 private:
  std::wstring journal_;
  UniqueHandle shutdown_;
  std::vector<UniqueHandle> started_;
  std::wstring replacedServer_;  // Wine's own server of the shell window list, to put back
};

// "pid=<id>" as the journal writes it.
std::string Pid(DWORD processId);

}  // namespace cmr::e2e

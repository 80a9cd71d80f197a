#include "explorer/hook_builds.h"

#include <tlhelp32.h>

#include <set>
#include <string>

#include "common/text.h"
#include "common/unique_handle.h"
#include "explorer/hook_loader.h"

namespace cmr {

namespace {

constexpr std::wstring_view kAnyBuildPrefix = L"Brenlow.ContextMenuReplacement.Hook";
constexpr std::wstring_view kAnyBuildSuffix = L".dll";

bool StartsWithIgnoreCase(std::wstring_view text, std::wstring_view prefix) {
  return text.size() >= prefix.size() && EqualsIgnoreCase(text.substr(0, prefix.size()), prefix);
}

bool EndsWithIgnoreCase(std::wstring_view text, std::wstring_view suffix) {
  return text.size() >= suffix.size() &&
         EqualsIgnoreCase(text.substr(text.size() - suffix.size()), suffix);
}

// The file names of the modules loaded in one process; empty when its module list is unreadable.
std::vector<std::wstring> ModuleNames(DWORD processId) {
  std::vector<std::wstring> names;
  UniqueHandle snapshot(
      ::CreateToolhelp32Snapshot(TH32CS_SNAPMODULE | TH32CS_SNAPMODULE32, processId));
  if (!snapshot) return names;
  MODULEENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  for (BOOL more = ::Module32FirstW(snapshot.get(), &entry); more;
       more = ::Module32NextW(snapshot.get(), &entry)) {
    names.emplace_back(entry.szModule);
  }
  return names;
}

}  // namespace

bool AnyEarlierBuildLoaded(const std::vector<ExplorerThread>& threads) {
  std::set<DWORD> processes;
  for (const ExplorerThread& t : threads) processes.insert(t.processId);
  for (const DWORD processId : processes) {
    if (EarlierBuildHookLoaded(processId)) return true;
  }
  return false;
}

bool IsEarlierBuildHookName(std::wstring_view name) noexcept {
  return name.size() >= kAnyBuildPrefix.size() + kAnyBuildSuffix.size() &&
         StartsWithIgnoreCase(name, kAnyBuildPrefix) && EndsWithIgnoreCase(name, kAnyBuildSuffix) &&
         !EqualsIgnoreCase(name, kHookModuleFileName);
}

bool EarlierBuildHookLoaded() {
  return AnyEarlierBuildLoaded(EnumerateExplorer());
}

bool EarlierBuildHookLoaded(DWORD processId) {
  for (const std::wstring& name : ModuleNames(processId)) {
    if (IsEarlierBuildHookName(name)) return true;
  }
  return false;
}

}  // namespace cmr

// What Windows and its tools read from the released exe (golden/release-resources.txt, "@" for
// the project version), the version line each run logs, and paths past MAX_PATH (260).

#include <fmt/xchar.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "tests/e2e/command_rows.h"
#include "tests/e2e/harness.h"
#include "tests/support/todays_log.h"

namespace cmr::e2e {
namespace {

// CMR_RELEASE_EXE names another exe to check: the one inside a release package.
TEST(ReleaseE2e, ManifestAndVersionInformation) {
  const char* other = std::getenv("CMR_RELEASE_EXE");
  const std::wstring exe = other && *other ? FromUtf8(other) : ControllerPath();
  const UniqueHmodule image(::LoadLibraryExW(
      exe.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE));
  // Id 1 is the manifest the loader applies to a process started from this exe.
  HRSRC found = ::FindResourceW(image.get(), MAKEINTRESOURCEW(1), RT_MANIFEST);
  ASSERT_NE(found, nullptr);
  const std::string manifest(
      static_cast<const char*>(::LockResource(::LoadResource(image.get(), found))),
      ::SizeofResource(image.get(), found));
  std::vector<char> info(::GetFileVersionInfoSizeW(exe.c_str(), nullptr));
  ASSERT_TRUE(::GetFileVersionInfoW(exe.c_str(), 0, static_cast<DWORD>(info.size()), info.data()));
  void* value = nullptr;
  UINT length = 0;
  ASSERT_TRUE(::VerQueryValueW(info.data(), L"\\", &value, &length));
  const auto* fixed = static_cast<const VS_FIXEDFILEINFO*>(value);
  EXPECT_EQ(
      fmt::format(L"{}.{}.{}.{}", HIWORD(fixed->dwFileVersionMS), LOWORD(fixed->dwFileVersionMS),
                  HIWORD(fixed->dwFileVersionLS), LOWORD(fixed->dwFileVersionLS)),
      CMR_VERSION_TEXT);
  std::istringstream rows(Golden(L"release-resources.txt"));
  for (std::string name, text; rows >> name && std::getline(rows >> std::ws, text);) {
    if (name == "manifest") {
      EXPECT_PRED2(Has, manifest, text);
      continue;
    }
    const std::wstring key = L"\\StringFileInfo\\040904B0\\" + FromUtf8(name);
    ASSERT_TRUE(::VerQueryValueW(info.data(), key.c_str(), &value, &length)) << name;
    EXPECT_EQ(ToUtf8(static_cast<const wchar_t*>(value)),
              text == "@" ? ToUtf8(CMR_VERSION_TEXT) : text);
  }
}

// Support reads a day's log without the exe at hand: each run opens with the build that wrote it.
TEST(ReleaseE2e, EachRunOpensItsLogLinesWithTheVersion) {
  ResetUserData();
  const std::string started =
      "] [INFO] ContextMenuReplacement.Controller " + ToUtf8(CMR_VERSION_TEXT) + " started\n";
  (void)RunController({L"config", L"path"});
  const std::string first = TodaysLog();
  (void)RunController({L"config", L"status"});
  const std::string both = TodaysLog();
  for (const size_t from : {size_t{0}, first.size()}) {
    EXPECT_TRUE(both.substr(from, both.find('\n', from) + 1 - from).ends_with(started)) << both;
  }
  ResetUserData();
}

// Windows takes long paths once the exe declares longPathAware, Wine as they are; the controller
// must not cut them in a buffer of its own. The data root is the shell's local application data
// folder: pointed deep, every file below it follows.
TEST(ReleaseE2e, MenuFileOverlayAndDataFolderPastMaxPath) {
  ResetUserData();
  std::wstring deep = L"long-paths";
  while (deep.size() < 300) deep += L"\\a-folder-name-of-exactly-forty-letters-";
  const std::wstring folder = ScratchFolder(deep), menu = JoinPath(folder, L"menu.json");
  const std::wstring overlay = JoinPath(folder, L"overrides.json");
  WriteBytes(overlay, R"({"document_kind":"overlay","schema_version":2,"baseline_version":)"
                      R"("win11-shell-2026.11","node_overrides":[]})");
  RunRows(
      {{{L"config", L"init", menu}, "Wrote a starter configuration to " + ToUtf8(menu), 0, true},
       {{L"config", L"publish", menu}, "Publishing " + ToUtf8(menu) + "\n", 0, true},
       {{L"custom-model", L"publish-user", InstallFolder() + L"\\Schema\\custom-menu.schema.json",
         InstallFolder() + L"\\Content\\Menus\\create-organize.baseline.json", overlay},
        "Published custom model version 1: 9 layout(s), ",
        0,
        true}});
  const wchar_t* shellFolders =
      L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";
  // Wine's known-folder lookup keeps the folder itself within MAX_PATH; the files below it pass it.
  std::wstring root = ScratchFolder(L"long-root");
  while (root.size() + 41 < MAX_PATH) root += L"\\a-folder-name-of-exactly-forty-letters-";
  ASSERT_TRUE(EnsureDirectories(root).ok());
  wchar_t before[1024] = {};
  DWORD size = sizeof(before);
  const LSTATUS missing = ::RegGetValueW(HKEY_CURRENT_USER, shellFolders, L"Local AppData",
                                         RRF_RT_ANY | RRF_NOEXPAND, nullptr, before, &size);
  ASSERT_EQ(::RegSetKeyValueW(HKEY_CURRENT_USER, shellFolders, L"Local AppData", REG_EXPAND_SZ,
                              root.c_str(), static_cast<DWORD>((root.size() + 1) * 2)),
            0);
  const RunResult run = RunController({L"config", L"publish", menu});
  (void)(missing ? ::RegDeleteKeyValueW(HKEY_CURRENT_USER, shellFolders, L"Local AppData")
                 : ::RegSetKeyValueW(HKEY_CURRENT_USER, shellFolders, L"Local AppData",
                                     REG_EXPAND_SZ, before, size));
  EXPECT_EQ(run.exitCode, 0u) << run.output;
  for (const wchar_t* file :
       {L"published\\snapshot-1.bin", L"published\\control.bin", L"Controller\\Logs"}) {
    EXPECT_NE(::GetFileAttributesW(
                  JoinPath(root, L"Orvanta\\Brenlowpack\\Ravelin\\" + std::wstring(file)).c_str()),
              INVALID_FILE_ATTRIBUTES)
        << ToUtf8(file);
  }
  ResetUserData();
}

}  // namespace
}  // namespace cmr::e2e

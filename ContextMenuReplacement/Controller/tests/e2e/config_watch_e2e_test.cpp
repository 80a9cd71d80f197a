// config watch on real change notifications: saves publish, a burst of saves is one cycle, and an
// invalid save is reported without ending the loop.

#include <gtest/gtest.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "config/menu_document.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

size_t Count(const std::string& text, const std::string& what) {
  size_t count = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
    ++count;
  }
  return count;
}

std::string Menu(const std::string& title) {
  return R"({"profiles":[{"match":{"context":["folder-item"]},"items":[{"source":"user","title":")" +
         title + R"(","executable":"x.exe"}]}]})";
}

TEST(ConfigWatchE2e, SavesRepublishAndInvalidSavesKeepTheLoopGoing) {
  ResetUserData();
  const std::wstring folder = ScratchFolder(L"config-watch");
  const std::wstring menu = JoinPath(folder, L"menu.json");
  WriteBytes(menu, std::string(StarterDocumentText()));
  WriteBytes(JoinPath(JoinPath(folder, L"published"), L"control.bin"), "x");

  RunningController watch({L"config", L"watch", menu});
  const std::string path = ToUtf8(menu);
  // Each report is waited for whole: on a loaded machine its lines can arrive apart. The loop
  // writes a report out only once its notification is armed, so no sleep is needed after one.
  const std::string reportEnd = "Explorer does not need to restart.\n";
  ASSERT_TRUE(watch.WaitForOutput(reportEnd, 30000)) << watch.Output();
  EXPECT_EQ(watch.Output(), "Watching " + path +
                                "\nSaving the file republishes it. Press Ctrl+C to stop.\n\n"
                                "Published version 1 (656 bytes): 2 profile(s), 8 item(s), 1 "
                                "user command(s).\nThe next menu uses it. Explorer does not need "
                                "to restart.\n");

  size_t mark = watch.Output().size();
  WriteBytes(menu, Menu("One"));
  ASSERT_TRUE(watch.WaitForOutput(reportEnd, 15000, mark)) << watch.Output();
  EXPECT_EQ(watch.Output().substr(mark),
            "\nChange detected.\nPublished version 2 (136 bytes): 1 profile(s), 1 item(s), 1 "
            "user command(s).\nThe next menu uses it. Explorer does not need to restart.\n");

  // An editor's burst: two saves well within the settle time give one cycle.
  mark = watch.Output().size();
  WriteBytes(menu, Menu("Two"));
  WriteBytes(menu, Menu("Three"));
  ASSERT_TRUE(watch.WaitForOutput(reportEnd, 15000, mark)) << watch.Output();
  ::Sleep(1000);
  EXPECT_EQ(Count(watch.Output().substr(mark), "Change detected."), 1u) << watch.Output();
  EXPECT_NE(ReadBytes(SnapshotFilePath(3)).find("T\0h\0r\0e\0e\0", 0, 10), std::string::npos);

  // A change inside a subfolder (as the published folder beside a menu.json in the product
  // folder sees with every publication) is no change of the watched files.
  mark = watch.Output().size();
  WriteBytes(JoinPath(JoinPath(folder, L"published"), L"snapshot-9.bin"), "x");
  WriteBytes(menu, "{\"profiles\": 3}");
  ASSERT_TRUE(
      watch.WaitForOutput("so the context menu keeps working while this is fixed.\n", 15000, mark))
      << watch.Output();
  EXPECT_EQ(watch.Output().substr(mark),
            "\nChange detected.\n  error:   'profiles' is required and must be an array.\n"
            "Nothing was published. The previously published configuration is still in effect,\n"
            "so the context menu keeps working while this is fixed.\n");

  mark = watch.Output().size();
  WriteBytes(menu, Menu("Four"));
  ASSERT_TRUE(watch.WaitForOutput("Published version 4 (", 15000, mark)) << watch.Output();
  watch.Stop();
}

}  // namespace
}  // namespace cmr::e2e

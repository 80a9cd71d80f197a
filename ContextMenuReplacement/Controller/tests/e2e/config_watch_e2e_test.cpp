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

std::string Menu(const std::string& title) {
  return R"({"profiles":[{"match":{"context":["folder-item"]},"items":[{"source":"user","title":")" +
         title + R"(","executable":"x.exe"}]}]})";
}

const std::string kNextMenu = "The next menu uses it. Explorer does not need to restart.\n";
const std::string kPublishedEnd = ": 1 profile(s), 1 item(s), 1 user command(s).\n" + kNextMenu;
const std::string kRefusedEnd =
    "Nothing was published. The previously published configuration is still in effect,\n"
    "so the context menu keeps working while this is fixed.\n";

TEST(ConfigWatchE2e, SavesRepublishAndInvalidSavesKeepTheLoopGoing) {
  ResetUserData();
  // Beside the published folder, as in the product folder: every publication the loop makes
  // changes a subfolder of the watched one.
  const std::wstring menu = JoinPath(ProductFolder(), L"menu.json");
  WriteBytes(menu, std::string(StarterDocumentText()));

  RunningController watch({L"config", L"watch", menu});
  // Each report is waited for whole: on a loaded machine its lines can arrive apart. The loop
  // writes a report out only once its notification is armed, so the next save is never missed.
  const std::string first = "Watching " + ToUtf8(menu) +
                            "\nSaving the file republishes it. Press Ctrl+C to stop.\n\n"
                            "Published version 1 (656 bytes): 2 profile(s), 8 item(s), 1 "
                            "user command(s).\n" +
                            kNextMenu;
  ASSERT_TRUE(watch.WaitForOutput(first, 30000)) << watch.Output();
  EXPECT_EQ(watch.Output(), first);

  // Each save and what the loop reports for it, in order. A burst of two saves well within the
  // settle time is one cycle (version 3, not 4), and a change inside a subfolder is no change.
  const struct {
    const char* name;
    std::vector<std::pair<std::wstring, std::string>> writes;
    std::string report;
  } rows[] = {
      {"a save", {{menu, Menu("One")}}, "Published version 2 (136 bytes)" + kPublishedEnd},
      {"a burst",
       {{menu, Menu("Two")}, {menu, Menu("Three")}},
       "Published version 3 (136 bytes)" + kPublishedEnd},
      {"a subfolder change and an invalid save",
       {{JoinPath(PublishedFolder(), L"snapshot-9.bin"), "x"}, {menu, "{\"profiles\": 3}"}},
       "  error:   'profiles' is required and must be an array.\n" + kRefusedEnd},
      {"a valid save after it",
       {{menu, Menu("Four")}},
       "Published version 4 (136 bytes)" + kPublishedEnd},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const size_t mark = watch.Output().size();
    for (const auto& [path, bytes] : row.writes) WriteBytes(path, bytes);
    const std::string expected = "\nChange detected.\n" + row.report;
    ASSERT_TRUE(watch.WaitForOutput(row.report, 15000, mark)) << watch.Output();
    EXPECT_EQ(watch.Output().substr(mark), expected);
  }
  EXPECT_NE(ReadBytes(SnapshotFilePath(3)).find("T\0h\0r\0e\0e\0", 0, 10), std::string::npos);
  watch.Stop();
}

}  // namespace
}  // namespace cmr::e2e

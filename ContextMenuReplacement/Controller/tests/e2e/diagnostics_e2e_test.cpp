// The watchdog record verbs and the classic icon lookup against records the test writes.

#include <gtest/gtest.h>

#include "common/file_time.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "tests/e2e/command_rows.h"
#include "tests/e2e/harness.h"
#include "tests/support/child_process.h"

namespace cmr::e2e {
namespace {

const std::wstring kRecords = L"Software\\Orvanta\\Brenlowpack\\Ravelin\\";
const std::wstring kCrashes = kRecords + L"DialogCrashExclusions";
const std::wstring kStrikes = kRecords + L"ProviderStrikes";
const std::wstring kHandler = L"{6A1C2F0E-1111-4C4C-9A9A-0123456789AB}";
const std::wstring kOther = L"{6A1C2F0E-2222-4C4C-9A9A-0123456789AB}";
const std::wstring kStruck = kStrikes + L"\\" + kHandler;
const std::wstring kStruckOther = kStrikes + L"\\" + kOther;

uint64_t At(WORD day, WORD hour, WORD minute = 15, WORD second = 0) {
  SYSTEMTIME system{2026, 11, 0, day, hour, minute, second, 0};
  FILETIME time{};
  ::SystemTimeToFileTime(&system, &time);
  return FileTimeToInteger(time);
}

void Set(const std::wstring& key, const wchar_t* name, DWORD type, const void* data, size_t size) {
  ASSERT_EQ(
      ::RegSetKeyValueW(HKEY_CURRENT_USER, key.c_str(), name, type, data, static_cast<DWORD>(size)),
      ERROR_SUCCESS);
}

void SetText(const std::wstring& key, const wchar_t* name, const std::wstring& text,
             DWORD type = REG_SZ) {
  Set(key, name, type, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

bool Exists(const std::wstring& key, const wchar_t* value) {
  return ::RegGetValueW(HKEY_CURRENT_USER, key.c_str(), value, RRF_RT_ANY, nullptr, nullptr,
                        nullptr) == ERROR_SUCCESS;
}

TEST(DiagnosticsE2e, RecordVerbsListAndClearExactlyTheNamedRecord) {
  ::RegDeleteTreeW(HKEY_CURRENT_USER, kCrashes.c_str());
  ::RegDeleteTreeW(HKEY_CURRENT_USER, kStrikes.c_str());
  std::string golden = Golden(L"records_none.txt");
  EXPECT_EQ(RunTranscript(golden), golden);
  const uint64_t notepad = At(20, 10), paint = At(21, 8, 15, 30);
  Set(kCrashes, L"notepad.exe", REG_QWORD, &notepad, sizeof notepad);
  Set(kCrashes, L"Paint \"x\".exe", REG_QWORD, &paint, sizeof paint);
  SetText(kCrashes, L"odd.exe", L"yesterday");
  // Exactly seven days before the newest still counts; one second more has expired.
  const uint64_t times[] = {At(18, 9), At(20, 10), At(13, 10, 14, 59), At(13, 10)};
  Set(kStruck, L"Strikes", REG_BINARY, times, sizeof times);
  SetText(kStruck, L"Name", L"Archiver");
  SetText(kStruck, L"LastFault", L"Access violation in Invoke.");
  // Only whole eight-byte times are strikes; a Name that is not text is no name.
  const uint64_t one[] = {At(1, 1), ~0ull};
  Set(kStruckOther, L"Strikes", REG_BINARY, one, sizeof one - 1);
  Set(kStruckOther, L"Name", REG_DWORD, one, 4);
  // Registry value names ignore case (a record is cleared only by its exact name); strikes are
  // listed as stored, the window counting back from the newest wherever it is.
  golden = Golden(L"records.txt");
  EXPECT_EQ(RunTranscript(golden), golden);
  EXPECT_FALSE(Exists(kCrashes, L"notepad.exe"));
  EXPECT_TRUE(Exists(kCrashes, L"odd.exe"));
  EXPECT_FALSE(Exists(kStruck, L"Strikes"));
  EXPECT_TRUE(Exists(kStruckOther, L"Strikes"));
  ::RegDeleteTreeW(HKEY_CURRENT_USER, kCrashes.c_str());
  ::RegDeleteTreeW(HKEY_CURRENT_USER, kStrikes.c_str());
}

TEST(DiagnosticsE2e, ClassicIconsAnswersEveryLineUntilTheEndOfInput) {
  const std::wstring classes = L"Software\\Classes\\";
  SetText(classes + L"CLSID\\" + kOther, nullptr, L"no DefaultIcon");
  SetText(classes + L"CLSID\\" + kHandler + L"\\DefaultIcon", nullptr,
          L"%SystemRoot%\\system32\\shell32.dll,-3", REG_EXPAND_SZ);
  SetText(classes + L"CmrIconRoot\\shell\\outer\\shell\\inner", L"Icon", L"\"C:\\Tools\\a,b.exe\"");
  SetText(classes + L"CmrIconRoot\\shell\\bare", L"MUIVerb", L"no icon");
  const std::string input =
      "handler\t" + ToUtf8(kHandler) + "\tPack \"it\"\nhandler\t" + ToUtf8(kOther) +
      "\tNone\r\n\nverb\tCmrIconRoot\touter\\inner\n" +
      "verb\tCmrIconRoot\tbare\nverb\tCmrIconRoot\tmissing\nverb\tCmrIconRoot\n" +
      "menu\ta\tb\nhandler\tShell.Application\tx\nverb\t\tx";
  const RunResult run =
      RunControllerAt(ControllerPath(), {L"classic-icons", L"--json"}, 60000, input);
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(run.output, Golden(L"classic_icons.txt"));
  // No input at all is a clean end too.
  EXPECT_EQ(RunController({L"classic-icons"}).output, "");
  ::RegDeleteTreeW(HKEY_CURRENT_USER, (classes + L"CmrIconRoot").c_str());
  ::RegDeleteTreeW(HKEY_CURRENT_USER, (classes + L"CLSID\\" + kHandler).c_str());
  ::RegDeleteTreeW(HKEY_CURRENT_USER, (classes + L"CLSID\\" + kOther).c_str());
}

// The probe's COM apartment makes a window, and the first window of a Wine session starts Wine's
// desktop process, which keeps the standard error handle of the process that caused it: the
// output pipe would then stay open after the controller exits. One probe run with NUL handles
// starts the desktop first.
void StartWineDesktopWithoutThePipe() {
  const UniqueHandle process = StartChild(ControllerPath(), {L"inventory"}).process;
  ASSERT_TRUE(process.valid());
  ASSERT_EQ(::WaitForSingleObject(process.get(), 60000), WAIT_OBJECT_0);
}

TEST(DiagnosticsE2e, InventoryPrintsTheShippedTableAndProbesEachClass) {
  StartWineDesktopWithoutThePipe();
  // None of the product's classes is registered in the test prefix. Wine's system message table
  // has no text for COM's codes, where Windows says "Class not registered".
  const std::string golden = Golden(L"inventory.txt");
  EXPECT_EQ(RunTranscript(golden), golden);
}

}  // namespace
}  // namespace cmr::e2e

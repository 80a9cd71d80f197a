// The watchdog record verbs and the classic icon lookup against records the test writes.

#include <gtest/gtest.h>

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
  return (uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
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
  RunRows({
      {{L"dialog-crashes"},
       "No program is excluded from file-dialog enrolment after a crash.\n",
       0},
      {{L"dialog-crashes", L"--json"}, "[]\n", 0},
      {{L"provider-strikes"}, "No context menu handler has been struck by the watchdog.\n", 0},
      {{L"provider-strikes", L"--json"}, "[]\n", 0},
  });
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
  RunRows({
      {{L"dialog-crashes"},
       "Programs excluded from file-dialog enrolment after a crash:\n"
       "  'Paint \"x\".exe' crashed at 2026-11-21 08:15:30 UTC.\n"
       "  'notepad.exe' crashed at 2026-11-20 10:15:00 UTC.\n"
       "  'odd.exe' crashed at an unrecorded time.\n",
       0},
      {{L"dialog-crashes", L"--json"},
       "[{\"program\":\"Paint \\\"x\\\".exe\",\"crashedAt\":\"2026-11-21T08:15:30Z\"},"
       "{\"program\":\"notepad.exe\",\"crashedAt\":\"2026-11-20T10:15:00Z\"},"
       "{\"program\":\"odd.exe\",\"crashedAt\":null}]\n",
       0},
      // Registry value names ignore case; a record is cleared only by its exact name.
      {{L"dialog-crashes", L"clear", L"Notepad.exe"},
       "No crash record exists for program 'Notepad.exe'.\n",
       1},
      {{L"dialog-crashes", L"clear"}, "dialog-crashes clear needs a program name.\n", 1},
      {{L"dialog-crashes", L"clear", L"a", L"b"}, "Unexpected argument 'b'.\n", 1},
      {{L"dialog-crashes", L"--json", L"x"}, "Unexpected argument 'x'.\n", 1},
      {{L"dialog-crashes", L"--JSON"}, "Unknown dialog-crashes argument '--JSON'.\n", 1},
      {{L"dialog-crashes", L"clear", L"notepad.exe"},
       "Program 'notepad.exe' may enrol its file dialogs again; its crash record was removed.\n",
       0},
      // Strikes are listed as stored; the window counts back from the newest wherever it is.
      {{L"provider-strikes"},
       "Context menu handlers struck by the watchdog:\n"
       "  {6A1C2F0E-1111-4C4C-9A9A-0123456789AB} 'Archiver': 3 of 3 strikes within seven days; "
       "no longer activated.\n"
       "    2026-11-18 09:15:00 UTC\n"
       "    2026-11-20 10:15:00 UTC\n"
       "    2026-11-13 10:14:59 UTC (expired)\n"
       "    2026-11-13 10:15:00 UTC\n"
       "    Last fault: Access violation in Invoke.\n"
       "  {6A1C2F0E-2222-4C4C-9A9A-0123456789AB} '(unnamed)': 1 of 3 strikes within seven days; "
       "still activated.\n"
       "    2026-11-01 01:15:00 UTC\n",
       0},
      {{L"provider-strikes", L"--json"},
       "[{\"clsid\":\"{6A1C2F0E-1111-4C4C-9A9A-0123456789AB}\",\"name\":\"Archiver\","
       "\"blocked\":true,\"strikes\":[{\"at\":\"2026-11-18T09:15:00Z\",\"expired\":false},"
       "{\"at\":\"2026-11-20T10:15:00Z\",\"expired\":false},"
       "{\"at\":\"2026-11-13T10:14:59Z\",\"expired\":true},"
       "{\"at\":\"2026-11-13T10:15:00Z\",\"expired\":false}],"
       "\"lastFault\":\"Access violation in Invoke.\"},"
       "{\"clsid\":\"{6A1C2F0E-2222-4C4C-9A9A-0123456789AB}\",\"name\":null,\"blocked\":false,"
       "\"strikes\":[{\"at\":\"2026-11-01T01:15:00Z\",\"expired\":false}],\"lastFault\":null}]\n",
       0},
      {{L"provider-strikes", L"clear", L"Shell.Application"},
       "'Shell.Application' is not a CLSID; write it as {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}.\n",
       1},
      {{L"provider-strikes", L"clear", L"{00000000-0000-0000-0000-000000000001}"},
       "No strike record exists for handler '{00000000-0000-0000-0000-000000000001}'.\n",
       1},
      {{L"provider-strikes", L"clear"}, "provider-strikes clear needs a handler CLSID.\n", 1},
      {{L"provider-strikes", L"clear", kHandler},
       "The strike record of handler '{6A1C2F0E-1111-4C4C-9A9A-0123456789AB}' was removed; the "
       "hook may activate it again.\n",
       0},
  });
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
  EXPECT_EQ(
      run.output,
      "{\"request\":{\"kind\":\"handler\",\"clsid\":\"{6A1C2F0E-1111-4C4C-9A9A-0123456789AB}\","
      "\"label\":\"Pack \\\"it\\\"\"},\"icon\":\"C:\\\\windows\\\\system32\\\\shell32.dll,-3\"}\n"
      "{\"request\":{\"kind\":\"handler\",\"clsid\":\"{6A1C2F0E-2222-4C4C-9A9A-0123456789AB}\","
      "\"label\":\"None\"},\"icon\":null,\"reason\":\"The handler "
      "'{6A1C2F0E-2222-4C4C-9A9A-0123456789AB}' has no DefaultIcon key.\"}\n"
      "{\"request\":{\"kind\":\"verb\",\"root\":\"CmrIconRoot\",\"verbPath\":\"outer\\\\inner\"},"
      "\"icon\":\"C:\\\\Tools\\\\a,b.exe,0\"}\n"
      "{\"request\":{\"kind\":\"verb\",\"root\":\"CmrIconRoot\",\"verbPath\":\"bare\"},"
      "\"icon\":null,\"reason\":\"The key 'CmrIconRoot\\\\shell\\\\bare' has no icon value of "
      "type REG_SZ or REG_EXPAND_SZ.\"}\n"
      "{\"request\":{\"kind\":\"verb\",\"root\":\"CmrIconRoot\",\"verbPath\":\"missing\"},"
      "\"icon\":null,\"reason\":\"The verb key 'CmrIconRoot\\\\shell\\\\missing' does not "
      "exist.\"}\n"
      "{\"line\":7,\"error\":\"Line 7 has 2 fields; a request is "
      "'handler<TAB>{CLSID}<TAB>label' or 'verb<TAB>root<TAB>verb path'.\"}\n"
      "{\"line\":8,\"error\":\"Line 8 has the unknown request kind 'menu'.\"}\n"
      "{\"line\":9,\"error\":\"Line 9 names 'Shell.Application', which is not a CLSID.\"}\n"
      "{\"line\":10,\"error\":\"Line 10 has an empty root or verb path.\"}\n");
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
  const RunResult json = RunController({L"inventory", L"--json"});
  EXPECT_EQ(json.exitCode, 0u);
  EXPECT_EQ(json.output,
            "[{\"identity\":\"product:quick-browse\",\"clsid\":"
            "\"{4E0B7D52-8C1A-4F36-9B2E-61D3A7C05F10}\",\"canonicalName\":"
            "\"{4E0B7D52-8C1A-4F36-9B2E-61D3A7C05F11}\",\"title\":\"Quick browse\",\"families\":"
            "[\"desktop-background\",\"folder-background\",\"folder-item\",\"drive\"]},"
            "{\"identity\":\"product:quick-pins\",\"clsid\":"
            "\"{4E0B7D52-8C1A-4F36-9B2E-61D3A7C05F20}\",\"canonicalName\":"
            "\"{4E0B7D52-8C1A-4F36-9B2E-61D3A7C05F21}\",\"title\":\"Quick pins\",\"families\":"
            "[\"desktop-background\",\"folder-background\",\"folder-item\",\"drive\","
            "\"file-item\"]}]\n");
  // None of the product's classes is registered in the test prefix. Wine's system message table
  // has no text for COM's codes, where Windows says "Class not registered".
  const RunResult text = RunController({L"inventory"});
  EXPECT_EQ(text.exitCode, 1u);
  EXPECT_EQ(text.output,
            "First-party command inventory (2 commands):\n"
            "  product:quick-browse 'Quick browse' {4E0B7D52-8C1A-4F36-9B2E-61D3A7C05F10}\n"
            "    Contexts: desktop-background, folder-background, folder-item, drive\n"
            "    Activation: CoCreateInstance failed with 0x80040154: unable to get message from "
            "FormatMessage.\n"
            "  product:quick-pins 'Quick pins' {4E0B7D52-8C1A-4F36-9B2E-61D3A7C05F20}\n"
            "    Contexts: desktop-background, folder-background, folder-item, drive, file-item\n"
            "    Activation: CoCreateInstance failed with 0x80040154: unable to get message from "
            "FormatMessage.\n");
}

}  // namespace
}  // namespace cmr::e2e

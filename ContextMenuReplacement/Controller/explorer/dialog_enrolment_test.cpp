#include "explorer/dialog_enrolment.h"

#include <gtest/gtest.h>

#include <iterator>

namespace cmr {
namespace {

// The rules apply in this order and the first one broken gives the line: row k breaks rule k
// and every rule after it, so each row holds a rule to its line and to its place in the order;
// then rule k alone, so no rule leans on another.
TEST(DialogEnrolment, TheFirstFailingRuleGivesTheLine) {
  const wchar_t* const lines[] = {
      L"inject-dialog: Ravelin is not enabled in Settings; nothing to do.",
      L"inject-dialog: window 0x2A0B4 is not a dialog.",
      L"inject-dialog: pid 77 is Explorer, which 'enable' already covers.",
      L"inject-dialog: app.exe (pid 77) is not eligible under the 'off' dialog setting.",
      L"inject-dialog: app.exe crashed while the hook was loaded in it and stays off until it is "
      L"allowed again in Settings.",
      L"inject-dialog: app.exe (pid 77) runs at a different integrity level (as administrator, "
      L"or sandboxed); its dialogs keep Windows' menu.",
      L"inject-dialog: app.exe (pid 77) is not the controller's architecture, or could not be "
      L"opened; its dialogs keep Windows' menu.",
      L"",
  };
  for (size_t k = 0; k < 2 * std::size(lines); ++k) {
    const size_t rule = k % std::size(lines);
    const auto broken = [&](size_t r) { return k < std::size(lines) ? r >= rule : r == rule; };
    const DialogCandidate dialog{0x2A0B4,    broken(1) ? L"#32771" : L"#32770",
                                 77,         broken(2) ? L"explorer.exe" : L"app.exe",
                                 !broken(5), !broken(6)};
    // Crash records compare exactly.
    DialogRules rules{
        !broken(0), {broken(3) ? L"off" : L"all-except", {}, {}}, {L"App.exe", L"app.ex"}};
    if (broken(4)) rules.crashExcluded.push_back(L"app.exe");
    EXPECT_EQ(DialogRefusal(dialog, rules).message(), lines[rule]) << k;
  }
}

TEST(DialogEnrolment, DialogSettingsAdmitByModeAndListIgnoringCase) {
  const struct {
    DialogSettings settings;
    const wchar_t* program;
    bool eligible;
  } rows[] = {
      {{L"all-except", {}, {L"Other.exe", L"APP.EXE"}}, L"app.exe", false},
      {{L"allowlist", {L"other.exe", L"App.Exe"}, {}}, L"app.exe", true},
      {{L"allowlist", {L"app.ex"}, {}}, L"other.exe", false},
      {{L"allowlist", {L"app.exe"}, {L"app.exe"}}, L"app.exe", true},
      {{L"allowlist", {L"EXPLORER.EXE"}, {}}, L"explorer.exe", false},
      {{L"off", {L"app.exe"}, {}}, L"app.exe", false},
      {{L"all-except", {}, {}}, L"", false},
      {{L"Off", {}, {}}, L"app.exe", true},
      {{L"all-except", {}, {}}, L"explorer.exe", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(IsEligibleProgram(row.program, row.settings), row.eligible)
        << row.settings.mode << L" " << row.program;
  }
}

TEST(DialogEnrolment, HandleTextIsHexadecimalAfter0xAndDecimalOtherwise) {
  const struct {
    const wchar_t* text;
    std::optional<uint64_t> handle;
  } rows[] = {
      {L"0X2a0B4", 0x2A0B4},         {L"010", 10}, {L"18446744073709551615", ~0ull},
      {L"18446744073709551616", {}}, {L"0x", {}},  {L"12a", {}},
  };
  for (const auto& row : rows) EXPECT_EQ(ParseWindowHandle(row.text), row.handle) << row.text;
}

}  // namespace
}  // namespace cmr

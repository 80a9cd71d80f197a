#include "explorer/dialog_enrolment.h"

#include <gtest/gtest.h>

#include <functional>
#include <iterator>

namespace cmr {
namespace {

// Row k breaks rule k and every rule after it, so each row holds a rule to its line and to its
// place in the order.
TEST(DialogEnrolment, TheFirstFailingRuleGivesTheLine) {
  const struct {
    std::function<void(DialogCandidate&, DialogRules&)> breakRule;
    const wchar_t* line;
  } rules[] = {
      {[](DialogCandidate&, DialogRules& r) { r.enabled = false; },
       L"inject-dialog: Ravelin is not enabled in Settings; nothing to do."},
      {[](DialogCandidate& d, DialogRules&) { d.className = L"#32771"; },
       L"inject-dialog: window 0x2A0B4 is not a dialog."},
      {[](DialogCandidate& d, DialogRules&) { d.program = L"explorer.exe"; },
       L"inject-dialog: pid 77 is Explorer, which 'enable' already covers."},
      {[](DialogCandidate&, DialogRules& r) { r.settings.mode = L"off"; },
       L"inject-dialog: app.exe (pid 77) is not eligible under the 'off' dialog setting."},
      {[](DialogCandidate&, DialogRules& r) {
         r.crashExcluded = {L"x.exe", L"app.exe"};
       },
       L"inject-dialog: app.exe crashed while the hook was loaded in it and stays off until it is "
       L"allowed again in Settings."},
      {[](DialogCandidate& d, DialogRules&) { d.sameIntegrity = false; },
       L"inject-dialog: app.exe (pid 77) runs at a different integrity level (as administrator, "
       L"or sandboxed); its dialogs keep Windows' menu."},
      {[](DialogCandidate& d, DialogRules&) { d.nativeArchitecture = false; },
       L"inject-dialog: app.exe (pid 77) is not the controller's architecture, or could not be "
       L"opened; its dialogs keep Windows' menu."},
  };
  for (size_t k = 0; k <= std::size(rules); ++k) {
    DialogCandidate dialog{0x2A0B4, L"#32770", 77, L"app.exe", true, true};
    DialogRules settings{true, {}, {L"App.exe", L"app.ex"}};  // crash records compare exactly
    for (size_t later = k; later < std::size(rules); ++later)
      rules[later].breakRule(dialog, settings);
    EXPECT_EQ(DialogRefusal(dialog, settings), k < std::size(rules) ? rules[k].line : L"") << k;
  }
}

TEST(DialogEnrolment, DialogSettingsAdmitByModeAndListIgnoringCase) {
  const struct {
    const wchar_t* mode;
    std::vector<std::wstring> allowed, excluded;
    const wchar_t* program;
    bool eligible;
  } rows[] = {
      {L"all-except", {}, {L"Other.exe", L"APP.EXE"}, L"app.exe", false},
      {L"whatever", {L"app.exe"}, {}, L"app.exe", true},
      {L"allowlist", {L"other.exe", L"App.Exe"}, {}, L"app.exe", true},
      {L"allowlist", {L"app.ex"}, {L"other.exe"}, L"other.exe", false},
      {L"off", {L"app.exe"}, {}, L"app.exe", false},
      {L"all-except", {}, {}, L"", false},
      {L"Off", {}, {}, L"app.exe", true},
      {L"all-except", {}, {}, L"explorer.exe", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(IsEligibleProgram(row.program, {row.mode, row.allowed, row.excluded}), row.eligible)
        << row.mode << L" " << row.program;
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

#include "cli/console.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

TEST(ConsoleFormat, WideStringArgumentPrintsWhole) {
  // The C99 reading of a wide "%s" would print only "P"; the program's texts need it whole.
  EXPECT_EQ(FormatConsoleText(L"Publishing %s", {L"Pfad mit Umlaut \u00e4.json"}),
            L"Publishing Pfad mit Umlaut \u00e4.json");
}

TEST(ConsoleFormat, NumbersAndLengthModifiers) {
  EXPECT_EQ(FormatConsoleText(L"Published version %lu (%lu bytes): %zu profile(s), %d%%",
                              {4294967295u, 112u, size_t{3}, -2}),
            L"Published version 4294967295 (112 bytes): 3 profile(s), -2%");
  EXPECT_EQ(FormatConsoleText(L"%X|%x", {255u, 255u}), L"FF|ff");
}

TEST(ConsoleFormat, MissingArgumentsPrintNothingAndUnknownConversionsStay) {
  EXPECT_EQ(FormatConsoleText(L"a %s b %q c", {}), L"a  b %q c");
}

}  // namespace
}  // namespace cmr

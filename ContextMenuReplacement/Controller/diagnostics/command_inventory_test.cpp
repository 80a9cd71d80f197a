#include "diagnostics/command_inventory.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

TEST(CommandInventory, EachFaultNamesTheCommandAndKey) {
  const std::pair<const char*, const wchar_t*> rows[] = {
      {"{",
       L"The command inventory 't.json' is not valid JSON: Missing a name for object member. "
       L"(offset 1)."},
      {R"({"commands":{}})", L"The command inventory 't.json' has no 'commands' array."},
      {R"({"commands":[{"identity":"product:a"}]})",
       L"Command 1 of the command inventory 't.json' has no string 'clsid'."},
      {R"({"commands":[{"identity":"product:a","clsid":"lnkfile","canonicalName":"x","title":"t"}]})",
       L"Command 1 of the command inventory 't.json' has 'lnkfile' as 'clsid', which is not a "
       L"CLSID in braces."},
      {R"({"commands":[{"identity":"product:a","clsid":"{00021401-0000-0000-C000-000000000046}",
          "canonicalName":"{00021401-0000-0000-C000-000000000046}","title":"t","families":[1]}]})",
       L"Command 1 of the command inventory 't.json' has no 'families' array of strings."},
  };
  for (const auto& [text, message] : rows) {
    EXPECT_EQ(ParseCommandInventory(text, L"t.json").message(), message);
  }
}

}  // namespace
}  // namespace cmr

#include "diagnostics/provider_strikes.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

// The strike window, the byte layout and the listing are read through the real registry by the
// diagnostics end-to-end test; a handler's CLSID is the one rule checked here alone.
TEST(ProviderStrikes, ClsidTextNeedsBracesSoProgIdsDoNotPass) {
  const std::pair<const wchar_t*, bool> rows[] = {
      {L"{00021401-0000-0000-C000-000000000046}", true},
      {L"00021401-0000-0000-C000-000000000046", false},
      {L"{00021401-0000-0000-C000-00000000004G}", false},
      {L"{00021401-0000-0000-C000-0000000000461}", false},
      {L"{00021401-0000-0000-C000-00000000046}", false},
  };
  for (const auto& [text, clsid] : rows) EXPECT_EQ(IsClsidText(text), clsid) << text;
}

}  // namespace
}  // namespace cmr

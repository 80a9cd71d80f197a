#include "cli/verb_options.h"

#include <gtest/gtest.h>

// The refusals' texts are checked on the real command line in cli_e2e_test.cpp; these are the
// options a verb receives once they are read.

namespace cmr {
namespace {

TEST(VerbOptions, WhatEachVerbReceives) {
  EnableOptions enable;
  EXPECT_EQ(ParseEnableOptions({L"--strategy", L"refusal", L"--no-restart", L"--yes", L"--strategy",
                                L"classic", L"--force"},
                               enable)
                .message(),
            L"");
  // The last strategy wins; flags accumulate.
  EXPECT_EQ(enable.strategy, SuppressionStrategy::classic);
  EXPECT_TRUE(enable.yes && enable.force && !enable.restart);

  // Reading stops at the first unknown word, so nothing after it takes effect.
  ReconcileOptions reconcile;
  EXPECT_NE(
      ParseReconcileOptions({L"--force", L"--bogus", L"--allow-restart"}, reconcile).message(),
      L"");
  EXPECT_TRUE(reconcile.force && !reconcile.allowRestart);

  CustomModelArguments custom;
  EXPECT_EQ(ParseCustomModelArguments({L"publish", L"s.json", L"--json", L"b.json", L"x"}, custom)
                .message(),
            L"");
  EXPECT_EQ(custom.arguments, (std::vector<std::wstring>{L"s.json", L"b.json", L"x"}));
  EXPECT_TRUE(custom.json);
}

}  // namespace
}  // namespace cmr

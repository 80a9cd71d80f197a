#include "cli/verb_options.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

TEST(EnableOptions, LastStrategyWinsAndFlagsAccumulate) {
  EnableOptions options;
  EXPECT_EQ(ParseEnableOptions({L"--strategy", L"refusal", L"--no-restart", L"--yes", L"--strategy",
                                L"classic", L"--force"},
                               options),
            L"");
  EXPECT_EQ(options.strategy, SuppressionStrategy::classic);
  EXPECT_TRUE(options.yes);
  EXPECT_TRUE(options.force);
  EXPECT_FALSE(options.restart);
}

TEST(EnableOptions, TrailingStrategyAndBadWordsAreRefused) {
  EnableOptions options;
  EXPECT_EQ(ParseEnableOptions({L"--yes", L"--strategy"}, options),
            L"Unknown option '--strategy'.\n");
  EXPECT_EQ(ParseEnableOptions({L"--Yes"}, options), L"Unknown option '--Yes'.\n");
  EXPECT_EQ(ParseEnableOptions({L"--strategy", L"Classic"}, options),
            L"Unknown strategy 'Classic'. Use classic or refusal.\n");
}

TEST(ReconcileOptions, StopsAtFirstUnknownWord) {
  ReconcileOptions options;
  EXPECT_EQ(ParseReconcileOptions({L"--force", L"--bogus", L"--allow-restart"}, options),
            L"Unknown reconcile option '--bogus'.\n");
  EXPECT_TRUE(options.force);
  EXPECT_FALSE(options.allowRestart);
}

TEST(CustomModelArguments, KeepsOrderAndNeverFailsOnArguments) {
  CustomModelArguments parsed;
  EXPECT_EQ(ParseCustomModelArguments({L"publish", L"s.json", L"--json", L"b.json", L"x"}, parsed),
            L"");
  EXPECT_EQ(parsed.arguments, (std::vector<std::wstring>{L"s.json", L"b.json", L"x"}));
  EXPECT_TRUE(parsed.json);
}

}  // namespace
}  // namespace cmr

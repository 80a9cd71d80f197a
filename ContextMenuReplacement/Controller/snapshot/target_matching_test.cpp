#include "snapshot/target_matching.h"

#include <gtest/gtest.h>

#include <vector>

namespace cmr {
namespace {

constexpr uint32_t kDesktop = 0, kFolderBackground = 1, kFolderItem = 2, kNamespace = 4, kFile = 5;
constexpr uint32_t kAny = 0, kSingle = 2, kMulti = 3;
constexpr wchar_t kComputer[] = L"namespace:{20d04fe0-3aea-1069-a2d8-08002b30309d}";

MenuTarget Target(std::wstring_view text) {
  MenuTarget target;
  EXPECT_EQ(ParseTarget(text, target).message(), L"") << std::wstring(text);
  return target;
}

TEST(TargetMatching, ParsesTheTargetGrammar) {
  MenuTarget t = Target(L"desktop");
  EXPECT_EQ(t.family, ContextFamily::desktop);
  EXPECT_EQ(t.selection, SelectionArity::single);
  EXPECT_EQ(Target(L"taskbar-clock").selection, SelectionArity::none);
  EXPECT_EQ(Target(L"file:.JPG").extension, L".JPG");
  EXPECT_EQ(Target(L"class:text").fileClass, L"text");
  t = Target(std::wstring(kComputer) + L":none");
  EXPECT_EQ(t.family, ContextFamily::namespaceItem);
  EXPECT_EQ(t.namespaceId, L"{20d04fe0-3aea-1069-a2d8-08002b30309d}");
  EXPECT_EQ(t.selection, SelectionArity::none);
  EXPECT_EQ(Target(L"namespace:{x}").selection, SelectionArity::single);
  EXPECT_EQ(Target(L"namespace:{x}:multi").selection, SelectionArity::multi);

  for (const wchar_t* bad : {L"bogus", L"Desktop", L"file:", L"class:", L"namespace:",
                             L"namespace:{x}:several", L"namespace::none"}) {
    MenuTarget untouched;
    untouched.extension = L"kept";
    EXPECT_EQ(ParseTarget(bad, untouched).message(),
              std::wstring(L"Unknown target '") + bad +
                  L"'. Use desktop, folder-background, folder-item, drive, file-item, "
                  L"class:<perceived-type>, file:<ext>, or namespace:<guid>[:none|single|multi].");
    EXPECT_EQ(untouched.extension, L"kept");
  }
}

TEST(TargetMatching, SpecificityLadderWithCaseInsensitiveTexts) {
  const std::vector<LayoutMatchView> layouts = {
      {kFile, L"", L"", L"", kAny},           // 0: all files, 100
      {kFile, L"", L"", L"text", kAny},       // 1: class, 200
      {kFile, L"", L".txt", L"", kAny},       // 2: extension, 300
      {kNamespace, L"{AB}", L"", L"", kAny},  // 3: namespace, 500
      {kDesktop, L"", L"", L"", kAny},        // 4
  };
  MenuTarget textFile = Target(L"file:.TXT");
  textFile.fileClass = L"text";
  const struct {
    MenuTarget target;
    uint32_t index, score;
  } cases[] = {{textFile, 2, 300},
               {Target(L"class:TEXT"), 1, 200},
               {Target(L"file:.jpg"), 0, 100},
               {Target(L"namespace:{ab}"), 3, 500},
               {Target(L"desktop"), 4, 100}};
  for (const auto& c : cases) {
    const MatchResult result = Match(layouts, c.target);
    EXPECT_EQ(result.status, MatchStatus::matched) << c.index;
    EXPECT_EQ(result.index, c.index);
    EXPECT_EQ(result.score, c.score);
  }
  EXPECT_EQ(Match(layouts, Target(L"drive")).status, MatchStatus::none);

  // Matches that name a text outside its family, or two texts, never score.
  const std::vector<LayoutMatchView> misplaced = {
      {kFolderItem, L"", L".txt", L"", kAny},
      {kFile, L"{ab}", L"", L"", kAny},
      {kFile, L"", L".txt", L"text", kAny},
      {kNamespace, L"", L"", L"", kAny},
  };
  for (const wchar_t* target : {L"folder-item", L"file:.txt", L"namespace:{ab}"}) {
    EXPECT_EQ(Match(misplaced, Target(target)).status, MatchStatus::none) << target;
  }
}

TEST(TargetMatching, TiesAreAmbiguousUnlessOutscored) {
  std::vector<LayoutMatchView> layouts = {{kFile, L"", L".txt", L"", kAny},
                                          {kFile, L"", L".TXT", L"", kAny}};
  EXPECT_EQ(Match(layouts, Target(L"file:.txt")).status, MatchStatus::ambiguous);
  layouts = {
      {kFile, L"", L"", L"", kAny}, {kFile, L"", L"", L"", kAny}, {kFile, L"", L".txt", L"", kAny}};
  const MatchResult result = Match(layouts, Target(L"file:.txt"));
  EXPECT_EQ(result.status, MatchStatus::matched);
  EXPECT_EQ(result.index, 2u);
}

TEST(TargetMatching, SelectionRequirements) {
  const std::vector<LayoutMatchView> multiOnly = {{kNamespace, L"{ab}", L"", L"", kMulti}};
  const std::vector<LayoutMatchView> singleOnly = {{kNamespace, L"{ab}", L"", L"", kSingle}};
  const std::vector<LayoutMatchView> both = {singleOnly[0], multiOnly[0]};
  EXPECT_EQ(Match(multiOnly, Target(L"namespace:{ab}")).status, MatchStatus::none);
  EXPECT_EQ(Match(multiOnly, Target(L"namespace:{ab}:multi")).status, MatchStatus::matched);
  EXPECT_EQ(Match(singleOnly, Target(L"namespace:{ab}:multi")).status, MatchStatus::none);
  EXPECT_EQ(Match(both, Target(L"namespace:{ab}:multi")).index, 1u);
  EXPECT_EQ(Match(both, Target(L"namespace:{ab}")).status, MatchStatus::matched);
}

TEST(TargetMatching, NamespaceFallbackOnlyInResolve) {
  std::vector<LayoutMatchView> layouts = {{kFolderBackground, L"", L"", L"", kAny},
                                          {kFolderItem, L"", L"", L"", kAny}};
  const MenuTarget item = Target(kComputer);
  EXPECT_EQ(Match(layouts, item).status, MatchStatus::none);
  EXPECT_EQ(Resolve(layouts, item).index, 1u);
  EXPECT_EQ(Resolve(layouts, Target(std::wstring(kComputer) + L":none")).index, 0u);
  EXPECT_EQ(Resolve(layouts, Target(L"namespace:{x}:multi")).index, 1u);
  EXPECT_EQ(Resolve(layouts, Target(L"drive")).status, MatchStatus::none);  // not a namespace
  // A layout for the exact namespace wins before the fallback is tried.
  layouts.push_back({kNamespace, L"{20D04FE0-3AEA-1069-A2D8-08002B30309D}", L"", L"", kAny});
  EXPECT_EQ(Resolve(layouts, item).index, 2u);
}

}  // namespace
}  // namespace cmr

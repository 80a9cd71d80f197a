#include "snapshot/target_matching.h"

#include <gtest/gtest.h>

#include <vector>

namespace cmr {
namespace {

constexpr uint32_t kDesktop = 0, kFolderBackground = 1, kFolderItem = 2, kNamespace = 4, kFile = 5;
constexpr uint32_t kAny = 0, kSingle = 2, kMulti = 3;

MenuTarget Target(std::wstring_view text) {
  MenuTarget target;
  EXPECT_EQ(ParseTarget(text, target), L"") << std::wstring(text);
  return target;
}

TEST(TargetMatching, ParsesTheTargetGrammar) {
  MenuTarget t = Target(L"desktop");
  EXPECT_EQ(t.family, ContextFamily::desktop);
  EXPECT_EQ(t.selection, SelectionArity::single);
  t = Target(L"taskbar-clock");
  EXPECT_EQ(t.family, ContextFamily::taskbarClock);
  EXPECT_EQ(t.selection, SelectionArity::none);
  t = Target(L"file:.JPG");
  EXPECT_EQ(t.family, ContextFamily::fileItem);
  EXPECT_EQ(t.extension, L".JPG");
  t = Target(L"class:text");
  EXPECT_EQ(t.fileClass, L"text");
  t = Target(L"namespace:{20d04fe0-3aea-1069-a2d8-08002b30309d}:none");
  EXPECT_EQ(t.family, ContextFamily::namespaceItem);
  EXPECT_EQ(t.namespaceId, L"{20d04fe0-3aea-1069-a2d8-08002b30309d}");
  EXPECT_EQ(t.selection, SelectionArity::none);
  EXPECT_EQ(Target(L"namespace:{x}").selection, SelectionArity::single);
  EXPECT_EQ(Target(L"namespace:{x}:multi").selection, SelectionArity::multi);

  for (const wchar_t* bad : {L"bogus", L"Desktop", L"file:", L"class:", L"namespace:",
                             L"namespace:{x}:several", L"namespace::none"}) {
    MenuTarget untouched;
    untouched.extension = L"kept";
    EXPECT_EQ(ParseTarget(bad, untouched),
              std::wstring(L"Unknown target '") + bad +
                  L"'. Use desktop, folder-background, folder-item, drive, file-item, "
                  L"class:<perceived-type>, file:<ext>, or namespace:<guid>[:none|single|multi].");
    EXPECT_EQ(untouched.extension, L"kept");
  }
}

TEST(TargetMatching, SpecificityLadder) {
  const std::vector<LayoutMatchView> layouts = {
      {kFile, L"", L"", L"", kAny},           // 0: all files, 100
      {kFile, L"", L"", L"text", kAny},       // 1: class, 200
      {kFile, L"", L".txt", L"", kAny},       // 2: extension, 300
      {kNamespace, L"{AB}", L"", L"", kAny},  // 3: namespace, 500
      {kDesktop, L"", L"", L"", kAny},        // 4
  };
  MenuTarget target = Target(L"file:.TXT");
  target.fileClass = L"text";
  MatchResult result = Match(layouts, target);
  EXPECT_EQ(result.status, MatchStatus::matched);
  EXPECT_EQ(result.index, 2u);
  EXPECT_EQ(result.score, 300u);

  result = Match(layouts, Target(L"class:TEXT"));
  EXPECT_EQ(result.index, 1u);
  EXPECT_EQ(result.score, 200u);

  result = Match(layouts, Target(L"file:.jpg"));
  EXPECT_EQ(result.index, 0u);
  EXPECT_EQ(result.score, 100u);

  result = Match(layouts, Target(L"namespace:{ab}"));
  EXPECT_EQ(result.index, 3u);
  EXPECT_EQ(result.score, 500u);

  EXPECT_EQ(Match(layouts, Target(L"desktop")).index, 4u);
  EXPECT_EQ(Match(layouts, Target(L"drive")).status, MatchStatus::none);
}

TEST(TargetMatching, MisplacedOrOverNamedMatchesNeverScore) {
  const std::vector<LayoutMatchView> layouts = {
      {kFolderItem, L"", L".txt", L"", kAny},  // extension outside the file family
      {kFile, L"{ab}", L"", L"", kAny},        // namespace outside its family
      {kFile, L"", L".txt", L"text", kAny},    // names two of the three
      {kNamespace, L"", L"", L"", kAny},       // namespace family without an identity
  };
  EXPECT_EQ(Match(layouts, Target(L"folder-item")).status, MatchStatus::none);
  EXPECT_EQ(Match(layouts, Target(L"file:.txt")).status, MatchStatus::none);
  EXPECT_EQ(Match(layouts, Target(L"namespace:{ab}")).status, MatchStatus::none);
}

TEST(TargetMatching, TiesAreAmbiguousUnlessOutscored) {
  std::vector<LayoutMatchView> layouts = {
      {kFile, L"", L".txt", L"", kAny},
      {kFile, L"", L".TXT", L"", kAny},
  };
  EXPECT_EQ(Match(layouts, Target(L"file:.txt")).status, MatchStatus::ambiguous);
  // A higher score after the tie clears it.
  layouts = {
      {kFile, L"", L"", L"", kAny}, {kFile, L"", L"", L"", kAny}, {kFile, L"", L".txt", L"", kAny}};
  const MatchResult result = Match(layouts, Target(L"file:.txt"));
  EXPECT_EQ(result.status, MatchStatus::matched);
  EXPECT_EQ(result.index, 2u);
}

TEST(TargetMatching, SelectionRequirements) {
  const std::vector<LayoutMatchView> multiOnly = {{kNamespace, L"{ab}", L"", L"", kMulti}};
  const std::vector<LayoutMatchView> singleOnly = {{kNamespace, L"{ab}", L"", L"", kSingle}};
  const std::vector<LayoutMatchView> both = {{kNamespace, L"{ab}", L"", L"", kSingle},
                                             {kNamespace, L"{ab}", L"", L"", kMulti}};
  EXPECT_EQ(Match(multiOnly, Target(L"namespace:{ab}")).status, MatchStatus::none);
  EXPECT_EQ(Match(multiOnly, Target(L"namespace:{ab}:multi")).status, MatchStatus::matched);
  EXPECT_EQ(Match(singleOnly, Target(L"namespace:{ab}:multi")).status, MatchStatus::none);
  EXPECT_EQ(Match(both, Target(L"namespace:{ab}:multi")).index, 1u);
  EXPECT_EQ(Match(both, Target(L"namespace:{ab}")).status, MatchStatus::matched);
}

TEST(TargetMatching, NamespaceFallbackOnlyInResolve) {
  const std::vector<LayoutMatchView> layouts = {
      {kFolderBackground, L"", L"", L"", kAny},
      {kFolderItem, L"", L"", L"", kAny},
  };
  const MenuTarget item = Target(L"namespace:{20d04fe0-3aea-1069-a2d8-08002b30309d}");
  const MenuTarget background = Target(L"namespace:{20d04fe0-3aea-1069-a2d8-08002b30309d}:none");
  EXPECT_EQ(Match(layouts, item).status, MatchStatus::none);
  EXPECT_EQ(Resolve(layouts, item).index, 1u);
  EXPECT_EQ(Resolve(layouts, background).index, 0u);
  EXPECT_EQ(Resolve(layouts, Target(L"namespace:{x}:multi")).index, 1u);

  // A layout for the exact namespace wins before the fallback is tried.
  std::vector<LayoutMatchView> exact = layouts;
  exact.push_back({kNamespace, L"{20D04FE0-3AEA-1069-A2D8-08002B30309D}", L"", L"", kAny});
  EXPECT_EQ(Resolve(exact, item).index, 2u);
  // Only namespace items fall back.
  EXPECT_EQ(Resolve(layouts, Target(L"drive")).status, MatchStatus::none);
}

}  // namespace
}  // namespace cmr

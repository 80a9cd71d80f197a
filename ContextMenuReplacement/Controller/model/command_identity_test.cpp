#include "model/command_identity.h"

#include <gtest/gtest.h>

#include "common/json_text.h"

namespace cmr {
namespace {

constexpr wchar_t kProvider[] = L"com:{11111111-1111-1111-1111-111111111111}";

TEST(CommandIdentity, ClassifiesEveryFormAndRefusesNearMisses) {
  const std::wstring p = kProvider;
  const std::pair<std::wstring, IdentityKind> cases[] = {
      {L"windows:open", IdentityKind::windows},
      {L"product:quick-pins", IdentityKind::product},
      {L"user:{0123abcd-0000-4a5b-8c9d-0123456789ef}", IdentityKind::user},
      {L"ephemeral:provider-row-3", IdentityKind::ephemeral},
      {p + L":canonical:{22222222-2222-2222-2222-222222222222}", IdentityKind::comCanonical},
      {p + L":catalog:rotate-clockwise", IdentityKind::comCatalog},
      // Trailing text after a complete canonical identity is never truncated away.
      {p + L":canonical:{00000000-0000-0000-0000-000000000000}:extra", IdentityKind::invalid},
      {p + L":canonical:{00000000-0000-0000-0000-00000000000}", IdentityKind::invalid},
      {p + L":catalog:", IdentityKind::invalid},
      {p + L":catalog:Rotate", IdentityKind::invalid},
      {p, IdentityKind::invalid},  // provider-wide, not a command
      {L"com:{11111111-1111-1111-1111-11111111111A}:catalog:a", IdentityKind::invalid},
      {L"user:{0123ABCD-0000-4a5b-8c9d-0123456789ef}", IdentityKind::invalid},
      {L"user:{0123abcd-0000-4a5b-8c9d-0123456789ef}x", IdentityKind::invalid},
      {L"user:{0123abcd+0000-4a5b-8c9d-0123456789ef}", IdentityKind::invalid},
  };
  for (const auto& [text, kind] : cases) EXPECT_EQ(ClassifyIdentity(text), kind) << text;
  for (const wchar_t* text : {L"windows:", L"product:", L"ephemeral:", L"windows:Open",
                              L"windows:open now", L"windows:a/b", L"Windows:open", L""}) {
    EXPECT_EQ(ClassifyIdentity(text), IdentityKind::invalid) << text;
  }
}

TEST(CommandIdentity, ProviderWideFormAndPersistableKinds) {
  EXPECT_TRUE(IsProviderWideComIdentity(kProvider));
  EXPECT_FALSE(IsProviderWideComIdentity(std::wstring(kProvider) + L":catalog:a"));
  EXPECT_FALSE(IsProviderWideComIdentity(L"com:{11111111-1111-1111-1111-11111111111F}"));
  EXPECT_FALSE(IsProviderWideComIdentity(L"com:11111111-1111-1111-1111-111111111111"));

  // Ephemeral identities are recognised above but name a row of one menu instance only.
  EXPECT_FALSE(IsPersistable(IdentityKind::ephemeral));
  EXPECT_FALSE(IsPersistable(IdentityKind::invalid));
  for (const IdentityKind kind :
       {IdentityKind::windows, IdentityKind::comCanonical, IdentityKind::comCatalog,
        IdentityKind::product, IdentityKind::user}) {
    EXPECT_TRUE(IsPersistable(kind));
  }
}

TEST(CommandIdentity, ReferenceKeyPrefersProvider) {
  rapidjson::Document both, command, neither;
  both.Parse(R"({"command_id":"windows:open","provider_id":"com:{x}"})");
  command.Parse(R"({"command_id":"classic:title:Send to","provider_id":7})");
  neither.Parse(R"({"id":"x"})");
  EXPECT_EQ(MakeReferenceKey(both), L"provider:com:{x}");
  EXPECT_EQ(MakeReferenceKey(command), L"command:classic:title:Send to");
  EXPECT_EQ(MakeReferenceKey(neither), L"");
}

TEST(CommandIdentity, SortedOrderIgnoresInputOrder) {
  const std::wstring p = kProvider;
  const std::vector<std::wstring> expected = {p + L":catalog:a", p + L":catalog:b",
                                              p + L":catalog:z", L"product:quick-pins",
                                              L"windows:open"};
  std::vector<std::wstring> given = {expected[2], expected[0], expected[1], expected[4],
                                     expected[3]};
  std::vector<std::wstring> reversed(given.rbegin(), given.rend());
  SortIdentities(given);
  SortIdentities(reversed);
  EXPECT_EQ(given, expected);
  EXPECT_EQ(reversed, expected);
}

}  // namespace
}  // namespace cmr

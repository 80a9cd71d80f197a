#include "model/command_identity.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "common/json_text.h"

namespace cmr {
namespace {

constexpr wchar_t kProvider[] = L"com:{11111111-1111-1111-1111-111111111111}";

TEST(CommandIdentity, ClassifiesEveryForm) {
  const std::wstring provider = kProvider;
  EXPECT_EQ(ClassifyIdentity(L"windows:open"), IdentityKind::windows);
  EXPECT_EQ(ClassifyIdentity(L"product:quick-pins"), IdentityKind::product);
  EXPECT_EQ(ClassifyIdentity(L"user:{0123abcd-0000-4a5b-8c9d-0123456789ef}"), IdentityKind::user);
  EXPECT_EQ(ClassifyIdentity(L"ephemeral:provider-row-3"), IdentityKind::ephemeral);
  EXPECT_EQ(ClassifyIdentity(provider + L":canonical:{22222222-2222-2222-2222-222222222222}"),
            IdentityKind::comCanonical);
  EXPECT_EQ(ClassifyIdentity(provider + L":catalog:rotate-clockwise"), IdentityKind::comCatalog);
}

TEST(CommandIdentity, RefusesNearMisses) {
  const std::wstring provider = kProvider;
  const std::wstring refused[] = {
      // Trailing text after a complete canonical identity is never truncated away.
      provider + L":canonical:{00000000-0000-0000-0000-000000000000}:extra",
      provider + L":canonical:{00000000-0000-0000-0000-00000000000}",
      provider + L":catalog:",
      provider + L":catalog:Rotate",
      provider,  // provider-wide, not a command
      L"com:{11111111-1111-1111-1111-11111111111A}:catalog:a",
      L"windows:",
      L"product:",
      L"windows:Open",
      L"windows:open now",
      L"windows:a/b",
      L"user:{0123ABCD-0000-4a5b-8c9d-0123456789ef}",
      L"user:{0123abcd-0000-4a5b-8c9d-0123456789ef}x",
      L"user:{0123abcd+0000-4a5b-8c9d-0123456789ef}",
      L"ephemeral:",
      L"Windows:open",
      L"",
  };
  for (const std::wstring& text : refused) {
    EXPECT_EQ(ClassifyIdentity(text), IdentityKind::invalid) << text;
  }
}

TEST(CommandIdentity, ProviderWideFormIsSeparateFromCommands) {
  EXPECT_TRUE(IsProviderWideComIdentity(kProvider));
  EXPECT_FALSE(IsProviderWideComIdentity(std::wstring(kProvider) + L":catalog:a"));
  EXPECT_FALSE(IsProviderWideComIdentity(L"com:{11111111-1111-1111-1111-11111111111F}"));
  EXPECT_FALSE(IsProviderWideComIdentity(L"com:11111111-1111-1111-1111-111111111111"));
}

TEST(CommandIdentity, OnlyNamedKindsArePersistable) {
  EXPECT_FALSE(IsPersistable(IdentityKind::invalid));
  EXPECT_FALSE(IsPersistable(IdentityKind::ephemeral));
  for (const IdentityKind kind :
       {IdentityKind::windows, IdentityKind::comCanonical, IdentityKind::comCatalog,
        IdentityKind::product, IdentityKind::user}) {
    EXPECT_TRUE(IsPersistable(kind));
  }
  EXPECT_FALSE(IsPersistable(static_cast<IdentityKind>(7)));
}

TEST(CommandIdentity, ReferenceKeyPrefersProvider) {
  rapidjson::Document both;
  both.Parse(R"({"command_id":"windows:open","provider_id":"com:{x}"})");
  EXPECT_EQ(MakeReferenceKey(both), L"provider:com:{x}");
  rapidjson::Document command;
  command.Parse(R"({"command_id":"classic:title:Send to","provider_id":7})");
  EXPECT_EQ(MakeReferenceKey(command), L"command:classic:title:Send to");
  rapidjson::Document neither;
  neither.Parse(R"({"id":"x"})");
  EXPECT_EQ(MakeReferenceKey(neither), L"");
}

TEST(CommandIdentity, SortedOrderIgnoresInputOrder) {
  const std::wstring provider = kProvider;
  std::vector<std::wstring> given = {provider + L":catalog:z", provider + L":catalog:a",
                                     provider + L":catalog:b", L"windows:open",
                                     L"product:quick-pins"};
  std::vector<std::wstring> reversed(given.rbegin(), given.rend());
  SortIdentities(given);
  SortIdentities(reversed);
  EXPECT_EQ(given, reversed);
  const std::vector<std::wstring> expected = {provider + L":catalog:a", provider + L":catalog:b",
                                              provider + L":catalog:z", L"product:quick-pins",
                                              L"windows:open"};
  EXPECT_EQ(given, expected);
}

}  // namespace
}  // namespace cmr

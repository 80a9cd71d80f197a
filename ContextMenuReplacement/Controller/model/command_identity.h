#pragma once
// Command identities: the persistent, case-exact names by which documents place commands
// ("windows:", "product:", "user:", "com:" forms and the session-only "ephemeral:" form), the
// provider-wide COM form used by extension rules, reference keys and the one ordering rule.

#include <rapidjson/document.h>

#include <string>
#include <string_view>
#include <vector>

#include "model/model_types.h"

namespace cmr {

// The well-known product commands that carry their own settings objects.
inline constexpr std::wstring_view kQuickBrowseIdentity = L"product:quick-browse";
inline constexpr std::wstring_view kQuickPinsIdentity = L"product:quick-pins";

// Classifies `text` as one command-identity form; IdentityKind::invalid for anything else,
// including trailing text after an otherwise valid identity. There is no case folding: an
// uppercase hexadecimal digit or name character makes the identity invalid, so every stored
// identity has exactly one spelling. Allocates nothing.
[[nodiscard]] IdentityKind ClassifyIdentity(std::wstring_view text) noexcept;

// True only for "com:" followed by a braced GUID and nothing else (42 units): a COM provider
// as a whole, which is not a command identity (ClassifyIdentity returns invalid for it).
[[nodiscard]] bool IsProviderWideComIdentity(std::wstring_view text) noexcept;

// True for the kinds that may be written into a document (windows, com canonical, com catalog,
// product, user); false for invalid and ephemeral.
[[nodiscard]] bool IsPersistable(IdentityKind kind) noexcept;

// True when `text` is "{" + 36 characters + "}" with "-" at positions 9, 14, 19 and 24 inside
// the braces and lowercase hexadecimal digits everywhere else.
[[nodiscard]] bool IsBracedLowercaseGuid(std::wstring_view text) noexcept;

// The reference key of an extension rule or provider-reference node (a UTF-8 DOM object):
// "provider:" + its "provider_id" when it has one, else "command:" + its "command_id", else
// empty. A member that is not a string counts as absent.
[[nodiscard]] std::wstring MakeReferenceKey(const rapidjson::Value& object);

// Sorts identities by ordinal UTF-16 code-unit order, so the result does not depend on the
// order in which providers were enumerated or input arrived.
void SortIdentities(std::vector<std::wstring>& identities);

}  // namespace cmr

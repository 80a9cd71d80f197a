#pragma once
// Which layout of the custom model serves a right-clicked target: a scoring scan over the
// layouts' matches with a fixed specificity ladder (namespace identity 500, extension 300,
// file class 200, family alone 100). A tie at the top is reported, never settled by picking.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "common/status.h"
#include "model/model_types.h"

namespace cmr {

struct MenuTarget {
  ContextFamily family = ContextFamily::fileItem;
  std::wstring namespaceId;  // a GUID in braces
  std::wstring extension;    // with its dot
  std::wstring fileClass;    // a perceived type such as "text"
  SelectionArity selection = SelectionArity::single;
};

// One layout's match as the scan reads it; the texts borrow from the caller (a snapshot view
// or a parsed model). Family and selection are raw numbers, as a snapshot row carries them.
struct LayoutMatchView {
  uint32_t family = 0;
  std::wstring_view namespaceId;
  std::wstring_view extension;
  std::wstring_view fileClass;
  uint32_t selection = 0;
};

enum class MatchStatus : uint32_t { none = 0, matched = 1, ambiguous = 2 };

struct MatchResult {
  MatchStatus status = MatchStatus::none;
  uint32_t index = 0;  // the first layout that reached the best score
  uint32_t score = 0;
};

// The target grammar of the verbs: desktop, folder-background, folder-item, drive, file-item,
// the four taskbar targets, file:<ext>, class:<perceived-type> and
// namespace:<guid>[:none|single|multi]. Fills `target`, or fails with the
// unknown-target message (console form, with the text in it) and leaves `target` untouched.
[[nodiscard]] Status ParseTarget(std::wstring_view text, MenuTarget& target);

// The raw scan over the layouts in order.
[[nodiscard]] MatchResult Match(std::span<const LayoutMatchView> layouts, const MenuTarget& target);

// The raw scan, then for an unmatched namespace item a second scan as a folder background
// (selection none) or a folder item (any other selection).
[[nodiscard]] MatchResult Resolve(std::span<const LayoutMatchView> layouts,
                                  const MenuTarget& target);

}  // namespace cmr

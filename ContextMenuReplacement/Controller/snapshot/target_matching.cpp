#include "snapshot/target_matching.h"

#include <utility>

#include "common/text.h"

namespace cmr {
namespace {

struct NamedTarget {
  std::wstring_view word;
  ContextFamily family;
  SelectionArity selection;
};

constexpr NamedTarget kNamedTargets[] = {
    {L"desktop", ContextFamily::desktop, SelectionArity::single},
    {L"folder-background", ContextFamily::folderBackground, SelectionArity::single},
    {L"folder-item", ContextFamily::folderItem, SelectionArity::single},
    {L"drive", ContextFamily::drive, SelectionArity::single},
    {L"file-item", ContextFamily::fileItem, SelectionArity::single},
    {L"taskbar-background", ContextFamily::taskbarBackground, SelectionArity::none},
    {L"taskbar-clock", ContextFamily::taskbarClock, SelectionArity::none},
    {L"taskbar-start", ContextFamily::taskbarStart, SelectionArity::none},
    {L"taskbar-app", ContextFamily::taskbarApp, SelectionArity::none},
};

bool IsHex(wchar_t unit) {
  return (unit >= L'0' && unit <= L'9') || (unit >= L'a' && unit <= L'f') ||
         (unit >= L'A' && unit <= L'F');
}

// A namespace identity is a GUID in braces; the shell reports it in either case.
bool IsBracedGuid(std::wstring_view text) {
  if (text.size() != 38 || text.front() != L'{' || text.back() != L'}') return false;
  for (size_t i = 1; i < 37; ++i) {
    const bool dash = i == 9 || i == 14 || i == 19 || i == 24;
    if (dash ? text[i] != L'-' : !IsHex(text[i])) return false;
  }
  return true;
}

bool TakePrefix(std::wstring_view& text, std::wstring_view prefix) {
  if (text.substr(0, prefix.size()) != prefix) return false;
  text.remove_prefix(prefix.size());
  return true;
}

uint32_t Score(const LayoutMatchView& layout, const MenuTarget& target) {
  const auto family = static_cast<uint32_t>(target.family);
  if (layout.family != family) return 0;
  if (layout.selection != 0 && layout.selection != static_cast<uint32_t>(target.selection))
    return 0;
  const int named =
      !layout.namespaceId.empty() + !layout.extension.empty() + !layout.fileClass.empty();
  if (named > 1) return 0;
  constexpr auto kNamespace = static_cast<uint32_t>(ContextFamily::namespaceItem);
  constexpr auto kFile = static_cast<uint32_t>(ContextFamily::fileItem);
  if (!layout.namespaceId.empty()) {
    if (family != kNamespace) return 0;
    return EqualsIgnoreCase(layout.namespaceId, target.namespaceId) ? 500 : 0;
  }
  if (!layout.extension.empty()) {
    if (family != kFile) return 0;
    return EqualsIgnoreCase(layout.extension, target.extension) ? 300 : 0;
  }
  if (!layout.fileClass.empty()) {
    if (family != kFile) return 0;
    return EqualsIgnoreCase(layout.fileClass, target.fileClass) ? 200 : 0;
  }
  // A namespace layout needs its exact identity: there is no catch-all for namespaces.
  return family == kNamespace ? 0 : 100;
}

}  // namespace

Status ParseTarget(std::wstring_view text, MenuTarget& target) {
  MenuTarget parsed;
  bool known = false;
  for (const NamedTarget& named : kNamedTargets) {
    if (text == named.word) {
      parsed.family = named.family;
      parsed.selection = named.selection;
      known = true;
    }
  }
  std::wstring_view rest = text;
  if (known) {
  } else if (TakePrefix(rest, L"file:")) {
    parsed.family = ContextFamily::fileItem;
    parsed.extension = rest;
    known = !rest.empty();
  } else if (TakePrefix(rest, L"class:")) {
    parsed.family = ContextFamily::fileItem;
    parsed.fileClass = rest;
    known = !rest.empty();
  } else if (TakePrefix(rest, L"namespace:")) {
    parsed.family = ContextFamily::namespaceItem;
    constexpr std::pair<std::wstring_view, SelectionArity> kSuffixes[] = {
        {L":none", SelectionArity::none},
        {L":single", SelectionArity::single},
        {L":multi", SelectionArity::multi}};
    for (const auto& [suffix, selection] : kSuffixes) {
      if (rest.size() > suffix.size() && rest.substr(rest.size() - suffix.size()) == suffix) {
        rest.remove_suffix(suffix.size());
        parsed.selection = selection;
        break;
      }
    }
    parsed.namespaceId = rest;
    known = IsBracedGuid(rest);
  }
  if (!known) {
    return Status::Failure(
        L"Unknown target '" + std::wstring(text) +
        L"'. Use desktop, folder-background, folder-item, drive, file-item, "
        L"class:<perceived-type>, file:<ext>, or namespace:<guid>[:none|single|multi].");
  }
  target = std::move(parsed);
  return {};
}

MatchResult Match(std::span<const LayoutMatchView> layouts, const MenuTarget& target) {
  MatchResult best;
  bool tie = false;
  for (size_t i = 0; i < layouts.size(); ++i) {
    const uint32_t score = Score(layouts[i], target);
    if (score == 0) continue;
    if (score > best.score) {
      best = {MatchStatus::matched, static_cast<uint32_t>(i), score};
      tie = false;
    } else if (score == best.score) {
      tie = true;
    }
  }
  if (best.status == MatchStatus::matched && tie) best.status = MatchStatus::ambiguous;
  return best;
}

MatchResult Resolve(std::span<const LayoutMatchView> layouts, const MenuTarget& target) {
  const MatchResult first = Match(layouts, target);
  if (first.status != MatchStatus::none || target.family != ContextFamily::namespaceItem) {
    return first;
  }
  MenuTarget fallback = target;
  fallback.family = target.selection == SelectionArity::none ? ContextFamily::folderBackground
                                                             : ContextFamily::folderItem;
  return Match(layouts, fallback);
}

}  // namespace cmr

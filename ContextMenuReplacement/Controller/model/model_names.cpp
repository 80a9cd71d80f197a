#include "model/model_names.h"

#include <array>

namespace cmr {
namespace {

// Indexed by the enumeration values, which the snapshot carries.
constexpr std::array<std::string_view, 10> kFamilyNames = {
    "desktop-background", "folder-background",  "folder-item",   "drive",         "namespace-item",
    "file-item",          "taskbar-background", "taskbar-clock", "taskbar-start", "taskbar-app",
};

constexpr std::array<std::string_view, kHighestNodeKind + 1> kNodeKindNames = {
    "command",
    "extension-slot",
    "submenu",
    "separator",
    "classic-extension-slot",
    "icon_band",
    "windows-extension-slot",
    "withheld-slots",
    "command-reference",
    "provider-reference",
    "remaining-commands",
};

// The enumeration value whose name is `name`, else `fallback`.
template <typename Enum, size_t N>
Enum FromName(const std::array<std::string_view, N>& names, std::string_view name, Enum fallback) {
  for (size_t i = 0; i < N; ++i) {
    if (names[i] == name) return static_cast<Enum>(i);
  }
  return fallback;
}

// The name of `value`, else the name of `fallback` for a value outside the table.
template <typename Enum, size_t N>
std::string_view ToName(const std::array<std::string_view, N>& names, Enum value, Enum fallback) {
  const auto index = static_cast<size_t>(value);
  return names[index < N ? index : static_cast<size_t>(fallback)];
}

}  // namespace

ContextFamily ParseContextFamily(std::string_view name) noexcept {
  return FromName(kFamilyNames, name, ContextFamily::fileItem);
}

std::string_view ContextFamilyName(ContextFamily family) noexcept {
  return ToName(kFamilyNames, family, ContextFamily::fileItem);
}

NodeKind ParseNodeKind(std::string_view type) noexcept {
  return FromName(kNodeKindNames, type, NodeKind::separator);
}

std::string_view NodeKindName(NodeKind kind) noexcept {
  return ToName(kNodeKindNames, kind, NodeKind::separator);
}

SelectionArity ParseSelectionArity(std::string_view text) noexcept {
  if (text == "none") return SelectionArity::none;
  if (text == "single") return SelectionArity::single;
  if (text == "multi") return SelectionArity::multi;
  return SelectionArity::any;
}

}  // namespace cmr

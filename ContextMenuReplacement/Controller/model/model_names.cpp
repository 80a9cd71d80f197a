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

}  // namespace

ContextFamily ParseContextFamily(std::string_view name) noexcept {
  for (size_t i = 0; i < kFamilyNames.size(); ++i) {
    if (kFamilyNames[i] == name) return static_cast<ContextFamily>(i);
  }
  return ContextFamily::fileItem;
}

std::string_view ContextFamilyName(ContextFamily family) noexcept {
  const auto index = static_cast<size_t>(family);
  return index < kFamilyNames.size() ? kFamilyNames[index] : "file-item";
}

NodeKind ParseNodeKind(std::string_view type) noexcept {
  for (size_t i = 0; i < kNodeKindNames.size(); ++i) {
    if (kNodeKindNames[i] == type) return static_cast<NodeKind>(i);
  }
  return NodeKind::separator;
}

std::string_view NodeKindName(NodeKind kind) noexcept {
  const auto index = static_cast<size_t>(kind);
  return index < kNodeKindNames.size() ? kNodeKindNames[index] : "separator";
}

SelectionArity ParseSelectionArity(std::string_view text) noexcept {
  if (text == "none") return SelectionArity::none;
  if (text == "single") return SelectionArity::single;
  if (text == "multi") return SelectionArity::multi;
  return SelectionArity::any;
}

}  // namespace cmr

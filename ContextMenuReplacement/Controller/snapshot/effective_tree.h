#pragma once
// What `custom-model effective` shows of an attached snapshot: the layouts' match
// descriptions for the scan, and one layout's tree as text or as a JSON value.
//
// JSON tree: an array of node objects in child order. Every object has "id" and "kind" (the
// node's "type" word: "command", "extension-slot", "submenu", "separator",
// "classic-extension-slot", "icon_band", "windows-extension-slot", "withheld-slots",
// "command-reference", "provider-reference", "remaining-commands"); "command" when the node
// names a command or provider; "title" on submenus (title_override, else title_verb, else the
// id); "items" (an array of the same shape) on submenus, icon bands and withheld-slots.

#include <cstdint>
#include <string>
#include <vector>

#include "snapshot/custom_model_snapshot.h"
#include "snapshot/target_matching.h"

namespace cmr {

// The match description of every layout row, in table order; false (and `matches` cleared)
// when a row cannot be read as one.
[[nodiscard]] bool ReadLayoutMatches(const CustomModelView& view,
                                     std::vector<LayoutMatchView>& matches);

// One line per node, depth-first, each ending in "\n".
[[nodiscard]] std::wstring EffectiveTreeText(const CustomModelView& view, uint32_t layoutIndex);
[[nodiscard]] std::wstring EffectiveTreeJson(const CustomModelView& view, uint32_t layoutIndex);

}  // namespace cmr

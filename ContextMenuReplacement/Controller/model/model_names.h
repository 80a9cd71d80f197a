#pragma once
// The JSON spellings of the model's enumerations, shared by the document parser, the overlay
// merge, the snapshot compiler and the verbs that print a tree.

#include <string_view>

#include "model/model_types.h"

namespace cmr {

// "desktop-background", "folder-background", ... "file-item". A name that is none of the ten
// reads as ContextFamily::fileItem.
[[nodiscard]] ContextFamily ParseContextFamily(std::string_view name) noexcept;
// The JSON name of a family; a value outside 0 to 9 is written as "file-item".
[[nodiscard]] std::string_view ContextFamilyName(ContextFamily family) noexcept;

// "command", "extension-slot", ... "remaining-commands"; any other text is a separator.
[[nodiscard]] NodeKind ParseNodeKind(std::string_view type) noexcept;
// The "type" text of a kind; a value above kHighestNodeKind is written as "separator".
[[nodiscard]] std::string_view NodeKindName(NodeKind kind) noexcept;

// "none", "single", "multi"; absent or any other text (including "any") is SelectionArity::any.
[[nodiscard]] SelectionArity ParseSelectionArity(std::string_view text) noexcept;

}  // namespace cmr

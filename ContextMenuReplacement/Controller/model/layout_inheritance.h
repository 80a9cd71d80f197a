#pragma once
// Layout inheritance and flattening, on the JSON DOM of a (merged) model document, in place.
//
// A layout may name a parent in "inherits" and so receive the parent's rows; its own rows
// replace inherited rows with the same id in place, merge into inherited submenus, or are
// appended. Flattening leaves every published layout one self-contained "items" tree:
//   1. ResolveInheritance: resolves every layout, writes "_from" on inherited rows and
//      "_ancestors" on inheriting layouts;
//   2. WriteFallbackRanks: gives every row without a declared "order" its index as "_rank";
//   3. DropAbstractLayouts: removes the layouts that exist only to be inherited.
// FlattenLayouts runs the three in that order. The schema-2 overlay merge runs its own steps
// between 1 and 2 (insertions and node overrides reach inherited copies through "_ancestors"
// and "_from"), so it calls the three functions itself instead of FlattenLayouts.
//
// Internal keys written here:
//   "_from" (node): the id of the layout the row was copied from when its layout received it.
//     Each level of inheritance overwrites it, so in a chain G <- P <- C the copy in C says
//     "P" whether P declared the row or inherited it from G; P's own copy tells which (it
//     says "G" when P inherited it unchanged). A row without "_from" is the layout's own: it
//     declared the row itself or redefined an inherited one.
//   "_ancestors" (layout): the ancestor ids, nearest first; written only on layouts that
//     inherit.
//   "_rank" (node): zero-based index in its "items" array.
//
// All functions expect a document whose "layouts" is an array of objects (schema-valid);
// anything else is skipped rather than refused. On failure the document is left partly
// flattened and must not be used.

#include <rapidjson/document.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "common/status.h"

namespace cmr {

inline constexpr size_t kMaxAncestors = 8;

// A per-layout step of the resolution: runs once for every layout (inheriting or not), after
// its inherited rows and its own rows are merged and its "_ancestors" is written, and before
// any layout that inherits it copies its rows. Schema-3 placement edits belong here: a layout's
// edits then act on its complete rows, and children inherit the edited result. Returns "" or a
// refusal, which stops the resolution and is returned by it.
using LayoutResolutionStep =
    std::function<Status(rapidjson::Value& layout, rapidjson::Document::AllocatorType& allocator)>;

// Resolves every layout's inheritance (parents first, each layout once). Refusals:
//   "Duplicate layout id '{}'."  (abstract or not; checked before anything is resolved)
//   "Layout inheritance contains a cycle through '{}'."  (a layout met again on its own chain)
//   "Layout '{}' inherits missing layout '{}'."           (child id, parent id)
//   "Layout '{}' inherits through more than 8 ancestors."
//   "Layout '{}' does not inherit from another layout, so it must declare at least one item."
[[nodiscard]] Status ResolveInheritance(rapidjson::Document& document,
                                        const LayoutResolutionStep& step = {});

// Writes "_rank" (the zero-based index in its array) on every node, at every depth up to the
// model's nesting limit, that has neither a numeric "order" nor a "_rank" yet.
void WriteFallbackRanks(rapidjson::Document& document);

// Removes the layouts marked "abstract": true. Refuses with "Every layout is abstract, so the
// published model would claim no context." when there are layouts and all are abstract.
[[nodiscard]] Status DropAbstractLayouts(rapidjson::Document& document);

// ResolveInheritance, WriteFallbackRanks and DropAbstractLayouts in order; the first refusal.
[[nodiscard]] Status FlattenLayouts(rapidjson::Document& document,
                                    const LayoutResolutionStep& step = {});

// Where a node sits: the "items" array holding it and its index there.
struct NodeLocation {
  rapidjson::Value* items = nullptr;
  rapidjson::SizeType index = 0;

  explicit operator bool() const noexcept { return items != nullptr; }
  [[nodiscard]] rapidjson::Value& node() const { return (*items)[index]; }
};

// Finds the first node with this "id" in `items`, depth-first through nested "items" arrays,
// at most 8 levels below `items`. Empty location when there is none.
[[nodiscard]] NodeLocation FindNodeById(rapidjson::Value& items, std::string_view id);

}  // namespace cmr

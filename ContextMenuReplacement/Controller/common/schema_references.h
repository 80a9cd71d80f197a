#pragma once
// Every "$ref" of a JSON schema is checked before a validator is built from it. RapidJSON's
// validator follows references without a guard: one that loops never returns, one that does
// not resolve accepts everything, and a long chain of them exhausts the stack.

#include <rapidjson/document.h>

#include <cstddef>

#include "common/status.h"

namespace cmr {

// The references a schema may hold, and the links of one chain of references to references.
// The shipped schema holds 47 references and no chain longer than one link; RapidJSON follows a
// chain by recursion and looks up each reference linearly, so both are bounded far above that.
inline constexpr size_t kMaxSchemaReferences = 1024;
inline constexpr size_t kMaxSchemaReferenceChain = 32;
// The schemas that references and "allOf", "anyOf", "oneOf" and "not" apply to one value: the
// validator runs them all side by side. The shipped schema applies at most a handful.
inline constexpr size_t kMaxSchemasPerValue = 1024;

// Each reference must be a pointer into the schema itself ("#" or "#/...") that resolves, no
// chain of references may lead back to where it started, no chain may be longer than
// kMaxSchemaReferenceChain links, there may be at most kMaxSchemaReferences, and no schema may
// apply more than kMaxSchemasPerValue schemas to one value. Fails with a whole sentence naming
// the reference where the schema failed.
[[nodiscard]] Status CheckSchemaReferences(const rapidjson::Value& schema);

}  // namespace cmr

#pragma once
// The shape of a JSON schema, checked before RapidJSON's draft-04 validator is built from it.
//
// The validator quietly skips a keyword whose value has the wrong type and a pattern it cannot
// compile, so a schema that is `false`, `{"items":5}` or `{"pattern":"["}` would accept every
// document. And building it costs time that grows with the square of the objects in the schema
// (each is looked up linearly among those already built), and a pattern's repetitions are
// copied out state by state, so both are bounded here.

#include <rapidjson/document.h>

#include <string>
#include <string_view>

#include "common/status.h"

namespace cmr {

// The shipped schema holds 160 objects and one pattern of about 70 states; these bounds are far
// above any real schema and keep the validator's construction well under a second.
inline constexpr size_t kMaxSchemaObjects = 4096;
inline constexpr size_t kMaxPatternStates = 4096;
inline constexpr size_t kMaxSchemaPatternStates = 32768;  // all patterns together

// Checks that the schema is an object, that every keyword the validator acts on has the type
// draft-04 gives it (following "$ref" targets as well as the nested schemas), that every pattern
// compiles within kMaxPatternStates, and that the schema holds at most kMaxSchemaObjects objects
// and kMaxSchemaPatternStates states of patterns.
// Fails with a whole sentence naming the offending keyword's JSON pointer.
[[nodiscard]] Status CheckSchemaShape(const rapidjson::Value& schema);

// An upper bound of the states RapidJSON's regular expression engine builds for `pattern`
// (repetitions such as "{n,m}" are copied out); saturates instead of overflowing.
[[nodiscard]] size_t PatternStateBound(std::string_view pattern);

}  // namespace cmr

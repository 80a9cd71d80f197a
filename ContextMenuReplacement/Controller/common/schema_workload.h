#pragma once
// The work RapidJSON's draft-04 validator would do for one document, counted before it runs.
//
// The validator starts one schema validator per schema that applies to a value, and a schema
// that applies the same one twice ("allOf" naming it twice, or two references to it) doubles
// them at every level of the document it descends into: a schema of a few hundred bytes then
// keeps a baseline of ordinary depth busy for minutes. Counting walks the document once and
// merges the copies of a schema, so it costs no more than the limit it enforces.

#include <rapidjson/document.h>

#include <string>

#include "common/status.h"

namespace cmr {

// The schema validators one document may start. The shipped schema starts 733 for the shipped
// baseline; this is far above that, and 140,000 validators take about half a second.
inline constexpr size_t kMaxSchemaValidators = 100'000;

// Counts the schema validators `document` would start against `schema`, a schema that has
// passed CheckSchemaReferences and CheckSchemaShape. Counts every pattern-bound property
// schema and every "additionalProperties" of a key no property names, so it never counts low.
// Fails with a whole sentence naming the value where kMaxSchemaValidators is passed.
[[nodiscard]] Status CheckSchemaWorkload(const rapidjson::Value& schema,
                                         const rapidjson::Value& document);

// How many schema validators `document` would start against `schema`, at most
// kMaxSchemaValidators + 1.
[[nodiscard]] size_t SchemaValidatorCount(const rapidjson::Value& schema,
                                          const rapidjson::Value& document);

}  // namespace cmr

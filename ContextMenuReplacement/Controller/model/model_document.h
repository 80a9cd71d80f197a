#pragma once
// Model documents: the shipped baseline and the user's overlay. A document is first checked
// against custom-menu.schema.json (ValidateAgainstSchema), then its inheritance is flattened
// (layout_inheritance.h), then it is parsed into the typed model (ParseModelDocument), which
// applies every rule that has its own message: limits, node grammar, identities, duplicates.
//
// Every function here returns "" on success and otherwise the first refusal as one sentence.

#include <rapidjson/document.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "common/status.h"
#include "model/model_types.h"

namespace cmr {

// Model limits.
inline constexpr size_t kMaxItemsPerArray = 512;
inline constexpr size_t kMaxNodesPerLayout = 8192;
inline constexpr size_t kMaxItemDepth = 8;  // root items are depth 0
inline constexpr size_t kMaxPinListNameLength = 64;
inline constexpr size_t kMaxExtensionRules = 2048;  // as authored, before family expansion
inline constexpr size_t kMaxCommandDefinitions = 256;
inline constexpr size_t kMaxCommandPolicies = 2048;

// Schema versions: 1 legacy (also a document without "schema_version"), 2 current, 3 the
// placement model. Anything newer is refused rather than guessed at.
inline constexpr uint32_t kLegacySchemaVersion = 1;
inline constexpr uint32_t kPlacementSchemaVersion = 3;
inline constexpr uint32_t kNewestSchemaVersion = 3;

// The menu style of a baseline that carries no "base_id".
inline constexpr std::wstring_view kDefaultMenuStyle = L"create-organize";

// Refuses a schema the validator cannot be trusted with (common/json_text.h for its references,
// common/schema_shape.h for its shape and size) with that whole sentence; run before either
// document is checked against it.
[[nodiscard]] Status CheckSchema(const rapidjson::Value& schema);

// Checks a document against the schema with RapidJSON's draft-04 validator. Returns "" when it
// is valid, else "The baseline does not satisfy custom-menu.schema.json: {}" (or "The overlay
// ...") and a detail built from the validator's failing keyword, schema pointer and document
// pointer, for example "the 'additionalProperties' rule at schema location '#/definitions/node'
// rejects '#/insertions/0/node/hwnd'." (for that keyword the location ends with the refused key).
[[nodiscard]] Status ValidateAgainstSchema(const rapidjson::Document& schema,
                                           const rapidjson::Value& document, DocumentKind which);
// The detail alone ("the '...' rule at schema location '...' rejects '...'."), or "" when the
// document is valid. A schema CheckSchema refuses, or one that would start more than
// kMaxSchemaValidators validators over this document (common/schema_workload.h), gives that
// sentence instead, its first letter lowered.
[[nodiscard]] Status SchemaViolation(const rapidjson::Document& schema,
                                     const rapidjson::Value& document);

// The header keys of a document, read before anything else.
struct DocumentHeader {
  DocumentKind kind = DocumentKind::baseline;
  uint32_t schemaVersion = kLegacySchemaVersion;
  bool versionDeclared = false;  // false: legacy document without "schema_version"
  std::wstring baselineVersion;  // "baseline_version", empty when absent
  std::wstring baseId;           // "base_id", empty when absent
};

// Reads "document_kind", "schema_version", "baseline_version" and "base_id". Needs nothing
// else of the document, so it may run before schema validation (a future version is then
// reported as such instead of as an unknown key). On failure `out` is untouched.
[[nodiscard]] Status ReadDocumentHeader(const rapidjson::Value& document, DocumentHeader& out);

// "The custom model publisher accepts a baseline document only." unless `header` is a baseline.
[[nodiscard]] Status RequireBaselineDocument(const DocumentHeader& header);

// "Baseline and overlay schema versions must match; no automatic conversion is supported."
// unless both carry the same version (a missing version counts as 1).
[[nodiscard]] Status RequireMatchingSchemaVersions(const DocumentHeader& baseline,
                                                   const DocumentHeader& overlay);

// The document's menu style: its "base_id", or "create-organize" when it has none.
[[nodiscard]] std::wstring MenuStyleOf(const DocumentHeader& header);

// Parses a schema-valid, flattened document (inheritance resolved, "_rank" written, abstract
// layouts dropped) into `out`. Reads the internal keys "_rank", "_from", "_ancestors" and
// "_from_overlay", expands multi-family extension rules and checks duplicates, limits, the
// node grammar, identities and equal-specificity matches of concrete layouts. A layout that
// still says "abstract" is parsed but takes no part in the match check. On failure `out` is
// unspecified.
[[nodiscard]] Status ParseModelDocument(const rapidjson::Value& document, ModelDocument& out);

// "Duplicate layout id '{}'." Inheritance resolution and ParseModelDocument both refuse a
// repeated layout id with it.
[[nodiscard]] std::wstring DuplicateLayoutIdRefusal(std::wstring_view id);

// Maps a node or submenu id of the predecessor release onto today's unprefixed ids
// ("desktop-personalize" -> "personalize-settings", "fb-view" -> "view"). Ids containing ":"
// and ids that are already current are returned unchanged.
[[nodiscard]] std::wstring NormaliseLegacyLayoutId(std::wstring_view id);

}  // namespace cmr

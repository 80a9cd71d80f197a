#pragma once
// Whether a shipped schema (or one of its definitions) accepts a value, as RapidJSON's draft-04
// validator reads it; the reader tests ask it beside every row, so the schemas agree with them.

#include <rapidjson/schema.h>

#include "common/file_io.h"
#include "common/text.h"
#include "tests/support/staged_install.h"

namespace cmr {

inline bool ShippedSchemaAccepts(const wchar_t* file, const rapidjson::Value& value,
                                 const char* definition = nullptr) {
  rapidjson::Document schema;
  schema.Parse(ReadWholeFile(StagedFile(std::wstring(L"Schema\\") + file)).value().c_str());
  const rapidjson::SchemaDocument compiled(definition ? schema["definitions"][definition] : schema);
  rapidjson::SchemaValidator validator(compiled);
  return value.Accept(validator);
}

}  // namespace cmr

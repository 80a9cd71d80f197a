// The custom model's document stages on the shipped schema and baseline, read from the staged
// install tree (<build>\stage) beside the benchmark folder.

#include <cstdlib>
#include <string>

#include "bench/bench.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/json_members.h"
#include "model/layout_inheritance.h"
#include "model/model_document.h"

namespace {

const std::string& SchemaText() {
  static const std::string text = cmr::bench::StagedText(L"Schema\\custom-menu.schema.json");
  return text;
}

const std::string& BaselineText() {
  static const std::string text =
      cmr::bench::StagedText(L"Content\\Menus\\create-organize.baseline.json");
  return text;
}

const rapidjson::Document& Schema() {
  static const rapidjson::Document schema = cmr::bench::ParseOrAbort(SchemaText());
  return schema;
}

const rapidjson::Document& Baseline() {
  static const rapidjson::Document baseline = cmr::bench::ParseOrAbort(BaselineText());
  return baseline;
}

rapidjson::Document BaselineCopy() {
  rapidjson::Document copy;
  copy.CopyFrom(Baseline(), copy.GetAllocator());
  return copy;
}

const rapidjson::Document& FlattenedBaseline() {
  static const rapidjson::Document flattened = [] {
    rapidjson::Document document = BaselineCopy();
    if (!cmr::FlattenLayouts(document).message().empty()) std::abort();
    return document;
  }();
  return flattened;
}

}  // namespace

CMR_BENCH("model: validate the shipped baseline against the schema", 200) {
  const std::wstring error =
      cmr::ValidateAgainstSchema(Schema(), Baseline(), cmr::DocumentKind::baseline).message();
  if (!error.empty()) std::abort();
}

CMR_BENCH("model: flatten the shipped baseline (DOM copy included)", 500) {
  rapidjson::Document document = BaselineCopy();
  if (!cmr::FlattenLayouts(document).message().empty()) std::abort();
  cmr::bench::Consume(&document);
}

CMR_BENCH("model: parse the flattened baseline into the typed model", 500) {
  cmr::ModelDocument model;
  if (!cmr::ParseModelDocument(FlattenedBaseline(), model).message().empty()) std::abort();
  cmr::bench::Consume(&model);
}

CMR_BENCH("model: text to typed model (parse, validate, flatten, parse)", 200) {
  const rapidjson::Document schema = cmr::bench::ParseOrAbort(SchemaText());
  rapidjson::Document baseline = cmr::bench::ParseOrAbort(BaselineText());
  cmr::ModelDocument model;
  if (!cmr::ValidateAgainstSchema(schema, baseline, cmr::DocumentKind::baseline)
           .message()
           .empty() ||
      !cmr::FlattenLayouts(baseline).message().empty() ||
      !cmr::ParseModelDocument(baseline, model).message().empty()) {
    std::abort();
  }
  cmr::bench::Consume(&model);
}

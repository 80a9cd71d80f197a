// The custom model snapshot: compiling and attaching the shipped baseline, the same for a
// generated model whose image is close to the 4 MiB limit, attach against a plain copy of the
// image, and one Resolve over the shipped layouts.

#include <fmt/format.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "bench/bench.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/json_members.h"
#include "model/layout_inheritance.h"
#include "model/model_document.h"
#include "snapshot/custom_model_snapshot.h"
#include "snapshot/effective_tree.h"
#include "snapshot/target_matching.h"

namespace {

using cmr::bench::Consume;

// A document at every stage of the pipeline, built once.
struct Stages {
  std::string text;
  rapidjson::Document schema;
  rapidjson::Document document;   // as read
  rapidjson::Document flattened;  // inheritance resolved
  cmr::ModelDocument model;
  cmr::CompiledCustomModel compiled;
  std::string image;
};

std::unique_ptr<Stages> Build(std::string text) {
  auto stages = std::make_unique<Stages>();
  stages->text = std::move(text);
  stages->schema =
      cmr::bench::ParseOrAbort(cmr::bench::StagedText(L"Schema\\custom-menu.schema.json"));
  stages->document = cmr::bench::ParseOrAbort(stages->text);
  stages->flattened.CopyFrom(stages->document, stages->flattened.GetAllocator());
  if (!cmr::ValidateAgainstSchema(stages->schema, stages->document, cmr::DocumentKind::baseline)
           .message()
           .empty() ||
      !cmr::FlattenLayouts(stages->flattened).message().empty() ||
      !cmr::ParseModelDocument(stages->flattened, stages->model).message().empty()) {
    std::abort();
  }
  stages->compiled = cmr::CompileCustomModel(stages->model);
  stages->image = cmr::FlattenCustomModel(stages->compiled, 1);
  if (stages->image.empty()) std::abort();
  return stages;
}

const Stages& Shipped() {
  static const std::unique_ptr<Stages> stages =
      Build(cmr::bench::StagedText(L"Content\\Menus\\create-organize.baseline.json"));
  return *stages;
}

// File-item layouts, one per extension, each of 100 submenus of 38 commands: about 27,300
// node rows, an image a little under 4 MiB.
std::string GeneratedText() {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> w(buffer);
  w.StartObject();
  w.Key("document_kind");
  w.String("baseline");
  w.Key("schema_version");
  w.Int(2);
  w.Key("baseline_version");
  w.String("bench-generated");
  w.Key("layouts");
  w.StartArray();
  for (int layout = 0; layout < 7; ++layout) {
    w.StartObject();
    w.Key("id");
    w.String(fmt::format("generated-{}", layout).c_str());
    w.Key("match");
    w.StartObject();
    w.Key("family");
    w.String("file-item");
    w.Key("extension");
    w.String(fmt::format(".ext{}", layout).c_str());
    w.EndObject();
    w.Key("items");
    w.StartArray();
    for (int menu = 0; menu < 100; ++menu) {
      w.StartObject();
      w.Key("type");
      w.String("submenu");
      w.Key("id");
      w.String(fmt::format("menu-{}", menu).c_str());
      w.Key("title_override");
      w.String(fmt::format("Menu {} of layout {}", menu, layout).c_str());
      w.Key("items");
      w.StartArray();
      for (int command = 0; command < 38; ++command) {
        w.StartObject();
        w.Key("type");
        w.String("command");
        w.Key("id");
        w.String(fmt::format("command-{}-{}", menu, command).c_str());
        w.Key("command_id");
        w.String(fmt::format("windows:generated-{}-{}", menu, command).c_str());
        w.EndObject();
      }
      w.EndArray();
      w.EndObject();
    }
    w.EndArray();
    w.EndObject();
  }
  w.EndArray();
  w.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize());
}

const Stages& Generated() {
  static const std::unique_ptr<Stages> stages = [] {
    auto built = Build(GeneratedText());
    cmr::bench::Note(fmt::format("generated model: {} node rows, image {} bytes ({:.1f}% of 4 MiB)",
                                 built->compiled.nodes.size(), built->image.size(),
                                 100.0 * built->image.size() / cmr::kCustomModelMaxBytes));
    return built;
  }();
  return *stages;
}

void Validate(const Stages& s) {
  if (!cmr::ValidateAgainstSchema(s.schema, s.document, cmr::DocumentKind::baseline)
           .message()
           .empty()) {
    std::abort();
  }
}

void Flatten(const Stages& s) {
  rapidjson::Document copy;
  copy.CopyFrom(s.document, copy.GetAllocator());
  if (!cmr::FlattenLayouts(copy).message().empty()) std::abort();
  Consume(&copy);
}

void Compile(const Stages& s) {
  const std::string image = cmr::FlattenCustomModel(cmr::CompileCustomModel(s.model), 1);
  Consume(image.data());
}

void Attach(const Stages& s) {
  cmr::CustomModelView view;
  if (!cmr::AttachCustomModel(s.image.data(), s.image.size(), view)) std::abort();
  Consume(&view);
}

}  // namespace

CMR_BENCH("custom model: compile + flatten the shipped baseline", 500) {
  Compile(Shipped());
}
CMR_BENCH("custom model: attach the shipped baseline image", 5000) {
  Attach(Shipped());
}
CMR_BENCH("custom model: shipped text to image (parse..compile)", 100) {
  const Stages& s = Shipped();
  rapidjson::Document document = cmr::bench::ParseOrAbort(s.text);
  cmr::ModelDocument model;
  if (!cmr::ValidateAgainstSchema(s.schema, document, cmr::DocumentKind::baseline)
           .message()
           .empty() ||
      !cmr::FlattenLayouts(document).message().empty() ||
      !cmr::ParseModelDocument(document, model).message().empty()) {
    std::abort();
  }
  const std::string image = cmr::FlattenCustomModel(cmr::CompileCustomModel(model), 1);
  Consume(image.data());
}

CMR_BENCH("custom model 4 MiB: validate against the schema", 10) {
  Validate(Generated());
}
CMR_BENCH("custom model 4 MiB: flatten (DOM copy included)", 10) {
  Flatten(Generated());
}
CMR_BENCH("custom model 4 MiB: parse into the typed model", 10) {
  cmr::ModelDocument model;
  if (!cmr::ParseModelDocument(Generated().flattened, model).message().empty()) std::abort();
  Consume(&model);
}
CMR_BENCH("custom model 4 MiB: compile + flatten the image", 10) {
  Compile(Generated());
}

// The two cases below measure inside and print their own figures; the runner's warm-up call
// does the work and its timed call returns at once.
CMR_BENCH("custom model 4 MiB: attach, against copying the image", 0) {
  const std::string& image = Generated().image;
  std::string target(image.size(), '\0');
  const cmr::bench::Figures copy = cmr::bench::Measure(200, [&] {
    std::memcpy(target.data(), image.data(), image.size());
    Consume(target.data());
  });
  const cmr::bench::Figures attach = cmr::bench::Measure(200, [&] { Attach(Generated()); });
  cmr::bench::PrintFigures("  copy the 4 MiB image (memcpy)", 200, copy);
  cmr::bench::PrintFigures("  attach the 4 MiB image", 200, attach);
  cmr::bench::Note(fmt::format("attach / copy = {:.2f}x", attach.medianMicros / copy.medianMicros));
}

CMR_BENCH("custom model: one Resolve over the shipped layouts", 0) {
  const std::string& image = Shipped().image;
  cmr::CustomModelView view;
  std::vector<cmr::LayoutMatchView> layouts;
  if (!cmr::AttachCustomModel(image.data(), image.size(), view) ||
      !cmr::ReadLayoutMatches(view, layouts)) {
    std::abort();
  }
  constexpr int kCalls = 10000;
  for (const wchar_t* text : {L"file:.txt", L"namespace:{20d04fe0-3aea-1069-a2d8-08002b30309d}"}) {
    cmr::MenuTarget target;
    if (!cmr::ParseTarget(text, target).message().empty()) std::abort();
    const cmr::bench::Figures figures = cmr::bench::Measure(50, [&] {
      for (int i = 0; i < kCalls; ++i) {
        const cmr::MatchResult result = cmr::Resolve(layouts, target);
        Consume(&result);
      }
    });
    cmr::bench::Note(fmt::format("Resolve {}: {:.1f} ns per call (median of 50 x {} calls)",
                                 cmr::ToUtf8(text), figures.medianMicros * 1000.0 / kCalls,
                                 kCalls));
  }
}

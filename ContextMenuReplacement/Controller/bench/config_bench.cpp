// Parsing, flattening and publishing the menu configuration, against RapidJSON's own parse.

#include <fmt/format.h>
#include <fmt/xchar.h>

#include "bench/bench.h"
#include "common/file_io.h"
#include "common/json_text.h"
#include "config/config_loader.h"
#include "config/config_snapshot.h"
#include "config/menu_document.h"

namespace cmr::bench {
namespace {

// A document with `items` distinct user commands spread over four profiles.
std::string GeneratedDocument(int items) {
  std::string text = "{\"profiles\":[";
  const char* contexts[] = {"desktop-background", "folder-background", "folder-item", "other-item"};
  for (int p = 0; p < 4; ++p) {
    text += fmt::format(
        "{}{{\"match\":{{\"context\":[\"{}\"]}},\"items\":[{{\"source\":\"modern\"}},"
        "{{\"type\":\"separator\"}}",
        p ? "," : "", contexts[p]);
    for (int i = p; i < items; i += 4) {
      text += fmt::format(
          ",{{\"source\":\"user\",\"title\":\"Command number {}\",\"executable\":"
          "\"C:\\\\Tools\\\\tool-{}.exe\",\"arguments\":[\"--flag\",\"{{targetPath}}\",\"--id={}\"]"
          "}}",
          i, i, i);
    }
    text += ",{\"source\":\"classic\",\"include\":\"*\"}]}";
  }
  return text + "]}";
}

uint64_t FlattenedSize(const std::string& text) {
  rapidjson::Document document;
  JsonParseFailure failure;
  if (!ParseJsonText(text, true, document, failure)) return 0;
  MenuConfiguration config;
  MessageList errors, warnings;
  if (!ParseMenuDocument(document, config, errors, warnings)) return 0;
  return LayoutSnapshot(config).totalBytes;
}

// The largest generated document that still flattens to at most 1 MiB.
const std::string& NearLimitDocument() {
  static const std::string text = [] {
    int low = 1, high = 20000;
    while (low < high) {
      const int mid = (low + high + 1) / 2;
      if (FlattenedSize(GeneratedDocument(mid)) <= kSnapshotLimitBytes)
        low = mid;
      else
        high = mid - 1;
    }
    return GeneratedDocument(low);
  }();
  return text;
}

void ParseAndFlatten(std::string_view text) {
  rapidjson::Document document;
  JsonParseFailure failure;
  (void)ParseJsonText(text, true, document, failure);
  MenuConfiguration config;
  MessageList errors, warnings;
  (void)ParseMenuDocument(document, config, errors, warnings);
  const std::string image = FlattenConfiguration(config, 1);
  Consume(image.data());
}

void ParseOnly(std::string_view text) {
  rapidjson::Document document;
  JsonParseFailure failure;
  (void)ParseJsonText(text, true, document, failure);
  Consume(&document);
}

void CompareWithRapidJson(const char* label, std::string_view text, int repetitions) {
  const Figures ours = Measure(repetitions, [&] { ParseAndFlatten(text); });
  const Figures json = Measure(repetitions, [&] { ParseOnly(text); });
  Note(fmt::format("{}: parse+flatten {:.1f} us, RapidJSON parse alone {:.1f} us, ratio {:.2f}",
                   label, ours.medianMicros, json.medianMicros,
                   ours.medianMicros / json.medianMicros));
}

}  // namespace
}  // namespace cmr::bench

using namespace cmr;
using namespace cmr::bench;

CMR_BENCH("config: parse + flatten the starter document", 2000) {
  ParseAndFlatten(StarterDocumentText());
}

CMR_BENCH("config: parse + flatten a configuration just under 1 MiB", 30) {
  ParseAndFlatten(NearLimitDocument());
}

CMR_BENCH("config: ratio to RapidJSON's parse alone", 0) {
  CompareWithRapidJson("starter", StarterDocumentText(), 2000);
  Note(fmt::format("near-limit document: {} bytes of JSON, flattens to {} bytes",
                   NearLimitDocument().size(), FlattenedSize(NearLimitDocument())));
  CompareWithRapidJson("near-limit", NearLimitDocument(), 30);
  // Under Wine every fresh block of this size is mapped and faulted in anew, which weighs on
  // the near-limit figures (the configuration, its pool and its image are each about 1 MiB).
  const Figures fresh = Measure(30, [] {
    std::string block(1u << 20, '\0');
    Consume(block.data());
  });
  Note(fmt::format("a fresh zero-filled 1 MiB block: {:.1f} us", fresh.medianMicros));
}

CMR_BENCH("config: publish the 1 MiB configuration end to end", 20) {
  wchar_t temp[MAX_PATH + 1] = {};
  ::GetTempPathW(MAX_PATH, temp);
  static const std::wstring folder = JoinPath(temp, L"cmr-bench-config");
  static const std::wstring menu = JoinPath(folder, L"menu.json");
  static const bool written = [] {
    (void)EnsureDirectories(folder);
    return AtomicWriteFile(menu, NearLimitDocument()).ok();
  }();
  ConfigPublisher publisher(JoinPath(folder, L"published"), SystemFiles());
  const PublishResult result = LoadMenuFile(menu, PublishMode::publish, publisher);
  Consume(&result);
  Consume(&written);
}

// validate-user in process: the shipped baseline with a realistic overlay, the feedback an
// editor gives on each keystroke. The documents are served from memory so that the figure is
// the program's own work, not the disk's.

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "bench/bench.h"
#include "snapshot/overlay_pipeline.h"

namespace {

class MemoryFiles final : public cmr::FileOperations {
 public:
  std::map<std::wstring, std::string> files;
  cmr::Result<std::optional<std::string>> Read(const std::wstring& path) override {
    const auto found = files.find(path);
    if (found == files.end()) return std::optional<std::string>();
    return std::optional<std::string>(found->second);
  }
  cmr::Status WriteAtomically(const std::wstring&, std::string_view) override { std::abort(); }
  cmr::Status Delete(const std::wstring&) override { std::abort(); }
  cmr::Status UpdateMapped(const std::wstring&, size_t,
                           const std::function<void(unsigned char*)>&) override {
    std::abort();
  }
};

// Rows of the shipped layouts that overrides can name: (layout, node).
const char* const kRows[][2] = {
    {"desktop-default", "refresh"},
    {"desktop-default", "paste"},
    {"desktop-default", "undo"},
    {"desktop-default", "display-settings"},
    {"desktop-default", "quick-browse"},
    {"folder-background-default", "refresh"},
    {"folder-background-default", "paste"},
    {"folder-background-default", "undo"},
    {"folder-background-default", "quick-pins"},
    {"folder-background-default", "properties"},
};

std::string SchemaTwoOverlay() {
  std::string overrides, insertions, layouts, rules;
  for (int i = 0; i < 50; ++i) {
    const auto& row = kRows[i % 10];
    if (i) overrides += ',';
    overrides += std::string(R"({"layout_id":")") + row[0] + R"(","node_id":")" + row[1] +
                 R"(","title_override":"T)" + std::to_string(i) + "\"}";
  }
  for (int i = 0; i < 20; ++i) {
    if (i) insertions += ',', layouts += i < 10 ? "," : "", rules += ',';
    insertions += R"({"layout_id":"drive-default","node":{"type":"command","id":"ins)" +
                  std::to_string(i) + R"(","command_id":"windows:ins)" + std::to_string(i) + "\"}}";
    if (i < 10) {
      layouts += R"({"id":"ext)" + std::to_string(i) +
                 R"(","match":{"family":"file-item","extension":".e)" + std::to_string(i) +
                 R"("},"items":[{"type":"command","id":"open","command_id":"windows:open"}]})";
    }
    rules += R"({"id":"r)" + std::to_string(i) + R"(","command_id":"classic:verb:v)" +
             std::to_string(i) + R"(","match":{"family":["file-item"]},"action":{"kind":"hide"}})";
  }
  return R"({"document_kind":"overlay","schema_version":2,"baseline_version":"win11-shell-2026.11",)"
         R"("node_overrides":[)" +
         overrides + R"(],"insertions":[)" + insertions + R"(],"layouts":[)" + layouts +
         R"(],"extension_rules":[)" + rules + "]}";
}

std::string SchemaThreeOverlay() {
  std::string lists;
  const char* const targets[] = {"folder-item-default", "folder-background-default",
                                 "drive-default", "file-item-default"};
  for (int list = 0; list < 4; ++list) {
    if (list) lists += ',';
    lists += std::string(R"({"id":")") + targets[list] + R"(","edits":[)";
    for (int i = 0; i < 50; ++i) {
      // Built by appending: "literal" + std::string trips a false -Wrestrict in GCC 12.
      std::string id("e");
      id.append(std::to_string(list)).append("-").append(std::to_string(i));
      if (i) lists += ',';
      lists += i % 5 == 4 ? R"({"action":"move","node":{"id":"e)" + std::to_string(list) + "-" +
                                std::to_string(i - 1) + R"("},"position":"end"})"
                          : R"({"action":"insert","node":{"type":"separator","id":")" + id +
                                R"("},"anchor_id":"properties","after":false})";
    }
    lists += "]}";
  }
  return R"({"document_kind":"overlay","schema_version":3,"baseline_version":"win11-shell-2026.11",)"
         R"("layout_edits":[)" +
         lists + "]}";
}

MemoryFiles& Files(int version) {
  static MemoryFiles two, three;
  MemoryFiles& files = version == 2 ? two : three;
  if (files.files.empty()) {
    std::string baseline = cmr::bench::StagedText(L"Content\\Menus\\create-organize.baseline.json");
    if (version == 3)
      baseline.replace(baseline.find("\"schema_version\": 2"), 19, "\"schema_version\": 3");
    files.files[L"schema"] = cmr::bench::StagedText(L"Schema\\custom-menu.schema.json");
    files.files[L"baseline"] = baseline;
    files.files[L"overlay"] = version == 2 ? SchemaTwoOverlay() : SchemaThreeOverlay();
  }
  return files;
}

void ValidateUser(int version) {
  const cmr::ModelPipelineResult result =
      cmr::PublishWithOverlay({L"schema", L"baseline", L"overlay"}, false, Files(version));
  if (!result.errors.empty()) {
    std::fwprintf(stderr, L"%ls\n", result.errors[0].c_str());
    std::abort();
  }
}

}  // namespace

CMR_BENCH("overlay: validate-user, 50 overrides 20 insertions 10 layouts 20 rules", 200) {
  ValidateUser(2);
}

CMR_BENCH("overlay: validate-user, schema 3 with 200 placement edits", 200) {
  ValidateUser(3);
}

#include "snapshot/contract_suites.h"

#include <algorithm>
#include <memory>

#include "common/console.h"
#include "common/file_io.h"
#include "common/json_text.h"
#include "common/unique_handle.h"
#include "common/win32.h"
#include "model/model_document.h"
#include "snapshot/contract_fixture.h"
#include "snapshot/overlay_pipeline.h"

namespace cmr {
namespace {

// The "*.json" files of `folder`, in ordinal name order so every run reports alike.
std::vector<std::wstring> FixtureNames(const std::wstring& folder) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW entry{};
  UniqueFind find(::FindFirstFileW(JoinPath(folder, L"*.json").c_str(), &entry));
  if (!find) return names;
  do {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
      names.emplace_back(entry.cFileName);
  } while (::FindNextFileW(find.get(), &entry));
  std::sort(names.begin(), names.end());
  return names;
}

Status LoadJson(const std::wstring& path, rapidjson::Document& document) {
  const Result<std::string> text = ReadWholeFile(path);
  if (!text) return Failure(L"'{}' could not be read.", path);
  JsonParseFailure failure;
  if (!ParseJsonText(text.value(), false, document, failure)) {
    return Failure(L"'{}' is not valid JSON at offset {}: {}", path, failure.offset,
                   failure.description);
  }
  return Status::Ok();
}

// What every shipped id and caption must be so that overlays can name it and menus can show it.
std::wstring ShippedNodeProblem(const std::vector<ModelNode>& items) {
  for (const ModelNode& node : items) {
    // An overlay of the predecessor release reaches a row only through the id normalisation.
    if (NormaliseLegacyLayoutId(node.id) != node.id) {
      return L"the row '" + node.id + L"' is not its own normal id";
    }
    if (node.kind == NodeKind::submenu && node.titleOverride.empty()) {
      return L"the submenu '" + node.id + L"' has no title_override, so its bare id would show";
    }
    if (std::wstring problem = ShippedNodeProblem(node.items); !problem.empty()) return problem;
  }
  return L"";
}

class Suite {
 public:
  void Report(const std::wstring& name, const std::wstring& why) {
    if (why.empty()) {
      ++passed_;
      PrintLine(L"PASS  %s", name);
    } else {
      ++failed_;
      PrintLine(L"FAIL  %s: %s", name, why);
    }
  }

  void RunFixtures(const std::wstring& folder, const ContractInputs& inputs) {
    const std::vector<std::wstring> names = FixtureNames(folder);
    if (names.empty()) Report(folder, L"the folder holds no fixture files");
    for (const std::wstring& file : names) {
      const std::wstring name = file.substr(0, file.size() - 5);
      rapidjson::Document fixture;
      if (Status loaded = LoadJson(JoinPath(folder, file), fixture); !loaded) {
        Report(name, loaded.message());
        continue;
      }
      ExpandRepeats(fixture);
      Report(name, CheckContractFixture(fixture, inputs));
    }
  }

  int Finish() {
    PrintLine(L"%zu passed, %zu failed.", passed_, failed_);
    return failed_ == 0 ? 0 : 1;
  }

 private:
  size_t passed_ = 0, failed_ = 0;
};

int RunSuite(const std::wstring& schemaPath, const std::wstring& fixturesFolder,
             const std::vector<std::wstring>& baselinePaths) {
  OutputBatch batch;
  rapidjson::Document schema;
  if (Status loaded = LoadJson(schemaPath, schema); !loaded) {
    PrintLine(L"The schema %s", loaded.message());
    return 1;
  }
  Suite suite;
  ContractInputs inputs{&schema, {}};
  std::vector<std::unique_ptr<rapidjson::Document>> baselines;
  for (const std::wstring& path : baselinePaths) {
    const std::wstring name = L"shipped " + std::wstring(FileNameOf(path));
    auto baseline = std::make_unique<rapidjson::Document>();
    if (Status loaded = LoadJson(path, *baseline); !loaded) {
      suite.Report(name, loaded.message());
      continue;
    }
    rapidjson::Document merged;
    merged.CopyFrom(*baseline, merged.GetAllocator());
    ModelDocument model;
    bool restamped = false;
    Status compiled = MergeModelDocuments(schema, merged, nullptr, model, restamped);
    std::wstring why = compiled.message();
    for (const Layout& layout : model.layouts) {
      if (why.empty()) why = ShippedNodeProblem(layout.items);
    }
    suite.Report(name, why);
    inputs.baselines.emplace_back(FileNameOf(path), baseline.get());
    baselines.push_back(std::move(baseline));
  }
  suite.RunFixtures(fixturesFolder, inputs);
  return suite.Finish();
}

}  // namespace

int RunModelContracts(const std::wstring& schemaPath, const std::wstring& fixturesFolder,
                      const std::vector<std::wstring>& baselinePaths) {
  return RunSuite(schemaPath, fixturesFolder, baselinePaths);
}

int RunPlacementContracts(const std::wstring& schemaPath, const std::wstring& fixturesFolder) {
  return RunSuite(schemaPath, fixturesFolder, {});
}

}  // namespace cmr

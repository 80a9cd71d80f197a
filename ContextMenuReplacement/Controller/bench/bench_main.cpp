#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/bench.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/json_text.h"
#include "tests/support/child_process.h"
#include "tests/support/staged_install.h"

namespace cmr::bench {

std::vector<Case>& Registry() {
  static std::vector<Case> cases;
  return cases;
}

bool Register(Case c) {
  Registry().push_back(std::move(c));
  return true;
}

Figures Measure(int repetitions, const std::function<void()>& body) {
  std::vector<double> samples;
  samples.reserve(static_cast<size_t>(repetitions));
  body();  // warm-up: first-touch page faults and caches are not what we measure
  for (int i = 0; i < repetitions; ++i) {
    const auto start = std::chrono::steady_clock::now();
    body();
    const auto end = std::chrono::steady_clock::now();
    samples.push_back(std::chrono::duration<double, std::micro>(end - start).count());
  }
  std::sort(samples.begin(), samples.end());
  Figures f;
  f.medianMicros = samples[samples.size() / 2];
  f.minMicros = samples.front();
  f.maxMicros = samples.back();
  return f;
}

void PrintFigures(const std::string& name, int repetitions, const Figures& f) {
  std::printf("%-58s median %12.1f us   min %12.1f us   max %12.1f us   (n=%d)\n", name.c_str(),
              f.medianMicros, f.minMicros, f.maxMicros, repetitions);
  std::fflush(stdout);
}

void Note(const std::string& text) {
  std::printf("    %s\n", text.c_str());
  std::fflush(stdout);
}

std::string StagedText(const wchar_t* relative) {
  Result<std::string> bytes = ReadWholeFile(StagedFile(relative));
  if (!bytes) std::abort();
  return std::move(bytes.value());
}

rapidjson::Document ParseOrAbort(const std::string& text) {
  rapidjson::Document document;
  JsonParseFailure failure;
  if (!ParseJsonText(text, false, document, failure)) std::abort();
  return document;
}

std::wstring BuildFile(const wchar_t* folder, const wchar_t* file) {
  return JoinPath(JoinPath(ParentFolder(ExecutableFolder()), folder), file);
}

std::wstring StagedController() {
  return BuildFile(L"stage", L"ContextMenuReplacement.Controller.exe");
}

void RunToExit(const std::wstring& exe, const std::wstring& arguments) {
  const UniqueHandle process = StartCommandLine(QuoteArgument(exe) + L" " + arguments).process;
  if (process) ::WaitForSingleObject(process.get(), INFINITE);
}

double TimedControllerRun(const std::wstring& arguments) {
  const auto start = std::chrono::steady_clock::now();
  RunToExit(StagedController(), arguments);
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
      .count();
}

void NoteRatioToNoArguments(const std::string& name, const std::wstring& arguments, int runs) {
  std::vector<double> verb, bare;
  for (int i = 0; i < runs; ++i) {
    verb.push_back(TimedControllerRun(arguments));
    bare.push_back(TimedControllerRun(L""));
  }
  std::sort(verb.begin(), verb.end());
  std::sort(bare.begin(), bare.end());
  const double verbMedian = verb[verb.size() / 2], bareMedian = bare[bare.size() / 2];
  Note(fmt::format("{}: median {:.0f} us (min {:.0f}); no arguments median {:.0f} us (min {:.0f})",
                   name, verbMedian, verb.front(), bareMedian, bare.front()));
  Note(fmt::format("{} / no arguments: medians {:.2f}x, minimums {:.2f}x ({} runs each)", name,
                   verbMedian / bareMedian, verb.front() / bare.front(), runs));
}

void Consume(const void* p) {
  asm volatile("" : : "g"(p) : "memory");
}

}  // namespace cmr::bench

// Usage: controller_bench [substring]  runs the cases whose name contains the substring.
int main(int argc, char** argv) {
  using namespace cmr::bench;
  const char* filter = argc > 1 ? argv[1] : nullptr;
  for (const Case& c : Registry()) {
    if (filter && std::strstr(c.name.c_str(), filter) == nullptr) continue;
    // A case registered with 0 repetitions measures and prints on its own, under its name.
    if (c.repetitions == 0) {
      std::printf("%s\n", c.name.c_str());
      c.body();
      continue;
    }
    PrintFigures(c.name, c.repetitions, Measure(c.repetitions, c.body));
  }
  return 0;
}

#pragma once
// In-process benchmark cases. Each case runs its body repeatedly and the runner prints the
// median and the spread; nothing here ever fails on time.

#include <rapidjson/document.h>

#include <functional>
#include <string>
#include <vector>

#include "common/unique_handle.h"
#include "tests/support/child_process.h"

namespace cmr::bench {

struct Case {
  std::string name;
  int repetitions;
  std::function<void()> body;
};

struct Figures {
  double medianMicros = 0;
  double minMicros = 0;
  double maxMicros = 0;
};

std::vector<Case>& Registry();
bool Register(Case c);

// Runs a body `repetitions` times and returns its figures (used by cases that report ratios).
Figures Measure(int repetitions, const std::function<void()>& body);
void PrintFigures(const std::string& name, int repetitions, const Figures& figures);
// A free-form result line of a case (ratios, counts).
void Note(const std::string& text);

// A file of the staged install tree (<build>\stage beside <build>\bench), e.g.
// L"Schema\\custom-menu.schema.json". Aborts when it cannot be read: a benchmark without its
// input measures nothing.
std::string StagedText(const wchar_t* relative);
// Parses JSON text that is known to be valid; aborts otherwise.
rapidjson::Document ParseOrAbort(const std::string& text);

// A program of the build tree, e.g. BuildFile(L"stage", L"ContextMenuReplacement.Controller.exe")
// (<build>\bench holds the benchmark, <build>\stage the controller, <build>\rig the stand-ins).
std::wstring BuildFile(const wchar_t* folder, const wchar_t* file);
std::wstring StagedController();
// StartCommandLine (tests/support/child_process.h), then waits for the process to end.
void RunToExit(const std::wstring& exe, const std::wstring& arguments = L"");
// Microseconds from starting the staged controller with `arguments` to its exit.
double TimedControllerRun(const std::wstring& arguments);
// Start-to-exit of the staged controller with `arguments` against the no-argument run, the two
// alternated run by run so that a machine whose load drifts weighs on both alike; prints the
// medians, the minimums and their ratios under `name`.
void NoteRatioToNoArguments(const std::string& name, const std::wstring& arguments, int runs);

// Keeps the optimiser from discarding a computed value.
void Consume(const void* p);

}  // namespace cmr::bench

#define CMR_BENCH_CONCAT2(a, b) a##b
#define CMR_BENCH_CONCAT(a, b) CMR_BENCH_CONCAT2(a, b)
// CMR_BENCH("name", repetitions) { body }
#define CMR_BENCH(name, repetitions)                                                        \
  static void CMR_BENCH_CONCAT(BenchBody_, __LINE__)();                                     \
  static const bool CMR_BENCH_CONCAT(bench_registered_, __LINE__) =                         \
      ::cmr::bench::Register({name, repetitions, &CMR_BENCH_CONCAT(BenchBody_, __LINE__)}); \
  static void CMR_BENCH_CONCAT(BenchBody_, __LINE__)()

// Inputs chosen to make the program slow: menu strings built to share one probe run of the
// string pool's index, and a menu with 100,000 warnings printed through a pipe.

#include <fmt/format.h>

#include <chrono>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "bench/bench.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/json_text.h"
#include "common/unique_handle.h"
#include "config/menu_document.h"
#include "tests/support/staged_install.h"

namespace cmr::bench {
namespace {

// Equal-length strings whose unkeyed FNV-1a hashes share their low 20 bits, which is all a
// table of up to a million slots looks at. The low bits of FNV-1a depend only on the low bits
// of the state and of each unit, so a pair of five-letter blocks taking one low state to the
// same next one, chained `blocks` times, gives 2^blocks colliding strings. (Three letters carry
// too few bits to collide at all in 20 bits of state.)
std::vector<std::string> CollidingStrings(int blocks) {
  constexpr uint64_t kMask = (1u << 20) - 1;
  constexpr uint64_t kPrime = 1099511628211ull;
  uint64_t state = 1469598103934665603ull & kMask;
  std::mt19937 random(1);
  std::vector<std::pair<std::string, std::string>> pairs;
  for (int b = 0; b < blocks; ++b) {
    std::unordered_map<uint64_t, std::string> seen;
    for (;;) {
      std::string block;
      uint64_t next = state;
      for (int i = 0; i < 5; ++i) {
        block += static_cast<char>('a' + random() % 26);
        next = ((next ^ static_cast<unsigned char>(block.back())) * kPrime) & kMask;
      }
      const auto [found, added] = seen.emplace(next, block);
      if (!added && found->second != block) {
        pairs.emplace_back(found->second, block);
        state = next;
        break;
      }
    }
  }
  std::vector<std::string> strings(size_t{1} << blocks);
  for (size_t n = 0; n < strings.size(); ++n) {
    for (int b = 0; b < blocks; ++b) strings[n] += (n >> b) & 1 ? pairs[b].second : pairs[b].first;
  }
  return strings;
}

std::string MenuOfTitles(const std::vector<std::string>& titles) {
  std::string text = R"({"profiles":[{"match":{"context":["folder-item"]},"items":[)";
  for (size_t i = 0; i < titles.size(); ++i) {
    text += fmt::format(R"({}{{"source":"user","title":"{}","executable":"x.exe"}})", i ? "," : "",
                        titles[i]);
  }
  return text + "]}]}";
}

void ParseMenu(const std::string& text) {
  rapidjson::Document document;
  JsonParseFailure failure;
  (void)ParseJsonText(text, true, document, failure);
  MenuConfiguration configuration;
  MessageList errors, warnings;
  (void)ParseMenuDocument(document, configuration, errors, warnings);
  Consume(&configuration);
}

// Starts the staged controller with standard output on a pipe that is read to the end, and
// waits for it to exit.
void RunThroughPipe(const std::wstring& arguments) {
  static const std::wstring controller =
      JoinPath(JoinPath(ParentFolder(ExecutableFolder()), L"stage"),
               L"ContextMenuReplacement.Controller.exe");
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  HANDLE readRaw = nullptr, writeRaw = nullptr;
  if (!::CreatePipe(&readRaw, &writeRaw, &inherit, 1 << 16)) return;
  UniqueHandle read(readRaw), write(writeRaw);
  ::SetHandleInformation(read.get(), HANDLE_FLAG_INHERIT, 0);
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = startup.hStdError = write.get();
  PROCESS_INFORMATION info{};
  std::wstring line = L"\"" + controller + L"\" " + arguments;
  if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &info)) {
    return;
  }
  ::CloseHandle(info.hThread);
  UniqueHandle process(info.hProcess);
  write.reset();
  char buffer[1 << 16];
  DWORD got = 0;
  while (::ReadFile(read.get(), buffer, sizeof(buffer), &got, nullptr) && got > 0) {
  }
  ::WaitForSingleObject(process.get(), INFINITE);
}

// One timed run each: against the unkeyed hash the colliding case is quadratic and takes
// minutes, so neither case is repeated.
double MillisecondsOf(const std::function<void()>& body) {
  const auto start = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

const bool collisions = Register(
    {"hostile: 2^14 menu titles colliding in unkeyed FNV-1a vs random titles", 0, [] {
       const std::vector<std::string> colliding = CollidingStrings(14);
       std::vector<std::string> random = colliding;
       std::mt19937 shuffle(2);
       for (std::string& title : random) {
         for (char& c : title) c = static_cast<char>('a' + shuffle() % 26);
       }
       const std::string hostile = MenuOfTitles(colliding);
       const std::string ordinary = MenuOfTitles(random);
       const double h = MillisecondsOf([&] { ParseMenu(hostile); });
       const double o = MillisecondsOf([&] { ParseMenu(ordinary); });
       Note(fmt::format("{} bytes of menu: colliding titles {:.0f} ms, random titles {:.0f} ms",
                        hostile.size(), h, o));
     }});

const bool warnings = Register(
    {"hostile: 100,000 warnings printed through a pipe", 0, [] {
       wchar_t temp[MAX_PATH + 1] = {};
       ::GetTempPathW(MAX_PATH, temp);
       const std::wstring menu = JoinPath(temp, L"cmr-bench-warnings.json");
       std::string text = R"({"profiles":[{"match":{"context":["other-item")";
       for (int i = 0; i < 100000; ++i) text += R"(,"unknown")";
       text += R"(]},"items":[{"source":"modern"}]}]})";
       if (!AtomicWriteFile(menu, text)) return;
       const double ms =
           MillisecondsOf([&] { RunThroughPipe(L"config publish \"" + menu + L"\""); });
       Note(fmt::format("config publish with 100,000 warnings, output on a pipe: {:.0f} ms", ms));
     }});

}  // namespace
}  // namespace cmr::bench

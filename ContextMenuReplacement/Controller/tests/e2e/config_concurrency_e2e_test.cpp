// Readers in other processes never see a torn or mismatched configuration snapshot while the
// controller keeps publishing. The reader is this test executable started a second time, with
// an environment variable that turns the otherwise skipped ReaderLoop test into the reader.

#include <fmt/xchar.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "common/data_paths.h"
#include "common/byte_image.h"
#include "common/file_io.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "config/config_publisher.h"
#include "config/config_snapshot.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

constexpr wchar_t kReaderVariable[] = L"CMR_CONFIG_READER_LAST_VERSION";
constexpr wchar_t kReadyEvent[] = L"Local\\cmr-e2e-config-reader-ready";
constexpr uint32_t kPublications = 600;

// Two configurations of different sizes and strings; odd versions carry the first.
MenuConfiguration Alternative(uint32_t version) {
  MenuConfiguration config;
  const bool odd = version % 2 == 1;
  config.profiles.push_back({odd ? kContextFolderItem : kContextOtherItem, 0, odd ? 2u : 1u});
  for (uint32_t i = 0; i < (odd ? 2u : 1u); ++i) {
    ItemRecord item;
    item.source = ItemSource::user;
    item.title = config.pool.Intern(odd ? L"Open here" : L"A much longer title for the even ones");
    item.executable = config.pool.Intern(fmt::format(L"tool{}.exe", i));
    item.firstArgument = static_cast<uint32_t>(config.arguments.size());
    item.argumentCount = odd ? 3 : 1;
    for (uint32_t a = 0; a < item.argumentCount; ++a) {
      config.arguments.push_back(config.pool.Intern(fmt::format(L"--arg{}-{}", a, odd)));
    }
    config.items.push_back(item);
  }
  return config;
}

// Inside the scratch folder that the publishing test empties before it starts the reader.
std::wstring ResultPath() {
  wchar_t temp[MAX_PATH + 1] = {};
  ::GetTempPathW(MAX_PATH, temp);
  return JoinPath(JoinPath(JoinPath(temp, L"cmr-e2e"), L"config-concurrency"),
                  L"reader-result.txt");
}

TEST(ConfigConcurrencyE2e, ReaderLoop) {
  wchar_t value[32] = {};
  if (::GetEnvironmentVariableW(kReaderVariable, value, 32) == 0) {
    GTEST_SKIP() << "runs only as the reader process of ReadersNeverSeeATornSnapshot";
  }
  const uint32_t last = static_cast<uint32_t>(std::wcstoul(value, nullptr, 10));
  const std::wstring control = ControlFilePath();
  UniqueHandle file(::CreateFileW(control.c_str(), GENERIC_READ,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  ASSERT_TRUE(file.valid());
  UniqueHandle mapping(
      ::CreateFileMappingW(file.get(), nullptr, PAGE_READONLY, 0, kControlBytes, nullptr));
  ASSERT_TRUE(mapping.valid());
  UniqueView view(::MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, kControlBytes));
  ASSERT_TRUE(view.valid());
  auto* words = static_cast<volatile LONG*>(view.get());
  UniqueHandle ready(::OpenEventW(EVENT_MODIFY_STATE, FALSE, kReadyEvent));
  ASSERT_TRUE(ready.valid());
  ::SetEvent(ready.get());

  uint64_t reads = 0, failures = 0;
  uint32_t distinct = 0, previous = 0;
  const ULONGLONG deadline = ::GetTickCount64() + 120000;
  while (previous < last && ::GetTickCount64() < deadline) {
    // An aligned load and an acquire barrier: an interlocked read would write to the read-only
    // view and fault.
    const uint32_t version = static_cast<uint32_t>(words[2]);
    std::atomic_thread_fence(std::memory_order_acquire);
    ByteImageReader header(view.get(), kControlBytes);
    if (header.U32(0) != kConfigMagic || header.U32(4) != kConfigLayout || version < previous) {
      ++failures;
      continue;
    }
    const Result<std::string> read = ReadWholeFile(SnapshotFilePath(version));
    if (!read) {
      ++failures;
      continue;
    }
    const std::string& image = read.value();
    const std::wstring problem = CheckSnapshotImage(image, version);
    if (!problem.empty() || image != FlattenConfiguration(Alternative(version), version)) {
      if (failures < 5) ADD_FAILURE() << "version " << version << ": " << ToUtf8(problem);
      ++failures;
    }
    ++reads;
    if (version != previous) ++distinct;
    previous = version;
  }
  WriteBytes(ResultPath(), fmt::format("{} {} {} {}", reads, failures, distinct, previous));
  EXPECT_EQ(failures, 0u);
  EXPECT_EQ(previous, last);
}

TEST(ConfigConcurrencyE2e, ReadersNeverSeeATornSnapshot) {
  ResetUserData();
  (void)ScratchFolder(L"config-concurrency");
  ConfigPublisher publisher;
  PublishResult first;
  publisher.Publish(Alternative(1), PublishMode::publish, GlobalsPolicy::withDefaultGlobals, first);
  ASSERT_EQ(first.version, 1u);

  UniqueHandle ready(::CreateEventW(nullptr, TRUE, FALSE, kReadyEvent));
  ASSERT_TRUE(ready.valid());
  wchar_t self[MAX_PATH * 2] = {};
  ::GetModuleFileNameW(nullptr, self, MAX_PATH * 2);
  std::wstring line = fmt::format(L"\"{}\" --gtest_filter=ConfigConcurrencyE2e.ReaderLoop", self);
  ASSERT_TRUE(::SetEnvironmentVariableW(kReaderVariable, std::to_wstring(kPublications).c_str()));
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION info{};
  const BOOL started = ::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                        nullptr, &startup, &info);
  ::SetEnvironmentVariableW(kReaderVariable, nullptr);
  ASSERT_TRUE(started);
  UniqueHandle reader(info.hProcess);
  UniqueHandle readerThread(info.hThread);
  ASSERT_EQ(::WaitForSingleObject(ready.get(), 60000), WAIT_OBJECT_0);

  for (uint32_t version = 2; version <= kPublications; ++version) {
    PublishResult result;
    publisher.Publish(Alternative(version), PublishMode::publish,
                      GlobalsPolicy::withDefaultGlobals, result);
    ASSERT_EQ(result.version, version) << (result.errors.empty() ? "" : ToUtf8(result.errors[0]));
  }
  ASSERT_EQ(::WaitForSingleObject(reader.get(), 150000), WAIT_OBJECT_0);
  DWORD exitCode = 1;
  ::GetExitCodeProcess(reader.get(), &exitCode);
  const std::string summary = ReadBytes(ResultPath());
  unsigned long long reads = 0, failures = 0, distinct = 0, last = 0;
  ASSERT_EQ(
      std::sscanf(summary.c_str(), "%llu %llu %llu %llu", &reads, &failures, &distinct, &last), 4)
      << summary;
  std::printf(
      "reader: %llu checked reads over %llu distinct versions, %llu failures; %u "
      "publications\n",
      reads, distinct, failures, kPublications);
  EXPECT_EQ(exitCode, 0u);
  EXPECT_EQ(failures, 0u);
  EXPECT_EQ(last, kPublications);
  // The reader overlapped the publications rather than starting after them.
  EXPECT_GT(distinct, 1u);
}

}  // namespace
}  // namespace cmr::e2e

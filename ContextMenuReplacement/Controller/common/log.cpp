#include "common/log.h"

#include <fmt/xchar.h>

#include <memory>
#include <mutex>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/file_time.h"
#include "common/text.h"
#include "common/unique_handle.h"

namespace cmr {

namespace {

struct PlainTextLogger {
  std::mutex mutex;
  UniqueHandle file;
  std::wstring path;
};

PlainTextLogger& Logger() {
  static PlainTextLogger logger;
  return logger;
}

}  // namespace

const wchar_t* LogLevelName(int level) noexcept {
  switch (level) {
    case 0: return L"DEBUG";
    case 1: return L"INFO";
    case 2: return L"WARNING";
    case 3: return L"ERROR";
    case 4: return L"CRITICAL";
    default: return L"UNKNOWN";
  }
}

std::wstring LogFileName(std::wstring_view product, std::wstring_view component,
                         std::wstring_view fileStem, const SYSTEMTIME& localDate) {
  const std::wstring_view stem = !fileStem.empty()    ? fileStem
                                 : !component.empty() ? component
                                                      : product;
  return fmt::format(L"{} {:04}-{:02}-{:02}.log", stem, localDate.wYear, localDate.wMonth,
                     localDate.wDay);
}

std::wstring FormatLogPrefix(const SYSTEMTIME& t, uint32_t fraction100ns, DWORD processId,
                             DWORD threadId, int level) {
  return fmt::format(L"[{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:07}] [P:{} T:{}] [{}] ", t.wYear,
                     t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond, fraction100ns, processId,
                     threadId, LogLevelName(level));
}

bool OpenLog(std::wstring_view product, std::wstring_view component, std::wstring_view fileStem) {
  std::wstring folder = JoinPath(ProductFamilyFolder(), product);
  if (!component.empty()) folder = JoinPath(folder, component);
  folder = JoinPath(folder, L"Logs");
  if (!EnsureDirectories(folder)) return false;

  SYSTEMTIME today{};
  ::GetLocalTime(&today);
  const std::wstring path = JoinPath(folder, LogFileName(product, component, fileStem, today));

  PlainTextLogger& logger = Logger();
  std::lock_guard lock(logger.mutex);
  // Append-only access, with the write in its AppendTurn, lands every line whole at the end of
  // the file, also when another Controller process appends to the same day's log.
  logger.file.reset(::CreateFileW(path.c_str(), FILE_APPEND_DATA | SYNCHRONIZE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  logger.path = logger.file ? path : std::wstring();
  return logger.file.valid();
}

std::wstring OpenLogPath() {
  PlainTextLogger& logger = Logger();
  std::lock_guard lock(logger.mutex);
  return logger.path;
}

void WriteLogLine(LogLevel level, std::wstring_view text) {
  PlainTextLogger& logger = Logger();
  {
    std::lock_guard lock(logger.mutex);
    if (!logger.file) return;
  }
  FILETIME now{};
  ::GetSystemTimePreciseAsFileTime(&now);
  FILETIME local{};
  ::FileTimeToLocalFileTime(&now, &local);
  SYSTEMTIME localTime{};
  ::FileTimeToSystemTime(&local, &localTime);
  const uint64_t ticks = FileTimeToInteger(local);

  std::wstring line =
      FormatLogPrefix(localTime, static_cast<uint32_t>(ticks % 10000000), ::GetCurrentProcessId(),
                      ::GetCurrentThreadId(), static_cast<int>(level));
  line += text;
  std::string bytes = ToUtf8(line);
  bytes += '\n';

  std::lock_guard lock(logger.mutex);
  if (!logger.file) return;
  const AppendTurn turn;
  DWORD written = 0;
  ::WriteFile(logger.file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

}  // namespace cmr

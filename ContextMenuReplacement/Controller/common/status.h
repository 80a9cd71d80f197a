#pragma once
// The program's one failure convention.
//
// - An operation that can fail returns `Status`: success, or exactly one whole-sentence
//   message that is printed as it is. Callers test it (`if (!status)`) and pass it up; they
//   never reword it, so the text a user sees is the text the failing step wrote.
// - An operation that also produces a value returns `Result<T>`: the value, or the Status.
// - Validators that must report every fault at once (the configuration documents) append to a
//   caller-owned `MessageList` of errors and warnings instead; a document is valid exactly when
//   its error list is empty.
// - A failing platform call says which call on which object failed and carries the Win32 code
//   and the system's text for it (`Win32Failure` in common/system_error.h), so no detail is lost on
//   the way up.
// Nothing throws across a folder boundary.

#include <fmt/xchar.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace cmr {

// Ordered whole-sentence messages; a document is valid exactly when its error list is empty.
using MessageList = std::vector<std::wstring>;

class [[nodiscard]] Status {
 public:
  Status() = default;  // success
  static Status Ok() { return {}; }
  // `systemError` is the Win32 code behind the failure, for texts that must print the number.
  static Status Failure(std::wstring message, unsigned long systemError = 0) {
    Status status;
    status.message_ = std::move(message);
    status.systemError_ = systemError;
    status.failed_ = true;
    return status;
  }

  [[nodiscard]] bool ok() const noexcept { return !failed_; }
  explicit operator bool() const noexcept { return !failed_; }
  // Empty on success.
  [[nodiscard]] const std::wstring& message() const noexcept { return message_; }
  // 0 unless a platform call failed.
  [[nodiscard]] unsigned long systemError() const noexcept { return systemError_; }

 private:
  std::wstring message_;
  unsigned long systemError_ = 0;
  bool failed_ = false;
};

// Status::Failure with a "{}"-formatted message.
template <typename... Args>
[[nodiscard]] Status Failure(fmt::wformat_string<Args...> format, Args&&... args) {
  return Status::Failure(fmt::format(format, std::forward<Args>(args)...));
}

template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : value_(std::move(value)) {}
  Result(Status failure) : status_(std::move(failure)) {}

  [[nodiscard]] bool ok() const noexcept { return status_.ok(); }
  explicit operator bool() const noexcept { return status_.ok(); }
  [[nodiscard]] const Status& status() const noexcept { return status_; }
  [[nodiscard]] const std::wstring& message() const noexcept { return status_.message(); }
  // Only on success.
  [[nodiscard]] T& value() { return *value_; }
  [[nodiscard]] const T& value() const { return *value_; }
  T* operator->() { return &*value_; }
  const T* operator->() const { return &*value_; }

 private:
  std::optional<T> value_;
  Status status_;
};

}  // namespace cmr

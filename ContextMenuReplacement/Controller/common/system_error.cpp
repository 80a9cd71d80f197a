#include "common/system_error.h"

#include "common/unique_handle.h"

namespace cmr {

std::wstring ErrorText(DWORD code) {
  wchar_t* buffer = nullptr;
  const DWORD flags =
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
  const DWORD length =
      ::FormatMessageW(flags, nullptr, code, 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
  UniqueLocalMemory owner(buffer);
  if (length == 0 || buffer == nullptr) return L"unable to get message from FormatMessage";
  std::wstring text(buffer, length);
  while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r' || text.back() == L' ')) {
    text.pop_back();
  }
  return text;
}

std::wstring Win32Message(std::wstring_view what, DWORD code) {
  return fmt::format(L"{}: {} (error {}).", what, ErrorText(code), code);
}

std::wstring SystemTextSentence(std::wstring_view what, DWORD code) {
  std::wstring sentence = fmt::format(L"{}: {}", what, ErrorText(code));
  if (!sentence.ends_with(L'.')) sentence += L'.';
  return sentence;
}

Status Win32Failure(std::wstring_view what, DWORD code) {
  return Status::Failure(Win32Message(what, code), code);
}

}  // namespace cmr

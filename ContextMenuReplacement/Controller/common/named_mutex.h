#pragma once
// A named mutex of the session, held from a successful Take until its owner goes. One that its
// last holder left abandoned (the process died holding it) counts as taken: what each mutex
// guards stays safe through its users' own ordering, never through the mutex alone.

#include "common/unique_handle.h"
#include "common/win32.h"

namespace cmr {

class NamedMutex {
 public:
  // Creates the mutex, or opens it when another process already has.
  explicit NamedMutex(const wchar_t* name);
  ~NamedMutex();
  NamedMutex(const NamedMutex&) = delete;
  NamedMutex& operator=(const NamedMutex&) = delete;

  // False when it could be neither created nor opened; `creationError` then says why.
  [[nodiscard]] bool created() const noexcept { return mutex_.valid(); }
  [[nodiscard]] DWORD creationError() const noexcept { return creationError_; }
  // Waits up to `timeoutMs`; whether it is held afterwards. A thread that holds it already may
  // take it again, and it is then released once per take.
  [[nodiscard]] bool Take(DWORD timeoutMs);

 private:
  UniqueHandle mutex_;
  DWORD creationError_ = ERROR_SUCCESS;
  unsigned takes_ = 0;
};

}  // namespace cmr

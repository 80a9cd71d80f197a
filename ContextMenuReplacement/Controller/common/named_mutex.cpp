#include "common/named_mutex.h"

namespace cmr {

NamedMutex::NamedMutex(const wchar_t* name) : mutex_(::CreateMutexW(nullptr, FALSE, name)) {
  if (!mutex_) creationError_ = ::GetLastError();
}

NamedMutex::~NamedMutex() {
  for (; takes_ > 0; --takes_) ::ReleaseMutex(mutex_.get());
}

bool NamedMutex::Take(DWORD timeoutMs) {
  if (!mutex_) return false;
  const DWORD waited = ::WaitForSingleObject(mutex_.get(), timeoutMs);
  if (waited != WAIT_OBJECT_0 && waited != WAIT_ABANDONED) return false;
  ++takes_;
  return true;
}

}  // namespace cmr

#pragma once
// Small owners for Win32 handles: each names its close function and its "none" value, so no
// error path ever closes a handle by hand.

#include <utility>

#include "common/win32.h"

namespace cmr {

template <typename Traits>
class UniqueResource {
 public:
  using Type = typename Traits::Type;

  UniqueResource() noexcept = default;
  explicit UniqueResource(Type value) noexcept : value_(value) {}
  UniqueResource(const UniqueResource&) = delete;
  UniqueResource& operator=(const UniqueResource&) = delete;
  UniqueResource(UniqueResource&& other) noexcept : value_(other.release()) {}
  UniqueResource& operator=(UniqueResource&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~UniqueResource() { reset(); }

  [[nodiscard]] Type get() const noexcept { return value_; }
  [[nodiscard]] bool valid() const noexcept { return !Traits::IsNone(value_); }
  explicit operator bool() const noexcept { return valid(); }

  // For out-parameters of APIs that create the resource.
  Type* put() noexcept {
    reset();
    return &value_;
  }

  Type release() noexcept { return std::exchange(value_, Traits::None()); }

  void reset(Type value = Traits::None()) noexcept {
    Type old = std::exchange(value_, value);
    if (!Traits::IsNone(old)) Traits::Close(old);
  }

 private:
  Type value_ = Traits::None();
};

// CreateFileW and FindFirstChangeNotificationW say "none" with INVALID_HANDLE_VALUE, most
// other kernel APIs with NULL; the owner accepts both.
struct HandleTraits {
  using Type = HANDLE;
  static Type None() noexcept { return nullptr; }
  static bool IsNone(Type h) noexcept { return h == nullptr || h == INVALID_HANDLE_VALUE; }
  static void Close(Type h) noexcept { ::CloseHandle(h); }
};

struct ChangeNotificationTraits {
  using Type = HANDLE;
  static Type None() noexcept { return INVALID_HANDLE_VALUE; }
  static bool IsNone(Type h) noexcept { return h == nullptr || h == INVALID_HANDLE_VALUE; }
  static void Close(Type h) noexcept { ::FindCloseChangeNotification(h); }
};

struct FindTraits {
  using Type = HANDLE;
  static Type None() noexcept { return INVALID_HANDLE_VALUE; }
  static bool IsNone(Type h) noexcept { return h == nullptr || h == INVALID_HANDLE_VALUE; }
  static void Close(Type h) noexcept { ::FindClose(h); }
};

struct HkeyTraits {
  using Type = HKEY;
  static Type None() noexcept { return nullptr; }
  static bool IsNone(Type h) noexcept { return h == nullptr; }
  static void Close(Type h) noexcept { ::RegCloseKey(h); }
};

struct ViewTraits {
  using Type = void*;
  static Type None() noexcept { return nullptr; }
  static bool IsNone(Type p) noexcept { return p == nullptr; }
  static void Close(Type p) noexcept { ::UnmapViewOfFile(p); }
};

struct HmoduleTraits {
  using Type = HMODULE;
  static Type None() noexcept { return nullptr; }
  static bool IsNone(Type h) noexcept { return h == nullptr; }
  static void Close(Type h) noexcept { ::FreeLibrary(h); }
};

struct HhookTraits {
  using Type = HHOOK;
  static Type None() noexcept { return nullptr; }
  static bool IsNone(Type h) noexcept { return h == nullptr; }
  static void Close(Type h) noexcept { ::UnhookWindowsHookEx(h); }
};

// Memory that an API hands over for LocalFree (security descriptors, FormatMessage buffers,
// string SIDs).
struct LocalMemoryTraits {
  using Type = HLOCAL;
  static Type None() noexcept { return nullptr; }
  static bool IsNone(Type p) noexcept { return p == nullptr; }
  static void Close(Type p) noexcept { ::LocalFree(p); }
};

using UniqueHandle = UniqueResource<HandleTraits>;
using UniqueChangeNotification = UniqueResource<ChangeNotificationTraits>;
using UniqueFind = UniqueResource<FindTraits>;
using UniqueHkey = UniqueResource<HkeyTraits>;
using UniqueView = UniqueResource<ViewTraits>;
using UniqueHmodule = UniqueResource<HmoduleTraits>;
using UniqueHhook = UniqueResource<HhookTraits>;
using UniqueLocalMemory = UniqueResource<LocalMemoryTraits>;

}  // namespace cmr

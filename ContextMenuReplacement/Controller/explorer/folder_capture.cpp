#include <exdisp.h>
#include <shlguid.h>
#include <shlobj.h>
#include <shobjidl.h>

#include "explorer/explorer_restart.h"

namespace cmr {

namespace {

// Releases a COM interface on every way out of the capture.
template <typename T>
class ComPtr {
 public:
  ComPtr() = default;
  ComPtr(const ComPtr&) = delete;
  ComPtr& operator=(const ComPtr&) = delete;
  ~ComPtr() {
    if (p_) p_->Release();
  }
  T* get() const { return p_; }
  T* operator->() const { return p_; }
  T** put() {
    if (p_) p_->Release();
    p_ = nullptr;
    return &p_;
  }
  void** putVoid() { return reinterpret_cast<void**>(put()); }

 private:
  T* p_ = nullptr;
};

struct ComApartment {
  HRESULT result = ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  ~ComApartment() {
    if (SUCCEEDED(result)) ::CoUninitialize();
  }
};

// The location one folder window shows, as a parsing name the shell can open again.
Result<explorer_restart::folder> ReadFolderWindow(IDispatch* item) {
  explorer_restart::folder folder;
  ComPtr<IWebBrowserApp> browserApp;
  SHANDLE_PTR window = 0;
  if (FAILED(item->QueryInterface(IID_IWebBrowserApp, browserApp.putVoid())) ||
      FAILED(browserApp->get_HWND(&window))) {
    return Status::Failure(L"Cannot identify folder window");
  }
  folder.window = reinterpret_cast<HWND>(window);

  ComPtr<IServiceProvider> services;
  ComPtr<IShellBrowser> browser;
  ComPtr<IShellView> view;
  if (FAILED(item->QueryInterface(IID_IServiceProvider, services.putVoid())) ||
      FAILED(services->QueryService(SID_STopLevelBrowser, IID_IShellBrowser, browser.putVoid())) ||
      FAILED(browser->QueryActiveShellView(view.put()))) {
    return Status::Failure(L"Cannot read Explorer view");
  }
  ComPtr<IFolderView> folderView;
  ComPtr<IPersistFolder2> persist;
  if (FAILED(view->QueryInterface(IID_IFolderView, folderView.putVoid())) ||
      FAILED(folderView->GetFolder(IID_IPersistFolder2, persist.putVoid()))) {
    return Status::Failure(L"Cannot read Explorer folder");
  }
  PIDLIST_ABSOLUTE pidl = nullptr;
  wchar_t* name = nullptr;
  const bool named = SUCCEEDED(persist->GetCurFolder(&pidl)) &&
                     SUCCEEDED(::SHGetNameFromIDList(pidl, SIGDN_DESKTOPABSOLUTEPARSING, &name));
  if (named) folder.location = name;
  ::CoTaskMemFree(name);
  ::CoTaskMemFree(pidl);
  if (!named) return Status::Failure(L"Cannot capture folder location");
  return folder;
}

}  // namespace

Result<std::vector<explorer_restart::folder>> CaptureFolderWindows() {
  ComApartment apartment;
  if (FAILED(apartment.result)) return Status::Failure(L"Cannot initialize shell COM");
  ComPtr<IShellWindows> windows;
  if (FAILED(::CoCreateInstance(CLSID_ShellWindows, nullptr, CLSCTX_ALL, IID_IShellWindows,
                                windows.putVoid()))) {
    return Status::Failure(L"Shell window enumeration unavailable");
  }
  long count = 0;
  if (FAILED(windows->get_Count(&count))) {
    return Status::Failure(L"Cannot enumerate all Explorer folders");
  }
  std::vector<explorer_restart::folder> folders;
  for (long i = 0; i < count; ++i) {
    VARIANT index;
    ::VariantInit(&index);
    index.vt = VT_I4;
    index.lVal = i;
    ComPtr<IDispatch> item;
    // A window that closed between the count and this read leaves a gap: the list is no
    // longer the one that was counted.
    if (windows->Item(index, item.put()) != S_OK || item.get() == nullptr) {
      return Status::Failure(L"Shell window changed during capture");
    }
    Result<explorer_restart::folder> folder = ReadFolderWindow(item.get());
    if (!folder) return folder.status();
    folders.push_back(std::move(folder.value()));
  }
  return folders;
}

}  // namespace cmr

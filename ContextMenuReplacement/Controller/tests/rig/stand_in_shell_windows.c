/* Stand-in for the shell's window list (CLSID_ShellWindows), registered as an in-process server
 * for the restart tests only. Wine's own list cannot enumerate folder windows, so this one lists
 * every top-level CabinetWClass window and reports the folder each shows: the stand-in Explorer
 * titles its folder windows with their location. Each list entry answers the chain the capture
 * walks: window handle, top-level browser, active view, folder view, folder, location.
 *
 * Written in C against the C vtable layouts of the shell headers, so that only the methods the
 * capture calls are written out; every other slot returns E_NOTIMPL (on x86-64 one stub serves any
 * signature). Objects live as long as the process: the capture is short and runs once. */
#define CINTERFACE
#define COBJMACROS
#include <exdisp.h>
#include <shlguid.h>
#include <shlobj.h>
#include <shobjidl.h>
#include <windows.h>

static HRESULT STDMETHODCALLTYPE NotImplemented(void) {
  return E_NOTIMPL;
}
static ULONG STDMETHODCALLTYPE Immortal(void* self) {
  (void)self;
  return 1;
}

/* Every vtable starts with QueryInterface, AddRef and Release. */
static void FillVtable(void* vtable, size_t bytes, void* query) {
  void** slots = (void**)vtable;
  for (size_t i = 0; i < bytes / sizeof(void*); ++i) slots[i] = (void*)NotImplemented;
  slots[0] = query;
  slots[1] = slots[2] = (void*)Immortal;
}

typedef struct FolderWindow {
  IWebBrowserAppVtbl* app;
  IServiceProviderVtbl* services;
  IShellBrowserVtbl* browser;
  IShellViewVtbl* view;
  IFolderViewVtbl* folderView;
  IPersistFolder2Vtbl* persist;
  HWND window;
} FolderWindow;

static IWebBrowserAppVtbl g_app;
static IServiceProviderVtbl g_services;
static IShellBrowserVtbl g_browser;
static IShellViewVtbl g_view;
static IFolderViewVtbl g_folderView;
static IPersistFolder2Vtbl g_persist;

/* Every interface of an entry starts one pointer after the previous; the slot says which. */
#define ENTRY_OF(self, member) ((FolderWindow*)((char*)(self)-offsetof(FolderWindow, member)))

static HRESULT EntryQuery(FolderWindow* entry, REFIID riid, void** out) {
  *out = NULL;
  if (IsEqualIID(riid, &IID_IUnknown) || IsEqualIID(riid, &IID_IDispatch) ||
      IsEqualIID(riid, &IID_IWebBrowser) || IsEqualIID(riid, &IID_IWebBrowserApp)) {
    *out = &entry->app;
  } else if (IsEqualIID(riid, &IID_IServiceProvider)) {
    *out = &entry->services;
  } else if (IsEqualIID(riid, &IID_IShellBrowser)) {
    *out = &entry->browser;
  } else if (IsEqualIID(riid, &IID_IShellView)) {
    *out = &entry->view;
  } else if (IsEqualIID(riid, &IID_IFolderView)) {
    *out = &entry->folderView;
  } else if (IsEqualIID(riid, &IID_IPersistFolder2) || IsEqualIID(riid, &IID_IPersistFolder) ||
             IsEqualIID(riid, &IID_IPersist)) {
    *out = &entry->persist;
  }
  return *out ? S_OK : E_NOINTERFACE;
}

#define QUERY(name, member)                                                    \
  static HRESULT STDMETHODCALLTYPE name(void* self, REFIID riid, void** out) { \
    return EntryQuery(ENTRY_OF(self, member), riid, out);                      \
  }
QUERY(AppQuery, app)
QUERY(ServicesQuery, services)
QUERY(BrowserQuery, browser)
QUERY(ViewQuery, view)
QUERY(FolderViewQuery, folderView)
QUERY(PersistQuery, persist)

static HRESULT STDMETHODCALLTYPE AppWindow(IWebBrowserApp* self, SHANDLE_PTR* window) {
  *window = (SHANDLE_PTR)ENTRY_OF(self, app)->window;
  return S_OK;
}

static HRESULT STDMETHODCALLTYPE QueryService(IServiceProvider* self, REFGUID service, REFIID riid,
                                              void** out) {
  (void)service;
  return EntryQuery(ENTRY_OF(self, services), riid, out);
}

static HRESULT STDMETHODCALLTYPE ActiveView(IShellBrowser* self, IShellView** view) {
  *view = (IShellView*)&ENTRY_OF(self, browser)->view;
  return S_OK;
}

static HRESULT STDMETHODCALLTYPE GetFolder(IFolderView* self, REFIID riid, void** out) {
  return EntryQuery(ENTRY_OF(self, folderView), riid, out);
}

static HRESULT STDMETHODCALLTYPE CurrentFolder(IPersistFolder2* self, PIDLIST_ABSOLUTE* pidl) {
  wchar_t location[MAX_PATH] = {0};
  if (!GetWindowTextW(ENTRY_OF(self, persist)->window, location, MAX_PATH)) return E_FAIL;
  return SHParseDisplayName(location, NULL, pidl, 0, NULL);
}

/* The list itself: the folder windows present when it is asked. */
typedef struct {
  HWND windows[64];
  long count;
} WindowList;

static BOOL CALLBACK CollectFolderWindow(HWND window, LPARAM context) {
  WindowList* list = (WindowList*)context;
  wchar_t name[32] = {0};
  if (GetClassNameW(window, name, 32) && lstrcmpW(name, L"CabinetWClass") == 0 &&
      list->count < 64) {
    list->windows[list->count++] = window;
  }
  return TRUE;
}

static WindowList g_list;
static IShellWindowsVtbl g_shellWindowsVtbl;
static struct { IShellWindowsVtbl* vtbl; } g_shellWindows = {&g_shellWindowsVtbl};

/* The list and the factory are one interface each: they answer for themselves or not at all. */
static HRESULT Itself(void* self, BOOL answers, void** out) {
  *out = answers ? self : NULL;
  return answers ? S_OK : E_NOINTERFACE;
}

static HRESULT STDMETHODCALLTYPE ListQuery(IShellWindows* self, REFIID riid, void** out) {
  return Itself(self,
                IsEqualIID(riid, &IID_IUnknown) || IsEqualIID(riid, &IID_IDispatch) ||
                    IsEqualIID(riid, &IID_IShellWindows),
                out);
}

static HRESULT STDMETHODCALLTYPE ListCount(IShellWindows* self, LONG* count) {
  (void)self;
  g_list.count = 0;
  EnumWindows(CollectFolderWindow, (LPARAM)&g_list);
  *count = g_list.count;
  return S_OK;
}

static HRESULT STDMETHODCALLTYPE ListItem(IShellWindows* self, VARIANT index, IDispatch** item) {
  (void)self;
  *item = NULL;
  if (index.vt != VT_I4 || index.lVal < 0 || index.lVal >= g_list.count) return S_FALSE;
  FolderWindow* entry = (FolderWindow*)CoTaskMemAlloc(sizeof(FolderWindow));
  FolderWindow fresh = {&g_app, &g_services, &g_browser, &g_view, &g_folderView, &g_persist, 0};
  fresh.window = g_list.windows[index.lVal];
  *entry = fresh;
  *item = (IDispatch*)&entry->app;
  return S_OK;
}

static IClassFactoryVtbl g_factoryVtbl;
static struct { IClassFactoryVtbl* vtbl; } g_factory = {&g_factoryVtbl};

static HRESULT STDMETHODCALLTYPE FactoryQuery(IClassFactory* self, REFIID riid, void** out) {
  return Itself(self, IsEqualIID(riid, &IID_IUnknown) || IsEqualIID(riid, &IID_IClassFactory), out);
}

static HRESULT STDMETHODCALLTYPE FactoryCreate(IClassFactory* self, IUnknown* outer, REFIID riid,
                                               void** out) {
  (void)self;
  if (outer) return CLASS_E_NOAGGREGATION;
  return ListQuery((IShellWindows*)&g_shellWindows, riid, out);
}

__declspec(dllexport) HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID riid, void** out) {
  if (!IsEqualCLSID(clsid, &CLSID_ShellWindows)) return CLASS_E_CLASSNOTAVAILABLE;
  FillVtable(&g_app, sizeof(g_app), (void*)AppQuery);
  g_app.get_HWND = AppWindow;
  FillVtable(&g_services, sizeof(g_services), (void*)ServicesQuery);
  g_services.QueryService = QueryService;
  FillVtable(&g_browser, sizeof(g_browser), (void*)BrowserQuery);
  g_browser.QueryActiveShellView = ActiveView;
  FillVtable(&g_view, sizeof(g_view), (void*)ViewQuery);
  FillVtable(&g_folderView, sizeof(g_folderView), (void*)FolderViewQuery);
  g_folderView.GetFolder = GetFolder;
  FillVtable(&g_persist, sizeof(g_persist), (void*)PersistQuery);
  g_persist.GetCurFolder = CurrentFolder;
  FillVtable(&g_shellWindowsVtbl, sizeof(g_shellWindowsVtbl), (void*)ListQuery);
  g_shellWindowsVtbl.get_Count = ListCount;
  g_shellWindowsVtbl.Item = ListItem;
  FillVtable(&g_factoryVtbl, sizeof(g_factoryVtbl), (void*)FactoryQuery);
  g_factoryVtbl.CreateInstance = FactoryCreate;
  return FactoryQuery((IClassFactory*)&g_factory, riid, out);
}

__declspec(dllexport) HRESULT WINAPI DllCanUnloadNow(void) {
  return S_FALSE;
}

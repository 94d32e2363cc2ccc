// Stands in for what Wine lacks of Media Foundation: the device list of mf.dll and the virtual camera of
// mfsensorgroup.dll, copied into system32 under both names (and planted elsewhere by the tests). At every
// call it reads %VQTEST_DIR%\script.txt, whose lines are
//   device <name>[|<symbolic link>]     a camera, in enumeration order
//   link <symbolic link>                 the virtual camera's own link
//   <function or method> <result> ...    one result for each call, the last one repeating, counted
//                                        afresh whenever the script changes
// and journals the call in journal.txt there. Its objects are laid out by hand in the published ABI's order,
// apart from the launcher's declaration of that order: a method out of place there makes the launcher's call
// land on another method here.
#include <windows.h>
#include <mfapi.h>
#include <mfidl.h>

#include <fstream>
#include <map>
#include <sstream>
#include <utility>

#include "tests/driver/driver.h"

namespace {

// Empty, so that nothing is read or written, outside a test.
std::wstring TestFile(const wchar_t* name) {
    std::wstring folder = driver::Variable(L"VQTEST_DIR");
    return folder.empty() ? L"" : folder + L"\\" + name;
}

std::wstring GuidText(const GUID& guid) {
    wchar_t text[40] = {};
    StringFromGUID2(guid, text, 40);
    return text;
}

HRESULT Journaled(const std::wstring& call, HRESULT hr) {
    std::ofstream(driver::fs::path(TestFile(L"journal.txt")), std::ios::app)
        << driver::Utf8(call + L" -> " + driver::Code(hr).substr(0, 10)) << "\n";
    return hr;
}

// What follows `keyword` on each line of the script that starts with it.
std::vector<std::wstring> Script(const std::wstring& keyword) {
    std::vector<std::wstring> found;
    for (const std::wstring& line : driver::FileLines(TestFile(L"script.txt"))) {
        if (line.rfind(keyword + L" ", 0) == 0) {
            found.push_back(line.substr(keyword.size() + 1));
        }
    }
    return found;
}

// The result the script gives this call of `name`: S_OK when it names none.
HRESULT Scripted(const std::wstring& name) {
    static std::map<std::wstring, size_t> calls;
    static std::string seen;
    std::string script = driver::Read(TestFile(L"script.txt"));
    if (std::exchange(seen, script) != script) {
        calls.clear();
    }
    std::vector<std::wstring> lines = Script(name);
    std::wistringstream results(lines.empty() ? L"0" : lines[0]);
    std::wstring result = L"0";
    for (size_t call = calls[name]++, i = 0; i <= call && results >> result; ++i) {
    }
    return static_cast<HRESULT>(std::stoul(result, nullptr, 0));
}

// A device or a camera: its table of methods, then a real attribute store that does the attribute work.
struct Object {
    void* const* methods;
    IMFAttributes* store;
    LONG references;
};

HRESULT STDMETHODCALLTYPE QueryInterface(Object* self, REFIID iid, void** object) {
    bool known = iid == __uuidof(IUnknown) || iid == __uuidof(IMFAttributes);
    *object = known ? self : nullptr;
    return known ? (InterlockedIncrement(&self->references), S_OK) : E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE AddRef(Object* self) {
    return static_cast<ULONG>(InterlockedIncrement(&self->references));
}

ULONG STDMETHODCALLTYPE Release(Object* self) {
    LONG left = InterlockedDecrement(&self->references);
    if (left == 0) {
        if (self->methods[33] != nullptr) {
            Journaled(L"Release", S_OK); // a camera, gone
        }
        self->store->Release();
        delete self;
    }
    return static_cast<ULONG>(left);
}

template <auto method> struct Forward;
template <typename... A, HRESULT (STDMETHODCALLTYPE IMFAttributes::*method)(A...)> struct Forward<method> {
    static HRESULT STDMETHODCALLTYPE Call(Object* self, A... arguments) {
        return (self->store->*method)(arguments...);
    }
};

HRESULT STDMETHODCALLTYPE SetString(Object* self, REFGUID key, LPCWSTR value) {
    return Journaled(L"SetString " + GuidText(key) + L" " + value, self->store->SetString(key, value));
}

// IMFVirtualCamera's own methods; the launcher calls three of them, the others only by mistake.
HRESULT STDMETHODCALLTYPE AddDeviceSourceInfo(Object*, LPCWSTR info) {
    return Journaled(L"AddDeviceSourceInfo " + std::wstring(info), Scripted(L"AddDeviceSourceInfo"));
}
HRESULT STDMETHODCALLTYPE Start(Object*, IMFAsyncCallback* callback) {
    return Journaled(callback == nullptr ? L"Start (null)" : L"Start callback", Scripted(L"Start"));
}
HRESULT STDMETHODCALLTYPE Remove(Object*) {
    return Journaled(L"Remove", Scripted(L"Remove"));
}
// Slots of the published order that the launcher has no business calling, counted from the first own one.
template <int slot> HRESULT STDMETHODCALLTYPE Uncalled(Object*) {
    return Journaled(L"IMFVirtualCamera slot " + std::to_wstring(slot), E_NOTIMPL);
}

#define FORWARD(name) reinterpret_cast<void*>(&Forward<&IMFAttributes::name>::Call)
#define OWN(function) reinterpret_cast<void*>(&function)
#define ATTRIBUTES                                                                                           \
    OWN(QueryInterface), OWN(AddRef), OWN(Release), FORWARD(GetItem), FORWARD(GetItemType),                  \
        FORWARD(CompareItem), FORWARD(Compare), FORWARD(GetUINT32), FORWARD(GetUINT64), FORWARD(GetDouble),  \
        FORWARD(GetGUID), FORWARD(GetStringLength), FORWARD(GetString), FORWARD(GetAllocatedString),         \
        FORWARD(GetBlobSize), FORWARD(GetBlob), FORWARD(GetAllocatedBlob), FORWARD(GetUnknown),              \
        FORWARD(SetItem), FORWARD(DeleteItem), FORWARD(DeleteAllItems), FORWARD(SetUINT32),                  \
        FORWARD(SetUINT64), FORWARD(SetDouble), FORWARD(SetGUID), OWN(SetString), FORWARD(SetBlob),          \
        FORWARD(SetUnknown), FORWARD(LockStore), FORWARD(UnlockStore), FORWARD(GetCount),                    \
        FORWARD(GetItemByIndex), FORWARD(CopyAllItems)
// IMFActivate's own three methods are never called: a null in slot 33 marks a device.
void* const DEVICE[] = {ATTRIBUTES, nullptr, nullptr, nullptr};
void* const CAMERA[] = {ATTRIBUTES,       OWN(AddDeviceSourceInfo), OWN(Uncalled<1>), OWN(Uncalled<2>),
                        OWN(Start),       OWN(Uncalled<4>),         OWN(Remove),      OWN(Uncalled<6>),
                        OWN(Uncalled<7>), OWN(Uncalled<8>),         OWN(Uncalled<9>), OWN(Uncalled<10>)};

// Not imported: a copy planted as mfplat.dll would then import itself and never load.
Object* Make(void* const* methods) {
    static auto create =
        reinterpret_cast<decltype(&MFCreateAttributes)>(reinterpret_cast<void (*)()>(GetProcAddress(
            LoadLibraryExW(L"mfplat.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32), "MFCreateAttributes")));
    Object* made = new Object{methods, nullptr, 1};
    create(&made->store, 4);
    return made;
}

} // namespace

extern "C" HRESULT WINAPI MFEnumDeviceSources(IMFAttributes* filter, IMFActivate*** devices, UINT32* count) {
    GUID type = GUID_NULL;
    filter->GetGUID(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE, &type);
    // Without the video filter Windows would list audio endpoints.
    HRESULT hr = type == MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID ? Scripted(L"MFEnumDeviceSources")
                                                                        : E_INVALIDARG;
    std::vector<std::wstring> listed = Script(L"device");
    if (SUCCEEDED(hr)) {
        *count = static_cast<UINT32>(listed.size());
        *devices = static_cast<IMFActivate**>(CoTaskMemAlloc(sizeof(IMFActivate*) * (listed.size() + 1)));
        for (size_t i = 0; i < listed.size(); ++i) {
            Object* device = Make(DEVICE);
            size_t bar = std::min(listed[i].find('|'), listed[i].size());
            if (bar > 0) {
                device->store->SetString(MF_DEVSOURCE_ATTRIBUTE_FRIENDLY_NAME,
                                         listed[i].substr(0, bar).c_str());
            }
            if (bar < listed[i].size()) {
                device->store->SetString(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK,
                                         listed[i].substr(bar + 1).c_str());
            }
            (*devices)[i] = reinterpret_cast<IMFActivate*>(device);
        }
    }
    return hr;
}

extern "C" HRESULT WINAPI MFCreateVirtualCamera(int type, int lifetime, int access, LPCWSTR name,
                                                LPCWSTR source, const GUID* categories, ULONG count,
                                                void** camera) {
    std::wstring call = L"MFCreateVirtualCamera type=" + std::to_wstring(type) + L" lifetime=" +
                        std::to_wstring(lifetime) + L" access=" + std::to_wstring(access) + L" name=" + name +
                        L" source=" + source + L" count=" + std::to_wstring(count) + L" categories=";
    for (ULONG i = 0; categories != nullptr && i < count; ++i) {
        call += GuidText(categories[i]) + (i + 1 < count ? L"," : L"");
    }
    HRESULT hr = Scripted(L"MFCreateVirtualCamera");
    Object* made = SUCCEEDED(hr) ? Make(CAMERA) : nullptr;
    for (const std::wstring& link : made != nullptr ? Script(L"link") : std::vector<std::wstring>()) {
        made->store->SetString(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK, link.c_str());
    }
    *camera = made;
    return Journaled(call, hr);
}

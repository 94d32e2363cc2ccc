// Stands in for mfsensorgroup.dll's virtual camera: each call returns what the test script (VQTEST_VCAM)
// says for that attempt and is journaled, so the tests see exactly which methods the launcher called.
#include "tests/doubles/standin_common.h"
#include "cameras/mf_virtual_camera.h"

using standin::Directive;

namespace {

enum class Call { Create, Start, Remove, AddDeviceSourceInfo, Count };

constexpr const char* kCallKeywords[] = {"create", "start", "remove", "adddevicesourceinfo"};

// Attempts are counted per kind across all camera objects of the process, from 1.
std::atomic<unsigned> callCounts[static_cast<int>(Call::Count)];

HRESULT ScriptedResult(Call call) {
    const unsigned attempt = ++callCounts[static_cast<int>(call)];
    const std::optional<std::vector<Directive>> script = standin::ReadScript(L"VQTEST_VCAM");
    if (!script) {
        return S_OK;
    }
    HRESULT result = S_OK;
    for (const Directive& directive : *script) {
        if (directive.keyword != kCallKeywords[static_cast<int>(call)]) {
            continue;
        }
        std::vector<HRESULT> results;
        if (!standin::ParseHresults(directive.argument, results)) {
            standin::JournalScriptError(directive);
            return E_UNEXPECTED;
        }
        if (!results.empty()) {
            result = results[attempt <= results.size() ? attempt - 1 : results.size() - 1];
        }
    }
    return result;
}

std::optional<std::wstring> ScriptedLink() {
    const std::optional<std::vector<Directive>> script = standin::ReadScript(L"VQTEST_VCAM");
    if (!script) {
        return std::nullopt;
    }
    std::optional<std::wstring> link;
    for (const Directive& directive : *script) {
        if (directive.keyword == "link") {
            link = standin::Utf16(directive.argument);
        } else if (directive.keyword != "create" && directive.keyword != "start" &&
                   directive.keyword != "remove" && directive.keyword != "adddevicesourceinfo") {
            standin::JournalScriptError(directive);
        }
    }
    return link;
}

// {3FE6A436-B25D-45EA-8E1C-E31292A9B090}
constexpr GUID kPhysicalSymbolicLink = {
    0x3fe6a436, 0xb25d, 0x45ea, {0x8e, 0x1c, 0xe3, 0x12, 0x92, 0xa9, 0xb0, 0x90}};
// {39FB8338-7D42-4EFB-9027-E3FCA8907224}
constexpr GUID kSourceFolder = {0x39fb8338, 0x7d42, 0x4efb, {0x90, 0x27, 0xe3, 0xfc, 0xa8, 0x90, 0x72, 0x24}};

std::string AttributeName(REFGUID key) {
    if (IsEqualGUID(key, kPhysicalSymbolicLink)) {
        return "VCAM_ATTR_PHYSICAL_SYMBOLIC_LINK";
    }
    if (IsEqualGUID(key, kSourceFolder)) {
        return "VCAM_ATTR_SOURCE_FOLDER";
    }
    return standin::GuidText(key);
}

HRESULT Journaled(const char* method, HRESULT hr) {
    standin::Journal(std::string(method) + " -> " + standin::HresultText(hr));
    return hr;
}

class Camera final : public standin::AttributesForwarder<IMFVirtualCamera> {
  public:
    Camera() = default;

    HRESULT STDMETHODCALLTYPE SetString(REFGUID key, LPCWSTR value) override {
        const HRESULT hr = AttributesForwarder::SetString(key, value);
        standin::Journal("SetString " + AttributeName(key) + " " + standin::Utf8OrNull(value) + " -> " +
                         standin::HresultText(hr));
        return hr;
    }

    HRESULT STDMETHODCALLTYPE AddDeviceSourceInfo(LPCWSTR deviceSourceInfo) override {
        if (Probed("AddDeviceSourceInfo")) {
            return S_OK;
        }
        const HRESULT hr = ScriptedResult(Call::AddDeviceSourceInfo);
        standin::Journal("AddDeviceSourceInfo " + standin::Utf8OrNull(deviceSourceInfo) + " -> " +
                         standin::HresultText(hr));
        return hr;
    }
    HRESULT STDMETHODCALLTYPE AddProperty(const DEVPROPKEY*, DEVPROPTYPE, const BYTE*, ULONG) override {
        if (Probed("AddProperty")) {
            return S_OK;
        }
        return Journaled("AddProperty", E_NOTIMPL);
    }
    HRESULT STDMETHODCALLTYPE AddRegistryEntry(LPCWSTR, LPCWSTR, DWORD, const BYTE*, ULONG) override {
        if (Probed("AddRegistryEntry")) {
            return S_OK;
        }
        return Journaled("AddRegistryEntry", E_NOTIMPL);
    }
    HRESULT STDMETHODCALLTYPE Start(IMFAsyncCallback* callback) override {
        if (Probed("Start")) {
            return S_OK;
        }
        const HRESULT hr = ScriptedResult(Call::Start);
        standin::Journal(std::string("Start callback=") + (callback != nullptr ? "(set)" : "(null)") +
                         " -> " + standin::HresultText(hr));
        return hr;
    }
    HRESULT STDMETHODCALLTYPE Stop() override {
        if (Probed("Stop")) {
            return S_OK;
        }
        return Journaled("Stop", E_NOTIMPL);
    }
    HRESULT STDMETHODCALLTYPE Remove() override {
        if (Probed("Remove")) {
            return S_OK;
        }
        return Journaled("Remove", ScriptedResult(Call::Remove));
    }
    HRESULT STDMETHODCALLTYPE GetMediaSource(IMFMediaSource** mediaSource) override {
        if (Probed("GetMediaSource")) {
            return S_OK;
        }
        if (mediaSource != nullptr) {
            *mediaSource = nullptr;
        }
        return Journaled("GetMediaSource", E_NOTIMPL);
    }
    HRESULT STDMETHODCALLTYPE SendCameraProperty(REFGUID, ULONG, ULONG, void*, ULONG, void*, ULONG,
                                                 ULONG* dataWritten) override {
        if (Probed("SendCameraProperty")) {
            return S_OK;
        }
        if (dataWritten != nullptr) {
            *dataWritten = 0;
        }
        return Journaled("SendCameraProperty", E_NOTIMPL);
    }
    HRESULT STDMETHODCALLTYPE CreateSyncEvent(REFGUID, ULONG, ULONG, HANDLE,
                                              IMFCameraSyncObject** cameraSyncObject) override {
        if (Probed("CreateSyncEvent")) {
            return S_OK;
        }
        if (cameraSyncObject != nullptr) {
            *cameraSyncObject = nullptr;
        }
        return Journaled("CreateSyncEvent", E_NOTIMPL);
    }
    HRESULT STDMETHODCALLTYPE CreateSyncSemaphore(REFGUID, ULONG, ULONG, HANDLE, LONG,
                                                  IMFCameraSyncObject** cameraSyncObject) override {
        if (Probed("CreateSyncSemaphore")) {
            return S_OK;
        }
        if (cameraSyncObject != nullptr) {
            *cameraSyncObject = nullptr;
        }
        return Journaled("CreateSyncSemaphore", E_NOTIMPL);
    }
    HRESULT STDMETHODCALLTYPE Shutdown() override {
        if (Probed("Shutdown")) {
            return S_OK;
        }
        return Journaled("Shutdown", E_NOTIMPL);
    }

    // Empty when each slot the published ABI names reaches the method of that name, else what went wrong.
    std::string SlotOrderMismatch();

  protected:
    void OnFinalRelease() override { standin::Journal("Released"); }

  private:
    bool Probed(const char* method) {
        if (!probing_) {
            return false;
        }
        probed_ = method;
        return true;
    }

    bool probing_ = false;
    const char* probed_ = nullptr;
};

// IMFVirtualCamera's own methods as the Windows SDK lays them out, after IUnknown's 3 and IMFAttributes' 30
// slots, written a second time on purpose: Camera is compiled from cameras/mf_virtual_camera.h, the very
// header the launcher uses, so only an independent statement of the order catches a method out of place
// there.
using Self = IMFVirtualCamera*;
struct PublishedSlots {
    HRESULT(STDMETHODCALLTYPE* AddDeviceSourceInfo)(Self, LPCWSTR);
    HRESULT(STDMETHODCALLTYPE* AddProperty)(Self, const DEVPROPKEY*, DEVPROPTYPE, const BYTE*, ULONG);
    HRESULT(STDMETHODCALLTYPE* AddRegistryEntry)(Self, LPCWSTR, LPCWSTR, DWORD, const BYTE*, ULONG);
    HRESULT(STDMETHODCALLTYPE* Start)(Self, IMFAsyncCallback*);
    HRESULT(STDMETHODCALLTYPE* Stop)(Self);
    HRESULT(STDMETHODCALLTYPE* Remove)(Self);
    HRESULT(STDMETHODCALLTYPE* GetMediaSource)(Self, IMFMediaSource**);
    HRESULT(STDMETHODCALLTYPE* SendCameraProperty)
    (Self, REFGUID, ULONG, ULONG, void*, ULONG, void*, ULONG, ULONG*);
    HRESULT(STDMETHODCALLTYPE* CreateSyncEvent)(Self, REFGUID, ULONG, ULONG, HANDLE, IMFCameraSyncObject**);
    HRESULT(STDMETHODCALLTYPE* CreateSyncSemaphore)
    (Self, REFGUID, ULONG, ULONG, HANDLE, LONG, IMFCameraSyncObject**);
    HRESULT(STDMETHODCALLTYPE* Shutdown)(Self);
};
constexpr int kFirstOwnSlot = 3 + 30;

std::string Camera::SlotOrderMismatch() {
    Self self = this;
    const auto& slots =
        *reinterpret_cast<const PublishedSlots*>(*reinterpret_cast<void** const*>(self) + kFirstOwnSlot);
    std::string mismatch;
    int slot = kFirstOwnSlot;
    const auto expect = [&](const char* method) {
        if (mismatch.empty() && (probed_ == nullptr || std::string_view(probed_) != method)) {
            mismatch = "slot " + std::to_string(slot) + " reaches " +
                       (probed_ != nullptr ? probed_ : "(nothing)") + ", the published ABI has " + method +
                       " there";
        }
        probed_ = nullptr;
        ++slot;
    };
    probing_ = true;
    slots.AddDeviceSourceInfo(self, nullptr);
    expect("AddDeviceSourceInfo");
    slots.AddProperty(self, nullptr, 0, nullptr, 0);
    expect("AddProperty");
    slots.AddRegistryEntry(self, nullptr, nullptr, 0, nullptr, 0);
    expect("AddRegistryEntry");
    slots.Start(self, nullptr);
    expect("Start");
    slots.Stop(self);
    expect("Stop");
    slots.Remove(self);
    expect("Remove");
    slots.GetMediaSource(self, nullptr);
    expect("GetMediaSource");
    slots.SendCameraProperty(self, GUID{}, 0, 0, nullptr, 0, nullptr, 0, nullptr);
    expect("SendCameraProperty");
    slots.CreateSyncEvent(self, GUID{}, 0, 0, nullptr, nullptr);
    expect("CreateSyncEvent");
    slots.CreateSyncSemaphore(self, GUID{}, 0, 0, nullptr, 0, nullptr);
    expect("CreateSyncSemaphore");
    slots.Shutdown(self);
    expect("Shutdown");
    probing_ = false;
    return mismatch;
}

std::string CategoriesText(const GUID* categories, ULONG count) {
    if (categories == nullptr) {
        return "(null)";
    }
    std::string text;
    for (ULONG i = 0; i < count; ++i) {
        if (i > 0) {
            text += ',';
        }
        text += standin::GuidText(categories[i]);
    }
    return text;
}

HRESULT Create(IMFVirtualCamera** virtualCamera) {
    const HRESULT scripted = ScriptedResult(Call::Create);
    if (virtualCamera == nullptr) {
        return E_POINTER;
    }
    *virtualCamera = nullptr;
    if (FAILED(scripted)) {
        return scripted;
    }
    Camera* camera = new (std::nothrow) Camera();
    if (camera == nullptr) {
        return E_OUTOFMEMORY;
    }
    // A header out of step with the real ABI would pass every test while the launcher called the wrong
    // methods on Windows; refuse to hand out a camera then.
    const std::string mismatch = camera->SlotOrderMismatch();
    if (!mismatch.empty()) {
        standin::Journal("ABI mismatch in cameras/mf_virtual_camera.h: " + mismatch);
        delete camera;
        return E_UNEXPECTED;
    }
    HRESULT hr = camera->CreateStore();
    if (const std::optional<std::wstring> link = ScriptedLink(); SUCCEEDED(hr) && link) {
        // Straight into the store: this is the camera's own state, not a call the launcher made.
        hr = camera->standin::AttributesForwarder<IMFVirtualCamera>::SetString(
            MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK, link->c_str());
    }
    if (FAILED(hr)) {
        // Never handed out, so no "Released" line for it.
        delete camera;
        return hr;
    }
    *virtualCamera = camera;
    return scripted;
}

} // namespace

extern "C" HRESULT WINAPI MFCreateVirtualCamera(MFVirtualCameraType type, MFVirtualCameraLifetime lifetime,
                                                MFVirtualCameraAccess access, LPCWSTR friendlyName,
                                                LPCWSTR sourceId, const GUID* categories, ULONG categoryCount,
                                                IMFVirtualCamera** virtualCamera) {
    const HRESULT hr = Create(virtualCamera);
    standin::Journal(
        "MFCreateVirtualCamera type=" + std::to_string(static_cast<int>(type)) +
        " lifetime=" + std::to_string(static_cast<int>(lifetime)) +
        " access=" + std::to_string(static_cast<int>(access)) + " name=" + standin::Utf8OrNull(friendlyName) +
        " source=" + standin::Utf8OrNull(sourceId) + " count=" + std::to_string(categoryCount) +
        " categories=" + CategoriesText(categories, categoryCount) + " -> " + standin::HresultText(hr));
    return hr;
}

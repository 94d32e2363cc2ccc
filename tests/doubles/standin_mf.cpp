// Stands in for mf.dll's device enumeration: lists the cameras a test script names (VQTEST_DEVICES)
// and journals the call and the release of every device object.
#include "tests/doubles/standin_common.h"

#include <objbase.h>

using standin::Directive;

namespace {

class Device final : public standin::AttributesForwarder<IMFActivate> {
  public:
    Device(unsigned index, std::optional<std::string> name) : index_(index), name_(std::move(name)) {}

    HRESULT STDMETHODCALLTYPE ActivateObject(REFIID, void** object) override {
        if (object != nullptr) {
            *object = nullptr;
        }
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ShutdownObject() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DetachObject() override { return E_NOTIMPL; }

  protected:
    void OnFinalRelease() override {
        standin::Journal("Release device " + std::to_string(index_) + " " + (name_ ? *name_ : "(none)"));
    }

  private:
    unsigned index_;
    std::optional<std::string> name_;
};

struct DeviceScript {
    std::optional<std::string> name;
    std::optional<std::string> link;
};

// Fills the outcome the script asks for: a failure, or the devices in file order.
HRESULT ReadDeviceScript(std::vector<DeviceScript>& devices) {
    const std::optional<std::vector<Directive>> script = standin::ReadScript(L"VQTEST_DEVICES");
    if (!script) {
        return S_OK;
    }
    HRESULT scripted = S_OK;
    for (const Directive& directive : *script) {
        if (directive.keyword == "fail") {
            std::vector<HRESULT> results;
            if (!standin::ParseHresults(directive.argument, results) || results.size() != 1) {
                standin::JournalScriptError(directive);
                return E_UNEXPECTED;
            }
            scripted = results[0];
        } else if (directive.keyword == "device") {
            devices.emplace_back();
        } else if ((directive.keyword == "name" || directive.keyword == "link") && !devices.empty()) {
            (directive.keyword == "name" ? devices.back().name : devices.back().link) = directive.argument;
        } else {
            standin::JournalScriptError(directive);
            return E_UNEXPECTED;
        }
    }
    return scripted;
}

HRESULT MakeDevice(unsigned index, const DeviceScript& script, IMFActivate** device) {
    Device* made = new (std::nothrow) Device(index, script.name);
    if (made == nullptr) {
        return E_OUTOFMEMORY;
    }
    HRESULT hr = made->CreateStore();
    if (SUCCEEDED(hr) && script.name) {
        hr = made->SetString(MF_DEVSOURCE_ATTRIBUTE_FRIENDLY_NAME, standin::Utf16(*script.name).c_str());
    }
    if (SUCCEEDED(hr) && script.link) {
        hr = made->SetString(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK,
                             standin::Utf16(*script.link).c_str());
    }
    if (FAILED(hr)) {
        made->Release();
        return hr;
    }
    *device = made;
    return S_OK;
}

HRESULT Enumerate(IMFAttributes* attributes, IMFActivate*** devices, UINT32* count, std::string& type,
                  UINT32& listed) {
    GUID sourceType = {};
    if (attributes != nullptr &&
        SUCCEEDED(attributes->GetGUID(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE, &sourceType))) {
        type = standin::GuidText(sourceType);
    }
    if (devices == nullptr || count == nullptr) {
        return E_POINTER;
    }
    // Windows would list audio endpoints without the video filter; failing makes a missing filter visible.
    if (!IsEqualGUID(sourceType, MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID)) {
        return E_INVALIDARG;
    }
    std::vector<DeviceScript> script;
    const HRESULT scripted = ReadDeviceScript(script);
    if (FAILED(scripted)) {
        return scripted;
    }
    // Never null, even for no devices: the caller frees the array either way.
    auto** array = static_cast<IMFActivate**>(
        CoTaskMemAlloc((script.empty() ? 1 : script.size()) * sizeof(IMFActivate*)));
    if (array == nullptr) {
        return E_OUTOFMEMORY;
    }
    for (size_t i = 0; i < script.size(); ++i) {
        const HRESULT hr = MakeDevice(static_cast<unsigned>(i), script[i], &array[i]);
        if (FAILED(hr)) {
            while (i > 0) {
                array[--i]->Release();
            }
            CoTaskMemFree(array);
            return hr;
        }
    }
    *devices = array;
    *count = static_cast<UINT32>(script.size());
    listed = *count;
    return scripted;
}

} // namespace

extern "C" HRESULT WINAPI MFEnumDeviceSources(IMFAttributes* attributes, IMFActivate*** devices,
                                              UINT32* count) {
    std::string type = "(none)";
    UINT32 listed = 0;
    const HRESULT hr = Enumerate(attributes, devices, count, type, listed);
    standin::Journal("MFEnumDeviceSources type=" + type + " -> " + standin::HresultText(hr) +
                     " count=" + std::to_string(listed));
    return hr;
}

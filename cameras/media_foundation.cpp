#include "cameras/media_foundation.h"

#include "launcher/system_library.h"

ComScope::ComScope() {
    HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    result = hr == RPC_E_CHANGED_MODE ? S_FALSE : hr;
}

ComScope::~ComScope() {
    if (result == S_OK) {
        CoUninitialize();
    }
}

MfStartupScope::MfStartupScope(DWORD flags) : result(MfStartup(flags)) {}

MfStartupScope::~MfStartupScope() {
    if (SUCCEEDED(result)) {
        MfShutdown();
    }
}

std::wstring GetAttributeString(IMFAttributes* attributes, REFGUID key) {
    if (attributes == nullptr) {
        return std::wstring();
    }
    wchar_t* text = nullptr;
    UINT32 length = 0;
    HRESULT hr = attributes->GetAllocatedString(key, &text, &length);
    std::wstring result;
    if (SUCCEEDED(hr) && text != nullptr) {
        result.assign(text, length);
    }
    CoTaskMemFree(text);
    return result;
}

HRESULT MfStartup(DWORD flags) {
    decltype(&MFStartup) startup = nullptr;
    HRESULT hr = LoadSystemFunction(L"mfplat.dll", "MFStartup", &startup);
    return FAILED(hr) ? hr : startup(MF_VERSION, flags);
}

HRESULT MfShutdown() {
    decltype(&MFShutdown) shutdown = nullptr;
    HRESULT hr = LoadSystemFunction(L"mfplat.dll", "MFShutdown", &shutdown);
    return FAILED(hr) ? hr : shutdown();
}

HRESULT MfCreateAttributes(IMFAttributes** attributes, UINT32 initialSize) {
    decltype(&MFCreateAttributes) create = nullptr;
    HRESULT hr = LoadSystemFunction(L"mfplat.dll", "MFCreateAttributes", &create);
    return FAILED(hr) ? hr : create(attributes, initialSize);
}

HRESULT MfEnumDeviceSources(IMFAttributes* attributes, IMFActivate*** devices, UINT32* count) {
    decltype(&MFEnumDeviceSources) enumerate = nullptr;
    HRESULT hr = LoadSystemFunction(L"mf.dll", "MFEnumDeviceSources", &enumerate);
    return FAILED(hr) ? hr : enumerate(attributes, devices, count);
}

HRESULT LoadCreateVirtualCamera(CreateVirtualCameraFunction* function) {
    return LoadSystemFunction(L"mfsensorgroup.dll", "MFCreateVirtualCamera", function);
}

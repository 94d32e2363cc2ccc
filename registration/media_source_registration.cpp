#include "registration/media_source_registration.h"

#include "cameras/media_foundation.h"
#include "diagnostics/failure.h"
#include "diagnostics/service_log.h"
#include "launcher/paths.h"

std::wstring MediaSourceClsidKey() {
    return std::wstring(L"Software\\Classes\\CLSID\\") + MEDIA_SOURCE_CLSID;
}

static HRESULT CreateMachineKey(const std::wstring& subkey, HKEY* key) {
    return HresultFromWin32(
        static_cast<DWORD>(RegCreateKeyExW(HKEY_LOCAL_MACHINE, subkey.c_str(), 0, nullptr,
                                           REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr, key, nullptr)));
}

// Byte counts include the terminating zero.
static HRESULT SetStringValue(HKEY key, const wchar_t* name, DWORD type, const std::wstring& data) {
    return HresultFromWin32(
        static_cast<DWORD>(RegSetValueExW(key, name, 0, type, reinterpret_cast<const BYTE*>(data.c_str()),
                                          static_cast<DWORD>((data.size() + 1) * sizeof(wchar_t)))));
}

HRESULT RegisterMediaSource(const RegisterOptions& options) {
    ClearFailureDetail();
    std::wstring path;
    HRESULT hr = AbsolutePath(options.mediaSourcePath, &path);
    if (FAILED(hr)) {
        return RecordFailure(L"Resolve media source DLL path " + options.mediaSourcePath, hr);
    }
    bool exists = false;
    hr = PathExists(path, &exists);
    if (FAILED(hr)) {
        return RecordFailure(L"Check media source DLL " + path, hr);
    }
    if (!exists) {
        std::wstring text = L"Media source DLL does not exist: " + path;
        AppendServiceLog(text);
        return RecordFailure(text, HresultFromWin32(ERROR_FILE_NOT_FOUND));
    }

    std::wstring clsidKey = MediaSourceClsidKey();
    HKEY key = nullptr;
    hr = CreateMachineKey(clsidKey, &key);
    if (FAILED(hr)) {
        return RecordFailure(L"Create HKLM COM CLSID key " + clsidKey, hr);
    }
    hr = SetStringValue(key, nullptr, REG_SZ, L"Veloquin Retouch Media Source");
    RegCloseKey(key);
    if (FAILED(hr)) {
        return RecordFailure(L"Write HKLM COM CLSID default value", hr);
    }

    hr = CreateMachineKey(clsidKey + L"\\InprocServer32", &key);
    if (FAILED(hr)) {
        return RecordFailure(L"Create HKLM InprocServer32 key", hr);
    }
    hr = SetStringValue(key, nullptr, REG_EXPAND_SZ, path);
    if (SUCCEEDED(hr)) {
        hr = SetStringValue(key, L"ThreadingModel", REG_SZ, L"Both");
    }
    RegCloseKey(key);
    if (FAILED(hr)) {
        return RecordFailure(L"Write HKLM InprocServer32 values", hr);
    }
    return S_OK;
}

HRESULT UnregisterMediaSource() {
    return HresultFromWin32(
        static_cast<DWORD>(RegDeleteTreeW(HKEY_LOCAL_MACHINE, MediaSourceClsidKey().c_str())));
}

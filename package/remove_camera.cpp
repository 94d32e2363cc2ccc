// The package's custom action. Windows Installer runs it from its Binary table, deferred and as
// LocalSystem, before the files go on a removal that is no upgrade's: it does what "Unregister vcam" does,
// for the camera of this installation alone, and stops the removal while that camera can't be removed.
#include <windows.h>
#include <msiquery.h>

#include <cwchar>
#include <string>

#include "diagnostics/failure.h"
#include "diagnostics/service_log.h"
#include "launcher/paths.h"
#include "launcher/system_library.h"
#include "registration/media_source_registration.h"
#include "registration/virtual_camera.h"

namespace {

// msi.dll is no KnownDLL: imported, it would be looked for in this DLL's temporary folder too.
struct Msi {
    decltype(&MsiGetPropertyW) getProperty = nullptr;
    decltype(&MsiCreateRecord) createRecord = nullptr;
    decltype(&MsiRecordSetStringW) setString = nullptr;
    decltype(&MsiProcessMessage) processMessage = nullptr;
    decltype(&MsiCloseHandle) closeHandle = nullptr;
};

bool LoadMsi(Msi* msi) {
    return SUCCEEDED(LoadSystemFunction(L"msi.dll", "MsiGetPropertyW", &msi->getProperty)) &&
           SUCCEEDED(LoadSystemFunction(L"msi.dll", "MsiCreateRecord", &msi->createRecord)) &&
           SUCCEEDED(LoadSystemFunction(L"msi.dll", "MsiRecordSetStringW", &msi->setString)) &&
           SUCCEEDED(LoadSystemFunction(L"msi.dll", "MsiProcessMessage", &msi->processMessage)) &&
           SUCCEEDED(LoadSystemFunction(L"msi.dll", "MsiCloseHandle", &msi->closeHandle));
}

// One line into the installer's log; an error is also shown where the removal has a user interface.
void Report(const Msi& msi, MSIHANDLE session, INSTALLMESSAGE type, const std::wstring& text) {
    if (msi.createRecord == nullptr) {
        return;
    }
    MSIHANDLE record = msi.createRecord(1);
    // The text goes in as a field, so that brackets in a path are not read as properties.
    msi.setString(record, 0, L"[1]");
    msi.setString(record, 1, text.c_str());
    msi.processMessage(session, type, record);
    msi.closeHandle(record);
}

// A deferred action sees its CustomActionData alone: here the install folder, with its final separator.
std::wstring InstallFolder(const Msi& msi, MSIHANDLE session) {
    std::wstring folder(MAX_PATH, L'\0');
    DWORD size = static_cast<DWORD>(folder.size());
    UINT result = msi.getProperty(session, L"CustomActionData", folder.data(), &size);
    if (result == ERROR_MORE_DATA) {
        folder.resize(++size);
        result = msi.getProperty(session, L"CustomActionData", folder.data(), &size);
    }
    folder.resize(result == ERROR_SUCCESS ? size : 0);
    return folder;
}

// The COM server's path as COM takes it, its variables expanded.
HRESULT RegisteredMediaSource(std::wstring* path) {
    const std::wstring key = MediaSourceClsidKey() + L"\\InprocServer32";
    const DWORD types = RRF_RT_REG_SZ; // REG_EXPAND_SZ too, expanded
    DWORD bytes = 0;
    LSTATUS status = RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), nullptr, types, nullptr, nullptr, &bytes);
    while (status == ERROR_SUCCESS || status == ERROR_MORE_DATA) {
        path->assign(bytes / sizeof(wchar_t) + 1, L'\0');
        bytes = static_cast<DWORD>(path->size() * sizeof(wchar_t));
        status = RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), nullptr, types, nullptr, path->data(), &bytes);
        if (status == ERROR_SUCCESS) {
            path->resize(wcslen(path->c_str()));
            return S_OK;
        }
    }
    return HresultFromWin32(static_cast<DWORD>(status));
}

// As Windows compares paths: whole, without regard to case.
bool IsSamePath(const std::wstring& left, const std::wstring& right) {
    std::wstring fullLeft, fullRight;
    return SUCCEEDED(AbsolutePath(left, &fullLeft)) && SUCCEEDED(AbsolutePath(right, &fullRight)) &&
           CompareStringOrdinal(fullLeft.c_str(), -1, fullRight.c_str(), -1, TRUE) == CSTR_EQUAL;
}

// No camera to remove: this Windows has no virtual camera API (no Media Foundation or no
// mfsensorgroup.dll: module not found; Windows 10's mfsensorgroup.dll: procedure not found), or the
// Frame Server knows no such camera (file or element not found).
bool IsCameraAbsent(HRESULT hr) {
    return hr == HresultFromWin32(ERROR_MOD_NOT_FOUND) || hr == HresultFromWin32(ERROR_PROC_NOT_FOUND) ||
           hr == HresultFromWin32(ERROR_FILE_NOT_FOUND) || hr == HresultFromWin32(ERROR_NOT_FOUND);
}

const wchar_t OUTCOME[] = L"Removal of Veloquin Launcher: ";

// The outcome line, in the service log and the installer's log alike.
UINT Done(const Msi& msi, MSIHANDLE session, const std::wstring& text) {
    AppendServiceLog(OUTCOME + text);
    Report(msi, session, INSTALLMESSAGE_INFO, OUTCOME + text);
    return ERROR_SUCCESS;
}

// The line RecordFailure writes. Not RecordFailure itself: it keeps the stage per thread, and the
// destructor of that, left behind in a DLL that msiexec unloads, hung Wine's custom action server.
// The failed action rolls the removal back.
UINT Failed(const Msi& msi, MSIHANDLE session, const std::wstring& stage, HRESULT hr) {
    const std::wstring line = OUTCOME + stage + L" failed: " + FormatHresult(hr);
    AppendServiceLog(line);
    Report(msi, session, INSTALLMESSAGE(INSTALLMESSAGE_ERROR | MB_OK | MB_ICONERROR), line);
    return ERROR_INSTALL_FAILURE;
}

} // namespace

extern "C" UINT __stdcall RemoveCamera(MSIHANDLE session) {
    Msi msi;
    if (!LoadMsi(&msi)) {
        return Failed(Msi(), session, L"load msi.dll", LastErrorAsHresult(ERROR_MOD_NOT_FOUND));
    }
    const std::wstring folder = InstallFolder(msi, session);
    if (folder.empty()) {
        return Failed(msi, session, L"read the install folder from CustomActionData", E_INVALIDARG);
    }
    const std::wstring installed = AppendPath(folder, MEDIA_SOURCE_FILE_NAME);
    std::wstring registered;
    HRESULT hr = RegisteredMediaSource(&registered);
    if (hr == HresultFromWin32(ERROR_FILE_NOT_FOUND)) {
        return Done(msi, session, L"no virtual camera is registered; nothing to remove.");
    }
    if (FAILED(hr)) {
        return Failed(msi, session, L"read the media source's COM registration", hr);
    }
    if (!IsSamePath(registered, installed)) {
        return Done(msi, session,
                    L"the virtual camera is registered from " + registered + L", not from " + installed +
                        L"; it stays registered.");
    }
    hr = RemoveVirtualCamera(1);
    if (FAILED(hr) && !IsCameraAbsent(hr)) {
        return Failed(msi, session, L"remove the virtual camera", hr);
    }
    std::wstring camera =
        SUCCEEDED(hr) ? L"virtual camera removed" : L"no virtual camera (" + FormatHresult(hr) + L")";
    // Without its camera the COM server is a key that names a missing file, and no app sees it: the
    // removal goes on, as "Unregister vcam" does.
    HRESULT com = UnregisterMediaSource();
    if (FAILED(com) && com != HresultFromWin32(ERROR_FILE_NOT_FOUND)) {
        return Done(msi, session,
                    camera + L", COM server " + installed + L" not unregistered: " + FormatHresult(com));
    }
    return Done(msi, session, camera + L", COM server " + installed + L" unregistered.");
}

#include "registration/commands.h"

#include "cameras/camera_picker.h"
#include "diagnostics/failure.h"
#include "launcher/launcher_state.h"
#include "launcher/paths.h"
#include "launcher/status_pane.h"
#include "registration/virtual_camera.h"

void OnRegisterCommand() {
    const std::wstring& path = g_launcher.mediaSourcePath;
    bool exists = false;
    HRESULT hr = PathExists(path, &exists);
    if (FAILED(hr)) {
        AppendStatusLine(L"ERROR: could not check for the media-source DLL next to launcher: " + path +
                         L" \u2014 " + FormatHresult(hr));
        return;
    }
    if (!exists) {
        AppendStatusLine(L"ERROR: media-source DLL not found next to launcher: " + path);
        return;
    }
    AppendStatusLine(L"Registering Veloquin virtual camera (COM + device)...");

    RegisterOptions options;
    options.mediaSourcePath = path;
    options.access = 1;
    options.registerCom = true;
    RegisterResult result;
    hr = RegisterVirtualCamera(options, &result);
    if (FAILED(hr)) {
        AppendStatusLine(L"Register FAILED: " + FormatHresult(hr));
        std::wstring detail = GetFailureDetail();
        if (!detail.empty()) {
            AppendStatusLine(L"  detail: " + detail);
        }
    } else {
        AppendStatusLine(L"Registered. Veloquin should now appear in OBS / camera apps.");
        if (!result.symbolicLink.empty()) {
            AppendStatusLine(L"  symbolic link: " + result.symbolicLink);
        }
    }
    RefreshCameraList();
}

void OnUnregisterCommand() {
    AppendStatusLine(L"Removing Veloquin virtual camera...");
    HRESULT hr = RemoveVirtualCamera(1);
    if (FAILED(hr)) {
        AppendStatusLine(L"  remove device failed: " + FormatHresult(hr));
    } else {
        AppendStatusLine(L"  device removed.");
    }
    hr = UnregisterMediaSource();
    // A key that was never there counts as unregistered.
    if (FAILED(hr) && (hr & 0xFFFF) != ERROR_FILE_NOT_FOUND) {
        AppendStatusLine(L"  unregister COM failed: " + FormatHresult(hr));
    } else {
        AppendStatusLine(L"  COM server unregistered.");
    }
    AppendStatusLine(L"Unregister complete.");
    RefreshCameraList();
}

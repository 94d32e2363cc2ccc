#include "cameras/camera_picker.h"

#include <windows.h>

#include <algorithm>

#include "cameras/media_foundation.h"
#include "cameras/physical_cameras.h"
#include "launcher/launcher_state.h"
#include "launcher/status_pane.h"

std::vector<CameraListEntry> EnumerateCameraList() {
    std::vector<CameraListEntry> list;
    ComScope com;
    if (FAILED(MfStartup(MFSTARTUP_LITE))) {
        return list;
    }
    // Media Foundation is shut down before the attribute store goes, so no guard owns it here.
    IMFAttributes* attributes = nullptr;
    HRESULT hr = MfCreateAttributes(&attributes, 1);
    if (SUCCEEDED(hr)) {
        hr = attributes->SetGUID(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE,
                                 MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID);
    }
    IMFActivate** devices = nullptr;
    UINT32 count = 0;
    if (SUCCEEDED(hr)) {
        hr = MfEnumDeviceSources(attributes, &devices, &count);
    }
    if (SUCCEEDED(hr)) {
        for (UINT32 i = 0; i < count; ++i) {
            std::wstring name = GetAttributeString(devices[i], MF_DEVSOURCE_ATTRIBUTE_FRIENDLY_NAME);
            if (name.empty()) {
                name = L"(unnamed camera)";
            }
            bool own = ContainsNoCase(name, L"veloquin");
            list.push_back(CameraListEntry{static_cast<int>(i), name, own});
            if (devices[i] != nullptr) {
                devices[i]->Release();
            }
        }
        CoTaskMemFree(devices);
    }
    MfShutdown();
    if (attributes != nullptr) {
        attributes->Release();
    }
    return list;
}

void RefreshCameraList() {
    g_launcher.cameraList = EnumerateCameraList();
    HWND combo = g_launcher.cameraCombo;
    SendMessageW(combo, CB_RESETCONTENT, 0, 0);
    int selection = -1;
    for (size_t position = 0; position < g_launcher.cameraList.size(); ++position) {
        const CameraListEntry& entry = g_launcher.cameraList[position];
        std::wstring text = std::to_wstring(entry.deviceIndex) + L": " + entry.name;
        if (entry.isOwnCamera) {
            text += L"  [Veloquin \u2014 do not select]";
        } else if (selection < 0) {
            selection = static_cast<int>(position);
        }
        SendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(text.c_str()));
    }
    SendMessageW(combo, CB_SETCURSEL, static_cast<WPARAM>(std::max(selection, 0)), 0);
    PostStatusLine(L"Found " + std::to_wstring(g_launcher.cameraList.size()) + L" camera device(s).");
}

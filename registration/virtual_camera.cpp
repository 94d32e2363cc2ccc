#include "registration/virtual_camera.h"

#include "cameras/media_foundation.h"
#include "cameras/physical_cameras.h"
#include "diagnostics/failure.h"
#include "diagnostics/service_log.h"
#include "launcher/paths.h"

static MFVirtualCameraAccess AccessFor(int access) {
    return access == 1 ? MFVirtualCameraAccess_AllUsers : MFVirtualCameraAccess_CurrentUser;
}

static HRESULT LoadCreateVirtualCameraOrRecord(CreateVirtualCameraFunction* create) {
    HRESULT hr = LoadCreateVirtualCamera(create);
    if (FAILED(hr)) {
        return RecordFailure(
            L"Load MFCreateVirtualCamera from mfsensorgroup.dll. Windows build 22000+ is required "
            L"for this registration path",
            hr);
    }
    return hr;
}

bool IsTransientRegistrationError(HRESULT hr) {
    switch (static_cast<unsigned long>(hr)) {
    case 0x800706BA: // RPC_S_SERVER_UNAVAILABLE
    case 0x800706BE: // RPC_S_CALL_FAILED
    case 0x800706BF: // RPC_S_CALL_FAILED_DNE
    case 0x800706D9: // EPT_S_NOT_REGISTERED
    case 0x80070015: // ERROR_NOT_READY
    case 0x80070426: // ERROR_SERVICE_NOT_ACTIVE
        return true;
    default:
        return false;
    }
}

// Ties the camera to a physical one, chosen afresh each attempt since devices come and go.
static void AssociatePhysicalCamera(IMFVirtualCamera* camera) {
    std::vector<PhysicalCamera> cameras = EnumeratePhysicalCameras();
    if (cameras.empty()) {
        AppendServiceLog(L"No physical camera was available during virtual camera registration.");
        return;
    }
    auto preferred = FindPreferredCamera(cameras.cbegin(), cameras.cend());
    PhysicalCamera chosen = preferred != cameras.cend() ? *preferred : cameras.front();
    HRESULT hr = camera->AddDeviceSourceInfo(chosen.symbolicLink.c_str());
    if (FAILED(hr)) {
        AppendServiceLog(L"AddDeviceSourceInfo failed: " + FormatHresult(hr));
    }
    camera->SetString(VCAM_ATTR_PHYSICAL_SYMBOLIC_LINK, chosen.symbolicLink.c_str());
    AppendServiceLog(L"Associated physical camera: " + chosen.friendlyName);
}

// One attempt. `stage` names the step whose failure the attempt reports.
static HRESULT AttemptRegistration(CreateVirtualCameraFunction create, const RegisterOptions& options,
                                   ComPtr<IMFVirtualCamera>& camera, std::wstring* stage) {
    HRESULT hr = create(MFVirtualCameraType_SoftwareCameraSource, MFVirtualCameraLifetime_System,
                        AccessFor(options.access), VIRTUAL_CAMERA_NAME, MEDIA_SOURCE_CLSID,
                        VIRTUAL_CAMERA_CATEGORIES, 3, camera.Put());
    *stage = L"MFCreateVirtualCamera";
    if (FAILED(hr)) {
        return hr;
    }
    AssociatePhysicalCamera(camera.Get());

    std::wstring absolute;
    hr = AbsolutePath(options.mediaSourcePath, &absolute);
    if (FAILED(hr)) {
        *stage = L"Resolve media source folder of " + options.mediaSourcePath;
        return hr;
    }
    camera->SetString(VCAM_ATTR_SOURCE_FOLDER, ParentPath(absolute).c_str());

    hr = camera->Start(nullptr);
    if (FAILED(hr)) {
        *stage = L"IMFVirtualCamera::Start";
    }
    return hr;
}

HRESULT RegisterVirtualCamera(const RegisterOptions& options, RegisterResult* result) {
    ClearFailureDetail();
    if (options.registerCom) {
        HRESULT hr = RegisterMediaSource(options);
        if (FAILED(hr)) {
            return hr;
        }
    }
    ComScope com;
    MfStartupScope mf(MFSTARTUP_FULL);
    if (FAILED(mf.Result())) {
        return RecordFailure(L"Media Foundation startup", mf.Result());
    }
    CreateVirtualCameraFunction create = nullptr;
    HRESULT hr = LoadCreateVirtualCameraOrRecord(&create);
    if (FAILED(hr)) {
        return hr;
    }

    for (int attempt = 1;; ++attempt) {
        ComPtr<IMFVirtualCamera> camera;
        std::wstring stage;
        hr = AttemptRegistration(create, options, camera, &stage);
        if (SUCCEEDED(hr)) {
            if (attempt > 1) {
                AppendServiceLog(L"Virtual camera registration succeeded on attempt " +
                                 std::to_wstring(attempt));
            }
            if (result != nullptr) {
                result->symbolicLink =
                    GetAttributeString(camera.Get(), MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK);
            }
            ClearFailureDetail();
            return S_OK;
        }
        camera.Reset();
        if (attempt >= REGISTRATION_ATTEMPT_LIMIT || !IsTransientRegistrationError(hr)) {
            return RecordFailure(stage, hr);
        }
        DWORD delay = REGISTRATION_RETRY_DELAYS_MS[attempt - 1];
        AppendServiceLog(stage + L" failed transiently (" + FormatHresult(hr) + L"), retrying in " +
                         std::to_wstring(delay) + L" ms (attempt " + std::to_wstring(attempt) + L"/" +
                         std::to_wstring(REGISTRATION_ATTEMPT_LIMIT) +
                         L") \u2014 the Camera Frame Server was likely still starting");
        Sleep(delay);
    }
}

HRESULT RemoveVirtualCamera(int access) {
    ComScope com;
    MfStartupScope mf(MFSTARTUP_FULL);
    if (FAILED(mf.Result())) {
        return mf.Result();
    }
    CreateVirtualCameraFunction create = nullptr;
    HRESULT hr = LoadCreateVirtualCamera(&create);
    if (FAILED(hr)) {
        return hr;
    }
    ComPtr<IMFVirtualCamera> camera;
    hr = create(MFVirtualCameraType_SoftwareCameraSource, MFVirtualCameraLifetime_System, AccessFor(access),
                VIRTUAL_CAMERA_NAME, MEDIA_SOURCE_CLSID, nullptr, 0, camera.Put());
    if (FAILED(hr)) {
        return hr;
    }
    return camera->Remove();
}

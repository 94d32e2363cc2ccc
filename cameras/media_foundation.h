// What the launcher uses of COM and Media Foundation: scope guards, names and GUIDs, and the Media
// Foundation entry points, which are loaded from the system folder at run time.
#pragma once

#include <windows.h>
#include <mfapi.h>
#include <mfidl.h>

#include <string>

#include "cameras/mf_virtual_camera.h"

inline constexpr wchar_t VIRTUAL_CAMERA_NAME[] = L"Veloquin";
inline constexpr wchar_t MEDIA_SOURCE_CLSID[] = L"{fb0afedc-9b71-404f-8154-36cc0ef0a550}";

// Private attributes that the media source reads from its virtual camera.
inline constexpr GUID VCAM_ATTR_PHYSICAL_SYMBOLIC_LINK = {
    0x3fe6a436, 0xb25d, 0x45ea, {0x8e, 0x1c, 0xe3, 0x12, 0x92, 0xa9, 0xb0, 0x90}};
inline constexpr GUID VCAM_ATTR_SOURCE_FOLDER = {
    0x39fb8338, 0x7d42, 0x4efb, {0x90, 0x27, 0xe3, 0xfc, 0xa8, 0x90, 0x72, 0x24}};

// KSCATEGORY_VIDEO_CAMERA, KSCATEGORY_VIDEO and KSCATEGORY_CAPTURE, in this order.
inline constexpr GUID VIRTUAL_CAMERA_CATEGORIES[3] = {
    {0xe5323777, 0xf976, 0x4f5b, {0x9b, 0x55, 0xb9, 0x46, 0x99, 0xc4, 0x6e, 0x44}},
    {0x6994ad05, 0x93ef, 0x11d0, {0xa3, 0xcc, 0x00, 0xa0, 0xc9, 0x22, 0x31, 0x96}},
    {0x65e8773d, 0x8f56, 0x11d0, {0xa3, 0xb9, 0x00, 0xa0, 0xc9, 0x22, 0x31, 0x96}},
};

using CreateVirtualCameraFunction = decltype(&MFCreateVirtualCamera);

// COINIT_MULTITHREADED for the length of one operation. A thread already in another apartment
// counts as 1, like S_FALSE; only an S_OK start is undone.
class ComScope {
  public:
    ComScope();
    ~ComScope();
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;
    HRESULT Result() const { return result; }

  private:
    HRESULT result;
};

// MFStartup for the length of one operation; MFShutdown only after a good start.
class MfStartupScope {
  public:
    explicit MfStartupScope(DWORD flags);
    ~MfStartupScope();
    MfStartupScope(const MfStartupScope&) = delete;
    MfStartupScope& operator=(const MfStartupScope&) = delete;
    HRESULT Result() const { return result; }

  private:
    HRESULT result;
};

// Owns one reference. Put() releases what it held before handing out the slot.
template <typename T> class ComPtr {
  public:
    ComPtr() = default;
    ~ComPtr() { Reset(); }
    ComPtr(const ComPtr&) = delete;
    ComPtr& operator=(const ComPtr&) = delete;
    T* Get() const { return pointer; }
    T* operator->() const { return pointer; }
    T** Put() {
        Reset();
        return &pointer;
    }
    void Reset() {
        if (pointer != nullptr) {
            T* held = pointer;
            pointer = nullptr;
            held->Release();
        }
    }

  private:
    T* pointer = nullptr;
};

// The text of a string attribute; empty when the store or the text is missing or the read fails.
std::wstring GetAttributeString(IMFAttributes* attributes, REFGUID key);

HRESULT MfStartup(DWORD flags);
HRESULT MfShutdown();
HRESULT MfCreateAttributes(IMFAttributes** attributes, UINT32 initialSize);
HRESULT MfEnumDeviceSources(IMFAttributes* attributes, IMFActivate*** devices, UINT32* count);
// MFCreateVirtualCamera from mfsensorgroup.dll, which exists from Windows build 22000 on.
HRESULT LoadCreateVirtualCamera(CreateVirtualCameraFunction* function);

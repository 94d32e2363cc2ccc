// The virtual camera interface of mfsensorgroup.dll (Windows build 22000 and later).
// The Windows SDK has it in <mfvirtualcamera.h>; the MinGW-w64 headers lack it, so it is declared here
// once. The slot order below is the ABI: a method out of place still compiles and then calls the
// wrong method on a real machine.
#pragma once

#include <windows.h>
#include <mfidl.h>

#if defined(_MSC_VER)
#include <mfvirtualcamera.h>
#else
#include <devpropdef.h>

enum MFVirtualCameraType { MFVirtualCameraType_SoftwareCameraSource = 0 };

enum MFVirtualCameraLifetime { MFVirtualCameraLifetime_Session = 0, MFVirtualCameraLifetime_System = 1 };

enum MFVirtualCameraAccess { MFVirtualCameraAccess_CurrentUser = 0, MFVirtualCameraAccess_AllUsers = 1 };

struct IMFCameraSyncObject;

struct IMFVirtualCamera : public IMFAttributes {
    virtual HRESULT STDMETHODCALLTYPE AddDeviceSourceInfo(LPCWSTR deviceSourceInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddProperty(const DEVPROPKEY* key, DEVPROPTYPE type, const BYTE* data,
                                                  ULONG dataSize) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddRegistryEntry(LPCWSTR entryName, LPCWSTR subkeyPath, DWORD regType,
                                                       const BYTE* data, ULONG dataSize) = 0;
    virtual HRESULT STDMETHODCALLTYPE Start(IMFAsyncCallback* callback) = 0;
    virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
    virtual HRESULT STDMETHODCALLTYPE Remove() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMediaSource(IMFMediaSource** mediaSource) = 0;
    virtual HRESULT STDMETHODCALLTYPE SendCameraProperty(REFGUID propertySet, ULONG propertyId,
                                                         ULONG propertyFlags, void* propertyPayload,
                                                         ULONG propertyPayloadLength, void* data,
                                                         ULONG dataLength, ULONG* dataWritten) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateSyncEvent(REFGUID kseventSet, ULONG kseventId, ULONG kseventFlags,
                                                      HANDLE eventHandle,
                                                      IMFCameraSyncObject** cameraSyncObject) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateSyncSemaphore(REFGUID kseventSet, ULONG kseventId,
                                                          ULONG kseventFlags, HANDLE semaphoreHandle,
                                                          LONG semaphoreAdjustment,
                                                          IMFCameraSyncObject** cameraSyncObject) = 0;
    virtual HRESULT STDMETHODCALLTYPE Shutdown() = 0;
};

__CRT_UUID_DECL(IMFVirtualCamera, 0x1c08a864, 0xef6c, 0x4c75, 0xaf, 0x59, 0x5f, 0x2d, 0x68, 0xda, 0x95, 0x63)

extern "C" HRESULT WINAPI MFCreateVirtualCamera(MFVirtualCameraType type, MFVirtualCameraLifetime lifetime,
                                                MFVirtualCameraAccess access, LPCWSTR friendlyName,
                                                LPCWSTR sourceId, const GUID* categories, ULONG categoryCount,
                                                IMFVirtualCamera** virtualCamera);
#endif

// The media source as an in-process COM server of the whole machine.
#pragma once

#include <windows.h>

#include <string>

struct RegisterOptions {
    std::wstring mediaSourcePath;
    // 1 makes the camera visible to all users; any other value to the current user only.
    int access = 1;
    bool registerCom = true;
};

// "Software\Classes\CLSID\{...}" below HKEY_LOCAL_MACHINE.
std::wstring MediaSourceClsidKey();
// Writes the CLSID key and its InprocServer32 key. Nothing is rolled back on failure.
HRESULT RegisterMediaSource(const RegisterOptions& options);
// Deletes the CLSID key with everything below it; a missing key gives 0x80070002.
HRESULT UnregisterMediaSource();

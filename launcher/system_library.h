// Functions of DLLs outside the KnownDLLs, taken from the system folder only: the launcher runs
// elevated, and its own folder may be writable by anyone who can plant a DLL there.
#pragma once

#include <windows.h>

// Loads `dll` from the system folder (never freed) and finds `name` in it. A failure is the last
// error as an HRESULT, or module/procedure not found when the system left the last error at 0.
HRESULT LoadSystemFunction(const wchar_t* dll, const char* name, FARPROC* function);

template <typename Function>
HRESULT LoadSystemFunction(const wchar_t* dll, const char* name, Function* function) {
    FARPROC address = nullptr;
    HRESULT hr = LoadSystemFunction(dll, name, &address);
    // Through the generic function type, which converts to any other without a warning.
    *function = SUCCEEDED(hr) ? reinterpret_cast<Function>(reinterpret_cast<void (*)()>(address)) : nullptr;
    return hr;
}

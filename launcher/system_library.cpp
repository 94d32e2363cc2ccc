#include "launcher/system_library.h"

#include "diagnostics/failure.h"

HRESULT LoadSystemFunction(const wchar_t* dll, const char* name, FARPROC* function) {
    *function = nullptr;
    HMODULE module = LoadLibraryExW(dll, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (module == nullptr) {
        return LastErrorAsHresult(ERROR_MOD_NOT_FOUND);
    }
    *function = GetProcAddress(module, name);
    if (*function == nullptr) {
        return LastErrorAsHresult(ERROR_PROC_NOT_FOUND);
    }
    return S_OK;
}

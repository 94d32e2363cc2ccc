// Planted in the launcher's folder under the names of system DLLs. If it is ever loaded, it leaves a
// line naming itself in VQTEST_PLANTED_MARKER (or planted-dll-loaded.txt beside itself), which the
// tests look for. Only kernel32 is used: this runs under the loader lock.
#include <windows.h>

namespace {

void AppendUtf8Line(const wchar_t* path, const wchar_t* text) {
    char line[4 * MAX_PATH + 2];
    const int size =
        WideCharToMultiByte(CP_UTF8, 0, text, -1, line, static_cast<int>(sizeof line) - 1, nullptr, nullptr);
    if (size <= 0) {
        return;
    }
    line[size - 1] = '\n'; // over the terminating zero
    const HANDLE file =
        CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return;
    }
    DWORD written = 0;
    WriteFile(file, line, static_cast<DWORD>(size), &written, nullptr);
    CloseHandle(file);
}

void LeaveMarker(HMODULE self) {
    wchar_t module[MAX_PATH];
    const DWORD length = GetModuleFileNameW(self, module, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) {
        return;
    }
    wchar_t marker[MAX_PATH];
    const DWORD markerLength = GetEnvironmentVariableW(L"VQTEST_PLANTED_MARKER", marker, MAX_PATH);
    if (markerLength > 0 && markerLength < MAX_PATH) {
        AppendUtf8Line(marker, module);
        return;
    }
    static constexpr wchar_t kFallback[] = L"planted-dll-loaded.txt";
    DWORD folderEnd = length;
    while (folderEnd > 0 && module[folderEnd - 1] != L'\\' && module[folderEnd - 1] != L'/') {
        --folderEnd;
    }
    if (folderEnd + sizeof kFallback / sizeof kFallback[0] > MAX_PATH) {
        return;
    }
    lstrcpyW(marker, module);
    lstrcpyW(marker + folderEnd, kFallback);
    AppendUtf8Line(marker, module);
}

} // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(instance);
        LeaveMarker(instance);
    }
    return TRUE;
}

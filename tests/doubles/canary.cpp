// Planted beside a program under a system DLL's name: taken, it appends "<itself> taken by <program>" to
// %VQTEST_DIR%\loads.txt and refuses to load. Kernel32 alone, no C runtime, so that it gets that far.
#include <windows.h>

extern "C" BOOL WINAPI DllMainCRTStartup(HINSTANCE self, DWORD reason, LPVOID) {
    static wchar_t line[2 * MAX_PATH + 16], program[MAX_PATH], journal[MAX_PATH];
    static char bytes[3 * sizeof(line)];
    if (reason == DLL_PROCESS_ATTACH && GetEnvironmentVariableW(L"VQTEST_DIR", journal, MAX_PATH - 16)) {
        GetModuleFileNameW(self, line, MAX_PATH);
        GetModuleFileNameW(nullptr, program, MAX_PATH);
        lstrcatW(lstrcatW(lstrcatW(line, L" taken by "), program), L"\n");
        DWORD size = WideCharToMultiByte(CP_UTF8, 0, line, -1, bytes, sizeof(bytes), nullptr, nullptr) - 1;
        HANDLE file = CreateFileW(lstrcatW(journal, L"\\loads.txt"), FILE_APPEND_DATA,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS, 0, nullptr);
        WriteFile(file, bytes, size, &size, nullptr);
        CloseHandle(file);
    }
    return reason != DLL_PROCESS_ATTACH;
}

// Stands in for the producer. Records how the launcher started it in %VQTEST_DIR%\producer.txt, writes
// the bytes of %VQTEST_DIR%\output.bin to its output and the text of the script's line "stderr <text>"
// to its standard error, then goes on as the line "producer <mode>" of
// %VQTEST_DIR%\script.txt says: "wait" runs until it is ended, "share" does too after giving the test
// (process VQTEST_PID) a handle to its output, "quiet" after closing its output, "grandchild" first
// starts a copy of itself that keeps the pipe open; without the line it ends at once.
#include <windows.h>

#include <fstream>

#include "tests/driver/driver.h"

namespace {

using driver::Variable;

void Print(const std::string& bytes, DWORD stream = STD_OUTPUT_HANDLE) {
    DWORD written = 0;
    WriteFile(GetStdHandle(stream), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

void Record(const std::string& lines) {
    std::ofstream(driver::fs::path(Variable(L"VQTEST_DIR")) / L"producer.txt", std::ios::app) << lines;
}

} // namespace

int main() {
    if (!Variable(L"VQTEST_HOLD").empty()) {
        Sleep(120000);
        return 0;
    }
    driver::fs::path folder = Variable(L"VQTEST_DIR");
    std::wstring mode, error;
    for (const std::wstring& line : driver::FileLines(folder / L"script.txt")) {
        mode = line.rfind(L"producer ", 0) == 0 ? line.substr(9) : mode;
        error = line.rfind(L"stderr ", 0) == 0 ? line.substr(7) + L"\n" : error;
    }
    Record("cmdline=" + driver::Utf8(GetCommandLineW()) +
           "\nd3d=" + driver::Utf8(Variable(L"VELOQUIN_CAPTURE_D3D_TEXTURE")) +
           "\ncwd=" + driver::Utf8(driver::fs::current_path().wstring()) +
           "\npid=" + std::to_string(GetCurrentProcessId()) + "\n");
    Print(driver::Read(folder / L"output.bin"));
    Print(driver::Utf8(error), STD_ERROR_HANDLE);

    if (mode == L"grandchild") {
        wchar_t self[MAX_PATH] = {};
        GetModuleFileNameW(nullptr, self, MAX_PATH);
        SetEnvironmentVariableW(L"VQTEST_HOLD", L"1");
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION child = {};
        if (CreateProcessW(self, nullptr, nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &child)) {
            Record("child=" + std::to_string(child.dwProcessId) + "\n");
        }
        Print("parent done\n");
    } else if (mode == L"share") {
        // The test's copy keeps the pipe open after this process has gone, for as long as the test likes.
        HANDLE test = OpenProcess(PROCESS_DUP_HANDLE, FALSE, std::stoul(Variable(L"VQTEST_PID")));
        HANDLE copy = nullptr;
        DuplicateHandle(GetCurrentProcess(), GetStdHandle(STD_OUTPUT_HANDLE), test, &copy, 0, FALSE,
                        DUPLICATE_SAME_ACCESS);
        Record("shared=" + std::to_string(reinterpret_cast<uintptr_t>(copy)) + "\n");
    } else if (mode == L"quiet") {
        CloseHandle(GetStdHandle(STD_OUTPUT_HANDLE)); // standard error is the same pipe
    }
    if (mode == L"share" || mode == L"quiet" || mode == L"wait") {
        Sleep(INFINITE);
    }
    return 0;
}

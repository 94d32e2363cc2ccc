// Stands in for the producer executable: prints what VQTEST_PRODUCER_MODE asks for, ends as
// VQTEST_PRODUCER_THEN asks, and records in VQTEST_PRODUCER_RECORD how the launcher started it.
// All output goes through WriteFile so the launcher receives exactly these bytes.
#include "tests/doubles/standin_common.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace {

using standin::EnvironmentVariable;
using standin::Utf8;

// Failures are ignored: the reader may have gone, and the test judges by what arrived.
void Write(HANDLE handle, std::string_view bytes) {
    while (!bytes.empty()) {
        DWORD written = 0;
        if (!WriteFile(handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) ||
            written == 0) {
            return;
        }
        bytes.remove_prefix(written);
    }
}

void Out(std::string_view bytes) {
    Write(GetStdHandle(STD_OUTPUT_HANDLE), bytes);
}

void WriteInChunks(std::string_view bytes, size_t chunk) {
    while (!bytes.empty()) {
        const size_t size = bytes.size() < chunk ? bytes.size() : chunk;
        Out(bytes.substr(0, size));
        bytes.remove_prefix(size);
    }
}

constexpr size_t kChunk = 64 * 1024;

void AppendToFile(const std::wstring& path, std::string_view bytes, DWORD disposition) {
    const HANDLE file =
        CreateFileW(path.c_str(), disposition == CREATE_ALWAYS ? GENERIC_WRITE : FILE_APPEND_DATA,
                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return;
    }
    Write(file, bytes);
    CloseHandle(file);
}

void WriteRecord(const std::wstring& path) {
    std::string record = "cmdline=" + Utf8(GetCommandLineW()) + "\n";
    const std::optional<std::wstring> d3d = EnvironmentVariable(L"VELOQUIN_CAPTURE_D3D_TEXTURE");
    record += "d3d=" + (d3d ? Utf8(*d3d) : std::string("(unset)")) + "\n";
    std::wstring cwd(GetCurrentDirectoryW(0, nullptr), L'\0');
    cwd.resize(GetCurrentDirectoryW(static_cast<DWORD>(cwd.size()), cwd.data()));
    record += "cwd=" + Utf8(cwd) + "\n";
    record += "pid=" + std::to_string(GetCurrentProcessId()) + "\n";
    AppendToFile(path, record, CREATE_ALWAYS);
}

// A count after "mode:"; false when the text is not a plain decimal number.
bool ParseCount(std::wstring_view text, unsigned long long& count) {
    if (text.empty() || text.size() > 18) {
        return false;
    }
    count = 0;
    for (const wchar_t c : text) {
        if (c < L'0' || c > L'9') {
            return false;
        }
        count = count * 10 + static_cast<unsigned long long>(c - L'0');
    }
    return true;
}

void WriteFlood(unsigned long long lines) {
    // Whole chunks regardless of line ends, so lines straddle the reads on the other side.
    std::string buffer;
    buffer.reserve(kChunk + 80);
    for (unsigned long long n = 1; n <= lines; ++n) {
        char line[96];
        std::snprintf(line, sizeof line, "flood line %08llu ", n);
        std::string text = line;
        text.resize(79, '.');
        text += '\n';
        buffer += text;
        if (buffer.size() >= kChunk) {
            Out(std::string_view(buffer).substr(0, kChunk));
            buffer.erase(0, kChunk);
        }
    }
    Out(buffer);
}

void LongLine(unsigned long long bytes) {
    const std::string chunk(kChunk, 'x');
    while (bytes > 0) {
        const size_t size = bytes < kChunk ? static_cast<size_t>(bytes) : kChunk;
        Out(std::string_view(chunk).substr(0, size));
        bytes -= size;
    }
}

int FromFile() {
    const std::optional<std::wstring> path = EnvironmentVariable(L"VQTEST_PRODUCER_INPUT");
    const std::optional<std::string> content = path ? standin::ReadWholeFile(*path) : std::nullopt;
    if (!content) {
        Out("cannot read VQTEST_PRODUCER_INPUT\n");
        return 3;
    }
    WriteInChunks(*content, 4096);
    return 0;
}

void Demo() {
    unsigned long long frame = 0;
    unsigned seed = GetCurrentProcessId();
    const auto wobble = [&seed](int spread) {
        seed = seed * 1103515245u + 12345u;
        return static_cast<int>((seed >> 16) % static_cast<unsigned>(2 * spread + 1)) - spread;
    };
    for (;;) {
        frame += 30;
        const double capture = 8.3 + wobble(8) / 10.0;
        const double retouch = 11.9 + wobble(15) / 10.0;
        const double fps = 30.0 + wobble(3) / 10.0;
        char line[128];
        std::snprintf(line, sizeof line, "frame %llu | capture %.1f ms | retouch %.1f ms | %.1f fps\n", frame,
                      capture, retouch, fps);
        Out(line);
        Sleep(1000);
    }
}

// Returns false when the copy could not be started.
bool StartHoldingChild(const std::optional<std::wstring>& record) {
    std::wstring exe(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(nullptr, exe.data(), static_cast<DWORD>(exe.size()));
        if (length < exe.size()) {
            exe.resize(length);
            break;
        }
        exe.resize(exe.size() * 2);
    }
    SetEnvironmentVariableW(L"VQTEST_PRODUCER_MODE", L"hold");
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    std::wstring commandLine = L"\"" + exe + L"\"";
    PROCESS_INFORMATION child = {};
    if (!CreateProcessW(exe.c_str(), commandLine.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                        nullptr, &startup, &child)) {
        return false;
    }
    if (record) {
        AppendToFile(*record, "child=" + std::to_string(child.dwProcessId) + "\n", OPEN_ALWAYS);
    }
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
    return true;
}

} // namespace

int main() {
    const std::wstring mode = EnvironmentVariable(L"VQTEST_PRODUCER_MODE").value_or(L"demo");
    if (mode == L"hold") {
        // The grandchild: keeps the inherited pipe open after its parent is gone. No record, so the
        // parent's stays as it wrote it.
        Out("child holding\n");
        Sleep(120 * 1000);
        return 0;
    }

    const std::optional<std::wstring> record = EnvironmentVariable(L"VQTEST_PRODUCER_RECORD");
    if (record) {
        WriteRecord(*record);
    }

    unsigned long long count = 0;
    int exitCode = 0;
    if (mode == L"lines") {
        Out("alpha\nbeta\r\n\ngamma\rdelta\nlast-without-lf\r");
    } else if (mode == L"split") {
        Out("hel");
        Sleep(150);
        Out("lo wor");
        Sleep(150);
        Out("ld\nsecond");
        Sleep(150);
        Out(" line\n");
    } else if (mode == L"bytes") {
        std::string bytes("zero[\0]after\n", 13);
        bytes += "high[";
        for (int b = 0x80; b <= 0xFF; ++b) {
            bytes += static_cast<char>(b);
        }
        bytes += "]\n";
        Out(bytes);
    } else if (mode.starts_with(L"flood:") && ParseCount(std::wstring_view(mode).substr(6), count)) {
        WriteFlood(count);
    } else if (mode.starts_with(L"longline:") && ParseCount(std::wstring_view(mode).substr(9), count)) {
        LongLine(count);
    } else if (mode == L"file") {
        exitCode = FromFile();
    } else if (mode == L"stderr") {
        Out("to stdout 1\n");
        Write(GetStdHandle(STD_ERROR_HANDLE), "to stderr\n");
        Out("to stdout 2\n");
    } else if (mode == L"silent") {
    } else if (mode == L"crash") {
        // Ends like an access violation would, without Wine's debugger getting involved.
        TerminateProcess(GetCurrentProcess(), 0xC0000005);
    } else if (mode == L"grandchild") {
        if (!StartHoldingChild(record)) {
            Out("cannot start child, error " + std::to_string(GetLastError()) + "\n");
            return 3;
        }
        Out("parent done\n");
    } else if (mode == L"demo") {
        Demo();
    } else {
        Out("unknown mode " + Utf8(mode) + "\n");
        return 2;
    }

    const std::wstring then = EnvironmentVariable(L"VQTEST_PRODUCER_THEN").value_or(L"exit");
    if (then == L"wait") {
        Sleep(INFINITE);
    } else if (then != L"exit") {
        Out("unknown then " + Utf8(then) + "\n");
        return 2;
    }
    return exitCode;
}

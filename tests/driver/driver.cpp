#include "tests/driver/driver.h"

#include <fstream>
#include <sstream>

namespace driver {

// Long enough that only a hang reaches it.
constexpr UINT TIMEOUT_MS = 60000;

bool WaitFor(const std::function<bool()>& condition, DWORD timeoutMs) {
    for (ULONGLONG deadline = GetTickCount64() + timeoutMs; !condition(); Sleep(20)) {
        if (GetTickCount64() > deadline) {
            return false;
        }
    }
    return true;
}

LRESULT Send(HWND window, UINT message, WPARAM wParam, LPARAM lParam, bool* handled) {
    DWORD_PTR result = 0;
    bool answered =
        SendMessageTimeoutW(window, message, wParam, lParam, SMTO_NORMAL, TIMEOUT_MS, &result) != 0;
    if (handled != nullptr) {
        *handled = window != nullptr && answered;
    }
    return static_cast<LRESULT>(result);
}

std::wstring Text(HWND window) {
    std::wstring text(static_cast<size_t>(Send(window, WM_GETTEXTLENGTH)) + 1, L'\0');
    text.resize(
        static_cast<size_t>(Send(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()))));
    return text;
}

Launcher::~Launcher() {
    if (process.hProcess != nullptr) {
        TerminateProcess(process.hProcess, 1);
        WaitForSingleObject(process.hProcess, TIMEOUT_MS);
        CloseHandle(process.hProcess);
        CloseHandle(process.hThread);
    }
}

bool Launcher::Start(const fs::path& folder, bool limited, bool installed) {
    fs::path exe = folder / L"veloquin_launcher.exe";
    if (!installed) {
        fs::remove(exe); // rather than overwrite: MinGW's copy_file takes every file of a drive for the same
        fs::copy_file(BinFolder() / exe.filename(), exe);
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    std::wstring commandLine = L"\"" + exe.wstring() + L"\"";
    HANDLE token = nullptr, primary = nullptr;
    TOKEN_LINKED_TOKEN linked = {};
    DWORD size = 0;
    // An elevated token's linked one is that of a start without elevation; Wine hands it out too.
    if (limited && OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) &&
        GetTokenInformation(token, TokenLinkedToken, &linked, sizeof(linked), &size)) {
        DuplicateTokenEx(linked.LinkedToken, TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation, TokenPrimary,
                         &primary);
    }
    // Without a token the launcher gets this process's own.
    BOOL started = CreateProcessAsUserW(primary, exe.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0,
                                        nullptr, nullptr, &startup, &process);
    for (HANDLE handle : {token, linked.LinkedToken, primary}) {
        CloseHandle(handle);
    }
    if (!started) {
        return false;
    }
    // Shown only once its creation, and with it the first refresh's post, is over.
    return WaitFor([&] {
               while ((window = FindWindowExW(nullptr, window, L"VeloquinLauncherWindow", nullptr)) !=
                      nullptr) {
                   DWORD owner = 0;
                   GetWindowThreadProcessId(window, &owner);
                   if (owner == process.dwProcessId && IsWindowVisible(window)) {
                       return true;
                   }
               }
               return false;
           }) &&
           Settle();
}

// Posted messages are handled in order, so once a marker posted now reads back, everything posted
// before it has been handled too. The marker is the scroll width of a list that has no scroll bar.
bool Launcher::Settle() const {
    static WPARAM marker = 0;
    WPARAM extent = ++marker % 7 + 1;
    return PostMessageW(Item(Provider), CB_SETHORIZONTALEXTENT, extent, 0) && WaitFor([&] {
               return !IsWindow(window) || WPARAM(Ask(Provider, CB_GETHORIZONTALEXTENT)) == extent;
           }) &&
           IsWindow(window);
}

std::vector<std::wstring> Launcher::Lines(size_t last) const {
    std::wstring text = Text(Item(StatusLog));
    std::vector<std::wstring> lines;
    for (size_t start = 0, end; start < text.size(); start = end + 2) {
        end = std::min(text.find(L"\r\n", start), text.size());
        lines.push_back(text.substr(start, end - start));
    }
    lines.erase(lines.begin(), lines.end() - static_cast<long>(std::min(last, lines.size())));
    return lines;
}

std::vector<std::wstring> Launcher::Items(int id) const {
    std::vector<std::wstring> items(static_cast<size_t>(Ask(id, CB_GETCOUNT)));
    for (size_t i = 0; i < items.size(); ++i) {
        wchar_t item[512] = {};
        items[i] = Send(Item(id), CB_GETLBTEXT, i, reinterpret_cast<LPARAM>(item)) >= 0 ? item : L"(none)";
    }
    return items;
}

bool Launcher::Close(DWORD* exitCode) {
    PostMessageW(window, WM_CLOSE, 0, 0);
    return WaitForSingleObject(process.hProcess, TIMEOUT_MS) == WAIT_OBJECT_0 &&
           GetExitCodeProcess(process.hProcess, exitCode);
}

HWND Launcher::Focus() const {
    GUITHREADINFO thread = {sizeof(thread), 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, {}};
    return GetGUIThreadInfo(process.dwThreadId, &thread) ? thread.hwndFocus : nullptr;
}

bool Click(HWND control) {
    RECT rect = {};
    GetWindowRect(control, &rect);
    INPUT inputs[2] = {{INPUT_MOUSE, {}}, {INPUT_MOUSE, {}}};
    inputs[0].mi.dwFlags = MOUSEEVENTF_LEFTDOWN;
    inputs[1].mi.dwFlags = MOUSEEVENTF_LEFTUP;
    return SetCursorPos((rect.left + rect.right) / 2, (rect.top + rect.bottom) / 2) &&
           SendInput(2, inputs, sizeof(INPUT)) == 2;
}

bool Key(WORD key) {
    INPUT inputs[2] = {{INPUT_KEYBOARD, {}}, {INPUT_KEYBOARD, {}}};
    inputs[0].ki.wVk = inputs[1].ki.wVk = key;
    inputs[1].ki.dwFlags = KEYEVENTF_KEYUP;
    return SendInput(2, inputs, sizeof(INPUT)) == 2;
}

std::vector<DWORD> Pixels(HWND window) {
    RECT rect = {};
    GetWindowRect(window, &rect);
    int width = rect.right - rect.left, height = rect.bottom - rect.top;
    BITMAPINFO info = {{sizeof(BITMAPINFOHEADER), width, -height, 1, 32, BI_RGB, 0, 0, 0, 0, 0}, {}};
    DWORD* bits = nullptr;
    HDC screen = GetDC(nullptr), memory = CreateCompatibleDC(screen);
    HBITMAP bitmap =
        CreateDIBSection(memory, &info, DIB_RGB_COLORS, reinterpret_cast<void**>(&bits), nullptr, 0);
    HGDIOBJ old = SelectObject(memory, bitmap);
    BitBlt(memory, 0, 0, width, height, screen, rect.left, rect.top, SRCCOPY);
    std::vector<DWORD> pixels(bits, bits + (bits != nullptr ? width * height : 0));
    SelectObject(memory, old);
    DeleteObject(bitmap);
    DeleteDC(memory);
    ReleaseDC(nullptr, screen);
    return pixels;
}

bool Alive(DWORD pid) {
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, pid);
    DWORD waited = process != nullptr ? WaitForSingleObject(process, 0) : WAIT_FAILED;
    CloseHandle(process);
    return waited == WAIT_TIMEOUT;
}

std::wstring Variable(const wchar_t* name) {
    std::wstring value(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}

fs::path BinFolder() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return fs::path(path).parent_path();
}

fs::path Scenario(const std::wstring& name) {
    fs::path folder = BinFolder().parent_path() / L"scratch" / name;
    fs::remove_all(folder);
    fs::create_directories(folder);
    SetEnvironmentVariableW(L"VQTEST_DIR", folder.c_str());
    return folder;
}

std::string Read(const fs::path& file) {
    std::ostringstream bytes;
    bytes << std::ifstream(file, std::ios::binary).rdbuf();
    return bytes.str();
}

void Write(const fs::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
}

std::string Utf8(const std::wstring& text) {
    std::string bytes(text.size() * 3, '\0');
    bytes.resize(static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(),
                                                         static_cast<int>(text.size()), bytes.data(),
                                                         static_cast<int>(bytes.size()), nullptr, nullptr)));
    return bytes;
}

std::wstring Wide(const std::string& text) {
    std::wstring wide(text.size(), L'\0');
    wide.resize(static_cast<size_t>(MultiByteToWideChar(
        CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), static_cast<int>(wide.size()))));
    return wide;
}

std::vector<std::wstring> FileLines(const fs::path& file) {
    std::vector<std::wstring> lines;
    std::istringstream stream(Read(file));
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(Wide(line.substr(0, line.find_last_not_of('\r') + 1)));
    }
    return lines;
}

std::wstring Code(HRESULT hr) {
    wchar_t number[16] = {}, message[1024] = {};
    swprintf(number, 16, L"0x%08X", static_cast<unsigned>(hr));
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                  static_cast<DWORD>(hr), 0x400, message, 1024, nullptr);
    std::wstring text(message, length);
    text.erase(text.find_last_not_of(L"\r\n ") + 1);
    return text.empty() ? number : number + (L" (" + text + L")");
}

} // namespace driver

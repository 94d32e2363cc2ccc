#include "tests/driver/launcher_driver.h"

#include <psapi.h>

#include <algorithm>
#include <cwchar>

namespace driver {

namespace {

constexpr wchar_t WINDOW_CLASS[] = L"VeloquinLauncherWindow";
constexpr int STATUS_LOG_ID = 1010;
// For reads of the window's state, which the launcher answers at once unless it is stuck.
constexpr DWORD READ_TIMEOUT_MS = 10000;

bool SameTextIgnoringCase(const std::wstring& a, const std::wstring& b) {
    return CompareStringOrdinal(a.c_str(), static_cast<int>(a.size()), b.c_str(), static_cast<int>(b.size()),
                                TRUE) == CSTR_EQUAL;
}

bool IsSeparator(wchar_t c) {
    return c == L'\\' || c == L'/';
}

// "\\?\" form of an absolute path, so that the file APIs accept paths beyond MAX_PATH. That form is
// taken literally, so the path is made full and canonical first.
std::wstring LongPath(const std::wstring& path) {
    if (path.rfind(L"\\\\?\\", 0) == 0) {
        return path;
    }
    std::wstring full(path.size() + MAX_PATH, L'\0');
    for (;;) {
        const DWORD length =
            GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
        if (length == 0) {
            return path;
        }
        if (length < full.size()) {
            full.resize(length);
            break;
        }
        full.resize(length);
    }
    if (full.size() >= 3 && full[1] == L':' && full[2] == L'\\') {
        return L"\\\\?\\" + full;
    }
    if (full.rfind(L"\\\\", 0) == 0) {
        return L"\\\\?\\UNC\\" + full.substr(2);
    }
    return full;
}

DWORD Attributes(const std::wstring& path) {
    return GetFileAttributesW(LongPath(path).c_str());
}

bool CopyOver(const std::wstring& from, const std::wstring& to) {
    const std::wstring target = LongPath(to);
    const DWORD attributes = GetFileAttributesW(target.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY)) {
        SetFileAttributesW(target.c_str(), attributes & ~FILE_ATTRIBUTE_READONLY);
    }
    return CopyFileW(LongPath(from).c_str(), target.c_str(), FALSE) != FALSE;
}

std::wstring FolderOf(const std::wstring& path) {
    const size_t slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash);
}

std::wstring EnvironmentName(const std::wstring& entry) {
    // Entries such as "=C:=C:\work" keep the current folder of each drive; their name starts with '='.
    const size_t equals = entry.find(L'=', 1);
    return equals == std::wstring::npos ? entry : entry.substr(0, equals);
}

std::vector<wchar_t> EnvironmentBlock(const EnvironmentChanges& changes) {
    std::vector<std::wstring> entries;
    if (wchar_t* strings = GetEnvironmentStringsW()) {
        for (const wchar_t* p = strings; *p; p += wcslen(p) + 1) {
            entries.emplace_back(p);
        }
        FreeEnvironmentStringsW(strings);
    }
    for (const auto& [name, value] : changes) {
        std::erase_if(entries, [&](const std::wstring& entry) {
            return SameTextIgnoringCase(EnvironmentName(entry), name);
        });
        if (!value.empty()) {
            entries.push_back(name + L"=" + value);
        }
    }
    // The system expects the block sorted by name, without regard to case.
    std::stable_sort(entries.begin(), entries.end(), [](const std::wstring& a, const std::wstring& b) {
        const std::wstring left = EnvironmentName(a), right = EnvironmentName(b);
        return CompareStringOrdinal(left.c_str(), static_cast<int>(left.size()), right.c_str(),
                                    static_cast<int>(right.size()), TRUE) == CSTR_LESS_THAN;
    });
    std::vector<wchar_t> block;
    for (const std::wstring& entry : entries) {
        block.insert(block.end(), entry.begin(), entry.end());
        block.push_back(L'\0');
    }
    if (block.empty()) {
        block.push_back(L'\0');
    }
    block.push_back(L'\0');
    return block;
}

struct WindowSearch {
    DWORD pid;
    HWND found;
};

BOOL CALLBACK FindLauncherWindow(HWND window, LPARAM param) {
    auto* search = reinterpret_cast<WindowSearch*>(param);
    DWORD pid = 0;
    GetWindowThreadProcessId(window, &pid);
    if (pid != search->pid) {
        return TRUE;
    }
    wchar_t name[64] = {};
    const int length = GetClassNameW(window, name, 64);
    if (length > 0 && SameTextIgnoringCase(std::wstring(name, static_cast<size_t>(length)), WINDOW_CLASS)) {
        search->found = window;
        return FALSE;
    }
    return TRUE;
}

struct ControlSearch {
    int id;
    HWND found;
};

BOOL CALLBACK FindControl(HWND window, LPARAM param) {
    auto* search = reinterpret_cast<ControlSearch*>(param);
    // A combo box's own edit field carries an id of its own that could clash with ours.
    wchar_t parentClass[32] = {};
    GetClassNameW(GetParent(window), parentClass, 32);
    if (GetDlgCtrlID(window) == search->id && !SameTextIgnoringCase(parentClass, L"ComboBox")) {
        search->found = window;
        return FALSE;
    }
    return TRUE;
}

bool Send(HWND window, UINT message, WPARAM wParam, LPARAM lParam, DWORD timeoutMs, DWORD_PTR* result) {
    DWORD_PTR ignored = 0;
    return window && SendMessageTimeoutW(window, message, wParam, lParam, SMTO_NORMAL, timeoutMs,
                                         result ? result : &ignored) != 0;
}

bool Exited(const Launcher& launcher) {
    return !launcher.process || WaitForSingleObject(launcher.process, 0) == WAIT_OBJECT_0;
}

BOOL CALLBACK AddChild(HWND window, LPARAM param) {
    reinterpret_cast<std::vector<HWND>*>(param)->push_back(window);
    return TRUE;
}

// What the user can see of every control; Settle waits until it stops changing.
bool Snapshot(const Launcher& launcher, std::wstring* out) {
    *out = WindowText(launcher.window) + L"\n";
    std::vector<HWND> children;
    EnumChildWindows(launcher.window, AddChild, reinterpret_cast<LPARAM>(&children));
    for (HWND child : children) {
        DWORD_PTR check = 0, count = 0, selection = 0;
        if (!Send(child, BM_GETCHECK, 0, 0, READ_TIMEOUT_MS, &check)) {
            return false;
        }
        wchar_t className[32] = {};
        GetClassNameW(child, className, 32);
        if (SameTextIgnoringCase(className, L"ComboBox")) {
            Send(child, CB_GETCOUNT, 0, 0, READ_TIMEOUT_MS, &count);
            Send(child, CB_GETCURSEL, 0, 0, READ_TIMEOUT_MS, &selection);
        }
        *out += std::to_wstring(GetDlgCtrlID(child)) + L"|" + std::to_wstring(IsWindowEnabled(child)) + L"|" +
                std::to_wstring(IsWindowVisible(child)) + L"|" + std::to_wstring(check) + L"|" +
                std::to_wstring(count) + L"|" + std::to_wstring(selection) + L"|" + WindowText(child) + L"\n";
    }
    return true;
}

} // namespace

// ---- files and folders -------------------------------------------------------------------------

std::wstring BinFolder() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) {
            return std::wstring();
        }
        if (length < path.size()) {
            path.resize(length);
            break;
        }
        path.resize(path.size() * 2);
    }
    return FolderOf(path);
}

std::wstring JoinPath(const std::wstring& a, const std::wstring& b) {
    if (a.empty()) {
        return b;
    }
    size_t start = 0;
    while (start < b.size() && IsSeparator(b[start])) {
        ++start;
    }
    if (IsSeparator(a.back())) {
        return a + b.substr(start);
    }
    return a + L"\\" + b.substr(start);
}

std::wstring ScratchFolder(const std::wstring& name) {
    const std::wstring folder = JoinPath(JoinPath(FolderOf(BinFolder()), L"scratch"), name);
    DeleteTree(folder);
    CreateFolders(folder);
    return folder;
}

bool CreateFolders(const std::wstring& folder) {
    const std::wstring full = LongPath(folder);
    // Past the part that no folder can be made of: "\\?\C:\" or "\\?\UNC\server\share\".
    size_t position = 0;
    if (full.rfind(L"\\\\?\\UNC\\", 0) == 0) {
        position = full.find(L'\\', full.find(L'\\', 8) + 1);
    } else if (full.rfind(L"\\\\?\\", 0) == 0) {
        position = full.find(L'\\', 4);
    }
    while (position != std::wstring::npos && position < full.size()) {
        position = full.find(L'\\', position + 1);
        const std::wstring part = full.substr(0, position);
        if (!CreateDirectoryW(part.c_str(), nullptr)) {
            const DWORD attributes = GetFileAttributesW(part.c_str());
            if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
                return false;
            }
        }
    }
    return true;
}

bool DeleteTree(const std::wstring& path) {
    const std::wstring full = LongPath(path);
    const DWORD attributes = GetFileAttributesW(full.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND;
    }
    if (attributes & FILE_ATTRIBUTE_READONLY) {
        SetFileAttributesW(full.c_str(), attributes & ~FILE_ATTRIBUTE_READONLY);
    }
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        return DeleteFileW(full.c_str()) != FALSE;
    }
    bool ok = true;
    // A link to a folder goes, not what it leads to.
    if (!(attributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
        WIN32_FIND_DATAW entry;
        HANDLE search = FindFirstFileW(JoinPath(full, L"*").c_str(), &entry);
        if (search != INVALID_HANDLE_VALUE) {
            do {
                const std::wstring name = entry.cFileName;
                if (name != L"." && name != L"..") {
                    ok = DeleteTree(JoinPath(full, name)) && ok;
                }
            } while (FindNextFileW(search, &entry));
            FindClose(search);
        }
    }
    return RemoveDirectoryW(full.c_str()) != FALSE && ok;
}

bool WriteBytes(const std::wstring& path, const std::string& bytes) {
    HANDLE file = CreateFileW(LongPath(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    size_t done = 0;
    bool ok = true;
    while (ok && done < bytes.size()) {
        const DWORD chunk = static_cast<DWORD>(std::min<size_t>(bytes.size() - done, 1 << 20));
        DWORD written = 0;
        ok = WriteFile(file, bytes.data() + done, chunk, &written, nullptr) && written == chunk;
        done += written;
    }
    return CloseHandle(file) && ok;
}

bool WriteUtf8(const std::wstring& path, const std::wstring& text) {
    return WriteBytes(path, WideToUtf8(text));
}

std::string ReadBytes(const std::wstring& path) {
    // The launcher or a stand-in may still hold the file open for writing.
    HANDLE file = CreateFileW(LongPath(path).c_str(), GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return std::string();
    }
    std::string bytes;
    char buffer[65536];
    DWORD read = 0;
    while (ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0) {
        bytes.append(buffer, read);
    }
    CloseHandle(file);
    return bytes;
}

std::vector<std::wstring> ReadUtf8Lines(const std::wstring& path) {
    const std::wstring text = Utf8ToWide(ReadBytes(path));
    std::vector<std::wstring> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(L'\n', start);
        const size_t next = end == std::wstring::npos ? text.size() : end + 1;
        if (end == std::wstring::npos) {
            end = text.size();
        }
        if (end > start && text[end - 1] == L'\r') {
            --end;
        }
        lines.push_back(text.substr(start, end - start));
        start = next;
    }
    return lines;
}

std::wstring Utf8ToWide(const std::string& text) {
    if (text.empty()) {
        return std::wstring();
    }
    const int length =
        MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(static_cast<size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), length);
    return wide;
}

std::string WideToUtf8(const std::wstring& text) {
    if (text.empty()) {
        return std::string();
    }
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                           nullptr, nullptr);
    std::string narrow(static_cast<size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), narrow.data(), length,
                        nullptr, nullptr);
    return narrow;
}

bool FileExists(const std::wstring& path) {
    return Attributes(path) != INVALID_FILE_ATTRIBUTES;
}

std::wstring PrepareLauncherFolder(const std::wstring& folder, bool withMediaSource, bool withProducer) {
    const std::wstring bin = BinFolder();
    const std::wstring launcher = JoinPath(folder, LAUNCHER_EXE);
    if (!CreateFolders(folder) || !CopyOver(JoinPath(bin, LAUNCHER_EXE), launcher)) {
        return std::wstring();
    }
    // The launcher only checks that the media source is there; the camera service is what loads it.
    if (withMediaSource && !WriteBytes(JoinPath(folder, MEDIA_SOURCE_DLL), "media source stand-in\n")) {
        return std::wstring();
    }
    if (withProducer && !CopyOver(JoinPath(bin, L"standin_producer.exe"), JoinPath(folder, PRODUCER_EXE))) {
        return std::wstring();
    }
    return launcher;
}

bool InstallSystemStandIn(const std::wstring& standInFile, const std::wstring& systemName) {
    const std::wstring source = JoinPath(BinFolder(), standInFile);
    const std::wstring target = JoinPath(SystemFolder(), systemName);
    // A DLL this process has loaded can't be overwritten; one that is the stand-in already needn't be.
    const std::string bytes = ReadBytes(source);
    return (!bytes.empty() && ReadBytes(target) == bytes) || CopyOver(source, target);
}

bool RemoveSystemFile(const std::wstring& systemName) {
    return DeleteTree(JoinPath(SystemFolder(), systemName));
}

std::wstring SystemFolder() {
    wchar_t folder[MAX_PATH + 1] = {};
    const UINT length = GetSystemDirectoryW(folder, MAX_PATH + 1);
    return length > 0 && length <= MAX_PATH ? std::wstring(folder, length) : std::wstring();
}

// ---- registry ----------------------------------------------------------------------------------

bool RegistryKeyExists(HKEY root, const std::wstring& subkey) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, subkey.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
        return false;
    }
    RegCloseKey(key);
    return true;
}

bool ReadRegistryString(HKEY root, const std::wstring& subkey, const wchar_t* valueName, std::wstring* data,
                        DWORD* type) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, subkey.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
        return false;
    }
    DWORD valueType = REG_NONE, size = 0;
    LSTATUS status = RegQueryValueExW(key, valueName, nullptr, &valueType, nullptr, &size);
    std::vector<BYTE> bytes;
    // The value may grow between the two reads.
    while (status == ERROR_SUCCESS || status == ERROR_MORE_DATA) {
        bytes.resize(size + sizeof(wchar_t));
        size = static_cast<DWORD>(bytes.size());
        status = RegQueryValueExW(key, valueName, nullptr, &valueType, bytes.data(), &size);
        if (status == ERROR_SUCCESS) {
            break;
        }
    }
    RegCloseKey(key);
    if (status != ERROR_SUCCESS) {
        return false;
    }
    if (type) {
        *type = valueType;
    }
    if (valueType != REG_SZ && valueType != REG_EXPAND_SZ && valueType != REG_MULTI_SZ) {
        return false;
    }
    if (data) {
        std::wstring text(reinterpret_cast<const wchar_t*>(bytes.data()), size / sizeof(wchar_t));
        while (!text.empty() && text.back() == L'\0') {
            text.pop_back();
        }
        *data = text;
    }
    return true;
}

void DeleteRegistryTree(HKEY root, const std::wstring& subkey) {
    RegDeleteTreeW(root, subkey.c_str());
    RegDeleteKeyW(root, subkey.c_str());
}

// ---- the launcher ------------------------------------------------------------------------------

Launcher::~Launcher() {
    if (process) {
        if (WaitForSingleObject(process, 0) == WAIT_TIMEOUT) {
            TerminateProcess(process, 1);
            WaitForSingleObject(process, 5000);
        }
        CloseHandle(process);
    }
}

bool Start(Launcher& launcher, const std::wstring& exePath, const EnvironmentChanges& changes,
           DWORD timeoutMs) {
    if (launcher.process) {
        return false;
    }
    const ULONGLONG deadline = GetTickCount64() + timeoutMs;
    // CreateProcessW takes no program or working folder beyond MAX_PATH; Wine 8 even corrupts the
    // caller's heap on a long working folder, and after one start of a program whose full path is
    // that long (given in its 8.3 form) fails every further start.
    const std::wstring folder = FolderOf(exePath);
    if (exePath.size() >= MAX_PATH || folder.size() > MAX_PATH - 2) {
        return false;
    }
    std::vector<wchar_t> environment = EnvironmentBlock(changes);
    std::wstring commandLine = L"\"" + exePath + L"\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info = {};
    if (!CreateProcessW(exePath.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                        CREATE_UNICODE_ENVIRONMENT, environment.data(),
                        folder.empty() ? nullptr : folder.c_str(), &startup, &info)) {
        return false;
    }
    CloseHandle(info.hThread);
    launcher.process = info.hProcess;
    launcher.pid = info.dwProcessId;

    WindowSearch search = {launcher.pid, nullptr};
    for (;;) {
        EnumWindows(FindLauncherWindow, reinterpret_cast<LPARAM>(&search));
        if (search.found) {
            break;
        }
        if (Exited(launcher) || GetTickCount64() >= deadline) {
            return false;
        }
        Sleep(20);
    }
    launcher.window = search.found;
    const ULONGLONG now = GetTickCount64();
    const DWORD remaining = now < deadline ? static_cast<DWORD>(deadline - now) : 0;
    return WaitForInputIdle(launcher.process, remaining) == 0;
}

HWND Control(const Launcher& launcher, int id) {
    if (!launcher.window) {
        return nullptr;
    }
    if (HWND control = GetDlgItem(launcher.window, id)) {
        return control;
    }
    // Controls may sit inside a container window rather than directly on the main window.
    ControlSearch search = {id, nullptr};
    EnumChildWindows(launcher.window, FindControl, reinterpret_cast<LPARAM>(&search));
    return search.found;
}

bool Click(const Launcher& launcher, int id, DWORD timeoutMs) {
    return Send(Control(launcher, id), BM_CLICK, 0, 0, timeoutMs, nullptr);
}

bool SendCommand(const Launcher& launcher, WPARAM wParam, DWORD timeoutMs) {
    return Send(launcher.window, WM_COMMAND, wParam, 0, timeoutMs, nullptr);
}

// A sent message is handled before anything posted, so one round trip proves only that the launcher
// is responsive. Instead every control's visible state is read (each read a round trip) twice,
// 150 ms apart, until both readings agree: by then anything already queued has had its turn.
bool Settle(const Launcher& launcher, DWORD timeoutMs) {
    const ULONGLONG deadline = GetTickCount64() + timeoutMs;
    std::wstring before;
    if (!Snapshot(launcher, &before)) {
        return false;
    }
    while (GetTickCount64() < deadline) {
        Sleep(150);
        std::wstring after;
        if (!Snapshot(launcher, &after)) {
            return false;
        }
        if (after == before) {
            return true;
        }
        before = std::move(after);
    }
    return false;
}

std::wstring WindowText(HWND window) {
    DWORD_PTR length = 0;
    if (!Send(window, WM_GETTEXTLENGTH, 0, 0, READ_TIMEOUT_MS, &length)) {
        return std::wstring();
    }
    std::wstring text(length + 1, L'\0');
    DWORD_PTR copied = 0;
    if (!Send(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()), READ_TIMEOUT_MS,
              &copied)) {
        return std::wstring();
    }
    text.resize(std::min<size_t>(copied, length));
    return text;
}

std::wstring PaneText(const Launcher& launcher) {
    return WindowText(Control(launcher, STATUS_LOG_ID));
}

std::vector<std::wstring> PaneLines(const Launcher& launcher) {
    const std::wstring text = PaneText(launcher);
    std::vector<std::wstring> lines;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = text.find(L"\r\n", start);
        if (end == std::wstring::npos) {
            lines.push_back(text.substr(start));
            break;
        }
        lines.push_back(text.substr(start, end - start));
        start = end + 2;
    }
    return lines;
}

bool WaitForLine(const Launcher& launcher, const std::wstring& line, DWORD timeoutMs) {
    const ULONGLONG deadline = GetTickCount64() + timeoutMs;
    for (;;) {
        const bool gone = Exited(launcher);
        const std::vector<std::wstring> lines = PaneLines(launcher);
        if (std::find(lines.begin(), lines.end(), line) != lines.end()) {
            return true;
        }
        if (gone || GetTickCount64() >= deadline) {
            return false;
        }
        Sleep(50);
    }
}

std::vector<std::wstring> ComboItems(const Launcher& launcher, int id) {
    const HWND combo = Control(launcher, id);
    std::vector<std::wstring> items;
    DWORD_PTR count = 0;
    if (!Send(combo, CB_GETCOUNT, 0, 0, READ_TIMEOUT_MS, &count) || static_cast<LRESULT>(count) == CB_ERR) {
        return items;
    }
    for (WPARAM i = 0; i < count; ++i) {
        DWORD_PTR length = 0;
        if (!Send(combo, CB_GETLBTEXTLEN, i, 0, READ_TIMEOUT_MS, &length) ||
            static_cast<LRESULT>(length) == CB_ERR) {
            items.emplace_back();
            continue;
        }
        std::wstring text(length + 1, L'\0');
        DWORD_PTR copied = 0;
        if (!Send(combo, CB_GETLBTEXT, i, reinterpret_cast<LPARAM>(text.data()), READ_TIMEOUT_MS, &copied) ||
            static_cast<LRESULT>(copied) == CB_ERR) {
            copied = 0;
        }
        text.resize(std::min<size_t>(copied, length));
        items.push_back(text);
    }
    return items;
}

int ComboSelection(const Launcher& launcher, int id) {
    DWORD_PTR selection = 0;
    if (!Send(Control(launcher, id), CB_GETCURSEL, 0, 0, READ_TIMEOUT_MS, &selection)) {
        return COMBO_UNREADABLE;
    }
    return static_cast<int>(static_cast<LRESULT>(selection));
}

bool IsChecked(const Launcher& launcher, int id) {
    DWORD_PTR state = 0;
    return Send(Control(launcher, id), BM_GETCHECK, 0, 0, READ_TIMEOUT_MS, &state) && state == BST_CHECKED;
}

bool IsEnabled(const Launcher& launcher, int id) {
    const HWND control = Control(launcher, id);
    return control && IsWindowEnabled(control);
}

bool Close(Launcher& launcher, DWORD timeoutMs, DWORD* exitCode) {
    if (!launcher.process) {
        return false;
    }
    if (launcher.window) {
        PostMessageW(launcher.window, WM_CLOSE, 0, 0);
    }
    bool ended = WaitForSingleObject(launcher.process, timeoutMs) == WAIT_OBJECT_0;
    if (!ended) {
        TerminateProcess(launcher.process, 1);
        WaitForSingleObject(launcher.process, 5000);
    }
    if (exitCode) {
        *exitCode = 0;
        GetExitCodeProcess(launcher.process, exitCode);
    }
    return ended;
}

SIZE_T PrivateBytes(const Launcher& launcher) {
    PROCESS_MEMORY_COUNTERS_EX counters = {};
    counters.cb = sizeof counters;
    if (!launcher.process ||
        !GetProcessMemoryInfo(launcher.process, reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                              sizeof counters)) {
        return 0;
    }
    // Wine leaves PrivateUsage at 0; PagefileUsage, the commit charge, is the same figure on Windows.
    return counters.PrivateUsage ? counters.PrivateUsage : counters.PagefileUsage;
}

bool ProcessAlive(DWORD pid) {
    HANDLE process = OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
    if (!process) {
        // A process we may not open still runs.
        return GetLastError() == ERROR_ACCESS_DENIED;
    }
    const bool alive = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
    CloseHandle(process);
    return alive;
}

} // namespace driver

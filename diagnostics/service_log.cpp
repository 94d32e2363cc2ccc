#include "diagnostics/service_log.h"

#include <windows.h>
#include <knownfolders.h>
#include <shlobj.h>

#include <cwchar>
#include <vector>

#include "diagnostics/plain_files.h"
#include "launcher/paths.h"

namespace {

constexpr wchar_t OWN_FOLDER_NAME[] = L"Veloquin";
constexpr wchar_t LOG_FOLDER_NAME[] = L"Logs";
constexpr wchar_t LOG_FILE_NAME[] = L"vcam-service.log";

// Full control for SYSTEM and Administrators, read and execute for Users, passed on to everything
// below; protected, so that the program-data folder's "any user may create here" does not come in.
constexpr wchar_t OWN_FOLDER_RIGHTS[] = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FRFX;;;BU)";

} // namespace

static std::wstring TempFolder() {
    wchar_t buffer[MAX_PATH + 1] = {};
    DWORD length = GetTempPathW(MAX_PATH + 1, buffer);
    if (length == 0 || length > MAX_PATH) {
        return std::wstring();
    }
    std::wstring folder(buffer, length);
    DWORD attributes = GetFileAttributesW(folder.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        return std::wstring();
    }
    return folder;
}

std::wstring ProgramDataFolder() {
    PWSTR known = nullptr;
    if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_ProgramData, 0, nullptr, &known)) && known != nullptr) {
        std::wstring folder = known;
        CoTaskMemFree(known);
        return folder;
    }
    CoTaskMemFree(known);

    // A value longer than the first buffer is read again in full rather than cut.
    std::vector<wchar_t> buffer(MAX_PATH, L'\0');
    DWORD length = GetEnvironmentVariableW(L"ProgramData", buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length >= buffer.size()) {
        buffer.assign(length + 1, L'\0');
        length = GetEnvironmentVariableW(L"ProgramData", buffer.data(), static_cast<DWORD>(buffer.size()));
    }
    if (length != 0 && length < buffer.size()) {
        return std::wstring(buffer.data());
    }
    return TempFolder();
}

std::wstring ServiceLogPath() {
    std::wstring folder = ProgramDataFolder();
    if (folder.empty()) {
        return std::wstring();
    }
    return AppendPath(AppendPath(AppendPath(folder, OWN_FOLDER_NAME), LOG_FOLDER_NAME), LOG_FILE_NAME);
}

// UTF-8 keeps every character of a line; a lone surrogate becomes U+FFFD instead of ending it.
static std::string ToUtf8(const std::wstring& text) {
    if (text.empty()) {
        return std::string();
    }
    int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                   nullptr, nullptr);
    std::string bytes(static_cast<size_t>(size > 0 ? size : 0), '\0');
    if (size > 0) {
        WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(), size,
                            nullptr, nullptr);
    }
    return bytes;
}

void AppendServiceLog(const std::wstring& text) {
    std::wstring path = ServiceLogPath();
    if (path.empty()) {
        return;
    }
    std::wstring logFolder = ParentPath(path), ownFolder = ParentPath(logFolder);
    // Above the own folder everything belongs to the system; from it down each folder is checked, and
    // held, before anything is made in it.
    CreateFolderTree(ParentPath(ownFolder));
    // Made locked, or not at all: then the line is lost.
    CreateLockedFolder(ownFolder, OWN_FOLDER_RIGHTS);
    ScopedHandle own(OpenPlainFolder(ownFolder));
    if (own.Get() == nullptr || !HasTrustedOwner(own.Get())) {
        return;
    }
    CreateDirectoryW(LongPathForm(logFolder).c_str(), nullptr);
    ScopedHandle logs(OpenPlainFolder(logFolder));
    if (logs.Get() == nullptr || !IsEntryOf(logs.Get(), own.Get(), LOG_FOLDER_NAME)) {
        return;
    }
    ScopedHandle file(OpenPlainFileToAppend(path));
    if (file.Get() == nullptr || !IsEntryOf(file.Get(), logs.Get(), LOG_FILE_NAME)) {
        return;
    }
    SYSTEMTIME now = {};
    GetLocalTime(&now);
    wchar_t stamp[32];
    swprintf(stamp, 32, L"%04u-%02u-%02u %02u:%02u:%02u ", now.wYear, now.wMonth, now.wDay, now.wHour,
             now.wMinute, now.wSecond);

    // Line feeds inside the text end lines in the file the same way as the line's own end.
    std::wstring line = stamp;
    for (wchar_t c : text) {
        if (c == L'\n') {
            line += L'\r';
        }
        line += c;
    }
    line += L"\r\n";
    std::string bytes = ToUtf8(line);
    DWORD written = 0;
    // One write, so that the line lands whole at the end even with other writers appending.
    WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

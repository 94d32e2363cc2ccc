#include "diagnostics/service_log.h"

#include <windows.h>
#include <aclapi.h>
#include <knownfolders.h>
#include <sddl.h>
#include <shlobj.h>

#include <cwchar>
#include <vector>

#include "launcher/paths.h"

namespace {

constexpr wchar_t OWN_FOLDER_NAME[] = L"Veloquin";
constexpr wchar_t LOG_FOLDER_NAME[] = L"Logs";
constexpr wchar_t LOG_FILE_NAME[] = L"vcam-service.log";

// Full control for SYSTEM and Administrators, read and execute for Users, passed on to everything
// below; protected, so that the program-data folder's "any user may create here" does not come in.
constexpr wchar_t OWN_FOLDER_RIGHTS[] = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FRFX;;;BU)";

// SYSTEM, Administrators, TrustedInstaller.
constexpr const wchar_t* TRUSTED_OWNERS[] = {
    L"S-1-5-18",
    L"S-1-5-32-544",
    L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464",
};

// Closes the handle when it goes; null means none.
class ScopedHandle {
  public:
    explicit ScopedHandle(HANDLE handle) : handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
    ~ScopedHandle() {
        if (handle != nullptr) {
            CloseHandle(handle);
        }
    }
    ScopedHandle(const ScopedHandle&) = delete;
    ScopedHandle& operator=(const ScopedHandle&) = delete;
    HANDLE Get() const { return handle; }

  private:
    HANDLE handle;
};

bool IsPlain(DWORD attributes, bool folder) {
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_REPARSE_POINT) &&
           ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) == folder;
}

// Made locked at once: rights set after creation would leave a moment in which a user could plant a
// link inside. Without the rights nothing is made, and the line is lost.
void CreateOwnFolder(const std::wstring& folder) {
    PSECURITY_DESCRIPTOR rights = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(OWN_FOLDER_RIGHTS, SDDL_REVISION_1, &rights,
                                                              nullptr)) {
        return;
    }
    SECURITY_ATTRIBUTES security = {sizeof(security), rights, FALSE};
    CreateDirectoryW(LongPathForm(folder).c_str(), &security);
    LocalFree(rights);
}

// Null unless the path is a plain folder, read both by path and on a handle that doesn't follow a
// link. Held without share-delete, the folder can't be renamed or swapped for a link meanwhile.
HANDLE OpenPlainFolder(const std::wstring& folder) {
    std::wstring path = LongPathForm(folder);
    HANDLE handle = CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES | READ_CONTROL,
                                FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return nullptr;
    }
    BY_HANDLE_FILE_INFORMATION info = {};
    if (!GetFileInformationByHandle(handle, &info) || !IsPlain(info.dwFileAttributes, true) ||
        !IsPlain(GetFileAttributesW(path.c_str()), true)) {
        CloseHandle(handle);
        return nullptr;
    }
    return handle;
}

std::vector<BYTE> CurrentUser() {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) {
        return {};
    }
    DWORD size = 0;
    GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::vector<BYTE> user(size);
    if (size == 0 || !GetTokenInformation(token, TokenUser, user.data(), size, &size)) {
        user.clear();
    }
    CloseHandle(token);
    return user;
}

// A folder that a standard user made first is theirs to fill with links, whatever it holds now.
bool HasTrustedOwner(HANDLE folder) {
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetSecurityInfo(folder, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                        &descriptor) != ERROR_SUCCESS) {
        return false;
    }
    std::vector<BYTE> user = CurrentUser();
    bool trusted =
        IsTrustedOwner(owner, user.empty() ? nullptr : reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid);
    LocalFree(descriptor);
    return trusted;
}

// The path by which the system reached an open file or folder, after every link; empty if it won't say.
std::wstring FinalPath(HANDLE handle) {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        DWORD length = GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()), 0);
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(length);
    }
}

// Whether the open `child` is the entry `name` of the open `parent` itself, and not what a link led to.
bool IsEntryOf(HANDLE child, HANDLE parent, const wchar_t* name) {
    std::wstring parentPath = FinalPath(parent), childPath = FinalPath(child);
    return !parentPath.empty() &&
           CompareStringOrdinal(childPath.c_str(), -1, AppendPath(parentPath, name).c_str(), -1, TRUE) ==
               CSTR_EQUAL;
}

// The log itself, never what a link names: a plain file known by this one name. It is created only
// where no name stands yet, so that nothing is ever created through a link, even one leading nowhere.
HANDLE OpenLogFile(const std::wstring& path) {
    std::wstring target = LongPathForm(path);
    auto open = [&](DWORD disposition) {
        return CreateFileW(target.c_str(), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES,
                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, disposition,
                           FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    };
    HANDLE file = open(OPEN_EXISTING);
    if (file == INVALID_HANDLE_VALUE && GetLastError() == ERROR_FILE_NOT_FOUND) {
        file = open(CREATE_NEW);
        if (file == INVALID_HANDLE_VALUE && GetLastError() == ERROR_FILE_EXISTS) {
            file = open(OPEN_EXISTING); // another writer made it meanwhile
        }
    }
    if (file == INVALID_HANDLE_VALUE) {
        return nullptr;
    }
    BY_HANDLE_FILE_INFORMATION info = {};
    if (!GetFileInformationByHandle(file, &info) || !IsPlain(info.dwFileAttributes, false) ||
        info.nNumberOfLinks != 1) {
        CloseHandle(file);
        return nullptr;
    }
    return file;
}

} // namespace

bool IsTrustedOwner(PSID owner, PSID user) {
    if (owner == nullptr || !IsValidSid(owner)) {
        return false;
    }
    if (user != nullptr && EqualSid(owner, user)) {
        return true;
    }
    for (const wchar_t* text : TRUSTED_OWNERS) {
        PSID trusted = nullptr;
        if (ConvertStringSidToSidW(text, &trusted)) {
            bool same = EqualSid(owner, trusted) != FALSE;
            LocalFree(trusted);
            if (same) {
                return true;
            }
        }
    }
    return false;
}

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
    CreateOwnFolder(ownFolder);
    ScopedHandle own(OpenPlainFolder(ownFolder));
    if (own.Get() == nullptr || !HasTrustedOwner(own.Get())) {
        return;
    }
    CreateDirectoryW(LongPathForm(logFolder).c_str(), nullptr);
    ScopedHandle logs(OpenPlainFolder(logFolder));
    if (logs.Get() == nullptr || !IsEntryOf(logs.Get(), own.Get(), LOG_FOLDER_NAME)) {
        return;
    }
    ScopedHandle file(OpenLogFile(path));
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

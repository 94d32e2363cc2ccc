#include "diagnostics/plain_files.h"

#include <aclapi.h>
#include <sddl.h>

#include <vector>

#include "launcher/paths.h"

namespace {

// SYSTEM, Administrators, TrustedInstaller.
constexpr const wchar_t* TRUSTED_OWNERS[] = {
    L"S-1-5-18",
    L"S-1-5-32-544",
    L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464",
};

bool IsPlain(DWORD attributes, bool folder) {
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_REPARSE_POINT) &&
           ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) == folder;
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

} // namespace

// Rights set after creation would leave a moment in which a user could plant a link inside.
void CreateLockedFolder(const std::wstring& folder, const wchar_t* rights) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(rights, SDDL_REVISION_1, &descriptor,
                                                              nullptr)) {
        return;
    }
    SECURITY_ATTRIBUTES security = {sizeof(security), descriptor, FALSE};
    CreateDirectoryW(LongPathForm(folder).c_str(), &security);
    LocalFree(descriptor);
}

// Held without share-delete, the folder can't be renamed or swapped for a link meanwhile. Share modes
// bind only opens that ask for data access or deletion, so the handle asks to list and traverse.
HANDLE OpenPlainFolder(const std::wstring& folder) {
    std::wstring path = LongPathForm(folder);
    HANDLE handle =
        CreateFileW(path.c_str(), FILE_LIST_DIRECTORY | FILE_TRAVERSE | FILE_READ_ATTRIBUTES | READ_CONTROL,
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

bool IsEntryOf(HANDLE child, HANDLE parent, const wchar_t* name) {
    std::wstring parentPath = FinalPath(parent), childPath = FinalPath(child);
    return !parentPath.empty() &&
           CompareStringOrdinal(childPath.c_str(), -1, AppendPath(parentPath, name).c_str(), -1, TRUE) ==
               CSTR_EQUAL;
}

HANDLE OpenPlainFileToAppend(const std::wstring& path) {
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

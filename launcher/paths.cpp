#include "launcher/paths.h"

#include <vector>

#include "diagnostics/failure.h"

static bool IsSeparator(wchar_t c) {
    return c == L'\\' || c == L'/';
}

static bool IsDriveName(const std::wstring& path, size_t at) {
    return path.size() >= at + 2 && path[at + 1] == L':' &&
           ((path[at] >= L'A' && path[at] <= L'Z') || (path[at] >= L'a' && path[at] <= L'z'));
}

// "C:", "\\server", "\\?\C:" or "\\?\UNC\server": the part of a path that names its volume.
static size_t RootNameLength(const std::wstring& path) {
    if (IsDriveName(path, 0)) {
        return 2;
    }
    if (path.size() < 3 || !IsSeparator(path[0]) || !IsSeparator(path[1])) {
        return 0;
    }
    size_t serverStart = 2;
    if ((path[2] == L'?' || path[2] == L'.') && path.size() >= 4 && IsSeparator(path[3])) {
        if (IsDriveName(path, 4)) {
            return 6;
        }
        serverStart = path.compare(4, 4, L"UNC\\") == 0 ? 8 : 4;
    }
    size_t end = path.find_first_of(L"\\/", serverStart);
    return end == std::wstring::npos ? path.size() : end;
}

static size_t RootLength(const std::wstring& path) {
    size_t length = RootNameLength(path);
    while (length < path.size() && IsSeparator(path[length])) {
        ++length;
    }
    return length;
}

std::wstring LongPathForm(const std::wstring& path) {
    if (path.size() < MAX_PATH || path.compare(0, 4, L"\\\\?\\") == 0) {
        return path;
    }
    if (IsDriveName(path, 0) && path.size() > 2 && IsSeparator(path[2])) {
        return L"\\\\?\\" + path;
    }
    if (path.size() > 2 && IsSeparator(path[0]) && IsSeparator(path[1]) && path[2] != L'.') {
        return L"\\\\?\\UNC\\" + path.substr(2);
    }
    return path;
}

std::wstring GetModulePath() {
    std::vector<wchar_t> buffer(MAX_PATH, L'\0');
    for (;;) {
        DWORD capacity = static_cast<DWORD>(buffer.size());
        DWORD length = GetModuleFileNameW(nullptr, buffer.data(), capacity);
        if (length == 0) {
            return std::wstring();
        }
        if (length < capacity - 1) {
            return std::wstring(buffer.data(), length);
        }
        buffer.assign(buffer.size() * 2, L'\0');
    }
}

std::wstring GetLauncherFolder() {
    return ParentPath(GetModulePath());
}

std::wstring ParentPath(const std::wstring& path) {
    size_t root = RootLength(path);
    size_t end = path.size();
    while (end > root && !IsSeparator(path[end - 1])) {
        --end;
    }
    while (end > root && IsSeparator(path[end - 1])) {
        --end;
    }
    return path.substr(0, end);
}

std::wstring AppendPath(const std::wstring& left, const std::wstring& right) {
    if (left.empty()) {
        return right;
    }
    if (IsSeparator(left.back()) || (left.size() == 2 && IsDriveName(left, 0))) {
        return left + right;
    }
    return left + L'\\' + right;
}

HRESULT AbsolutePath(const std::wstring& path, std::wstring* absolute) {
    DWORD needed = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (needed == 0) {
        return LastErrorAsHresult(ERROR_INVALID_NAME);
    }
    std::vector<wchar_t> buffer(needed, L'\0');
    DWORD length = GetFullPathNameW(path.c_str(), needed, buffer.data(), nullptr);
    if (length == 0 || length >= needed) {
        return LastErrorAsHresult(ERROR_INVALID_NAME);
    }
    absolute->assign(buffer.data(), length);
    return S_OK;
}

static bool IsNotFoundError(DWORD error) {
    switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_INVALID_DRIVE:
    case ERROR_NOT_READY:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_DIRECTORY:
        return true;
    default:
        return false;
    }
}

HRESULT PathExists(const std::wstring& path, bool* exists) {
    *exists = false;
    std::wstring target = LongPathForm(path);
    DWORD attributes = GetFileAttributesW(target.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        DWORD error = GetLastError();
        return IsNotFoundError(error) ? S_OK : HresultFromWin32(error);
    }
    if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) {
        // A link counts only if what it points at is there.
        HANDLE file = CreateFileW(target.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
        if (file == INVALID_HANDLE_VALUE) {
            DWORD error = GetLastError();
            *exists = !IsNotFoundError(error);
            return S_OK;
        }
        CloseHandle(file);
    }
    *exists = true;
    return S_OK;
}

HRESULT CreateFolderTree(const std::wstring& folder) {
    std::vector<std::wstring> missing;
    std::wstring current = folder;
    for (;;) {
        DWORD attributes = GetFileAttributesW(LongPathForm(current).c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES) {
            if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
                return HresultFromWin32(ERROR_DIRECTORY);
            }
            break;
        }
        missing.push_back(current);
        std::wstring parent = ParentPath(current);
        if (parent.empty() || parent == current) {
            break;
        }
        current = parent;
    }
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
        if (!CreateDirectoryW(LongPathForm(*it).c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
            return LastErrorAsHresult(ERROR_CANNOT_MAKE);
        }
    }
    return S_OK;
}

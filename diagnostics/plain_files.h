// Opening files and folders beneath a folder that standard users may have prepared: never through a
// link, and held so that nothing can be swapped in meanwhile. For a program that runs elevated.
#pragma once

#include <windows.h>

#include <string>

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

// Makes the folder with `rights` (SDDL) from the first moment, or not at all.
void CreateLockedFolder(const std::wstring& folder, const wchar_t* rights);
// Null unless the path is a plain folder, read both by path and on a handle that doesn't follow a
// link. While the handle is open the folder can't be renamed or removed.
HANDLE OpenPlainFolder(const std::wstring& folder);
// SYSTEM, Administrators, TrustedInstaller or the user running this program: whom a standard user
// can't stand in for.
bool HasTrustedOwner(HANDLE folder);
bool IsTrustedOwner(PSID owner, PSID user);
// Whether the open `child` is the entry `name` of the open `parent` itself, and not what a link led to.
bool IsEntryOf(HANDLE child, HANDLE parent, const wchar_t* name);
// A plain file with no second name, opened for appending; created only where no name stands yet, so
// that nothing is ever created through a link, even one leading nowhere. Null otherwise.
HANDLE OpenPlainFileToAppend(const std::wstring& path);

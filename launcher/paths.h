// Wide filesystem paths: the launcher's own location and the few path rules the program relies on.
#pragma once

#include <windows.h>

#include <string>

inline constexpr wchar_t PRODUCER_FILE_NAME[] = L"veloquin_windows_retouch_vcam_producer.exe";
inline constexpr wchar_t MEDIA_SOURCE_FILE_NAME[] = L"veloquin_windows_vcam_source.dll";

// Full path of the running executable; empty when the system gives none.
std::wstring GetModulePath();
std::wstring GetLauncherFolder();

// Drops the last component and the separators before it, never cutting into the root.
std::wstring ParentPath(const std::wstring& path);
// One separator between the sides, unless the left is empty, ends in one or is a bare drive name.
std::wstring AppendPath(const std::wstring& left, const std::wstring& right);

// The system's full-path rule: a relative path is taken against the current folder.
HRESULT AbsolutePath(const std::wstring& path, std::wstring* absolute);
// Anything at the path counts, following links; a path that leads nowhere gives false and S_OK.
HRESULT PathExists(const std::wstring& path, bool* exists);
// The path with the "\\?\" prefix when it is too long for the plain file calls.
std::wstring LongPathForm(const std::wstring& path);
// Makes the folder and every missing folder above it; one that is there already is no failure.
HRESULT CreateFolderTree(const std::wstring& folder);

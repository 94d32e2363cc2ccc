// Drives the real, unmodified launcher executable from outside, as a user would: starts it in a
// folder of the test's making, finds its window, presses buttons by control id and reads what the
// window shows. Also the file, folder and registry chores that the end-to-end tests share.
#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

namespace driver {

using EnvironmentChanges = std::vector<std::pair<std::wstring, std::wstring>>;

// ---- files and folders -------------------------------------------------------------------------

// Folder of the running test executable: the build's bin folder, where the launcher and the
// stand-ins are built.
std::wstring BinFolder();
// a + "\" + b, with no doubled separator.
std::wstring JoinPath(const std::wstring& a, const std::wstring& b);
// A new, empty folder <build>\scratch\<name> (an older one of that name is deleted first, with all
// below it). Creates missing parents.
std::wstring ScratchFolder(const std::wstring& name);
bool CreateFolders(const std::wstring& folder);
bool DeleteTree(const std::wstring& path);
bool WriteBytes(const std::wstring& path, const std::string& bytes);
bool WriteUtf8(const std::wstring& path, const std::wstring& text);
// Whole file as bytes; empty when it can't be read.
std::string ReadBytes(const std::wstring& path);
// The file as UTF-8 text cut at LF, one trailing CR removed from each line, no empty last piece.
std::vector<std::wstring> ReadUtf8Lines(const std::wstring& path);
std::wstring Utf8ToWide(const std::string& text);
std::string WideToUtf8(const std::wstring& text);
// Anything at the path counts, a folder as well as a file.
bool FileExists(const std::wstring& path);

// The artefact names the launcher looks for beside itself.
inline constexpr wchar_t LAUNCHER_EXE[] = L"veloquin_launcher.exe";
inline constexpr wchar_t MEDIA_SOURCE_DLL[] = L"veloquin_windows_vcam_source.dll";
inline constexpr wchar_t PRODUCER_EXE[] = L"veloquin_windows_retouch_vcam_producer.exe";

// Copies the launcher into `folder` (created if missing) and, if asked, a media source stand-in file
// and the stand-in producer under their real names. Returns the launcher's full path.
std::wstring PrepareLauncherFolder(const std::wstring& folder, bool withMediaSource, bool withProducer);

// Copies a stand-in DLL from the bin folder over <system32>\<systemName> of the test prefix, or
// deletes <system32>\<systemName>.
bool InstallSystemStandIn(const std::wstring& standInFile, const std::wstring& systemName);
bool RemoveSystemFile(const std::wstring& systemName);
std::wstring SystemFolder();

// ---- registry ----------------------------------------------------------------------------------

bool RegistryKeyExists(HKEY root, const std::wstring& subkey);
// Reads a string value (null or empty name for the default value). False when missing.
bool ReadRegistryString(HKEY root, const std::wstring& subkey, const wchar_t* valueName, std::wstring* data,
                        DWORD* type);
void DeleteRegistryTree(HKEY root, const std::wstring& subkey);

// ---- the launcher ------------------------------------------------------------------------------

// One running launcher. Ends the process on destruction if a test left it running.
struct Launcher {
    HANDLE process = nullptr;
    DWORD pid = 0;
    HWND window = nullptr;
    Launcher() = default;
    Launcher(const Launcher&) = delete;
    Launcher& operator=(const Launcher&) = delete;
    ~Launcher();
};

// Starts the executable with the test's own environment plus `changes` (an empty value removes the
// variable), working folder = the executable's folder, and waits up to `timeoutMs` until its window
// of class "VeloquinLauncherWindow" exists and the process is idle. False on failure, and at once
// for a path of MAX_PATH characters or more, which CreateProcessW does not take.
bool Start(Launcher& launcher, const std::wstring& exePath, const EnvironmentChanges& changes = {},
           DWORD timeoutMs = 15000);

HWND Control(const Launcher& launcher, int id);
// Presses a button by control id (BM_CLICK), returning once the launcher has handled the press.
// False if the press was not handled within `timeoutMs`.
bool Click(const Launcher& launcher, int id, DWORD timeoutMs = 60000);
// Sends WM_COMMAND with this wParam to the main window and waits for it to be handled.
bool SendCommand(const Launcher& launcher, WPARAM wParam, DWORD timeoutMs = 60000);
// Lets every message that is already in the launcher's queue be handled.
bool Settle(const Launcher& launcher, DWORD timeoutMs = 10000);

std::wstring WindowText(HWND window);
std::wstring PaneText(const Launcher& launcher);
// The pane's text cut at CR LF; the empty piece after the last CR LF is dropped.
std::vector<std::wstring> PaneLines(const Launcher& launcher);
// Waits until a line equal to `line` stands in the pane; false after `timeoutMs`.
bool WaitForLine(const Launcher& launcher, const std::wstring& line, DWORD timeoutMs = 15000);

std::vector<std::wstring> ComboItems(const Launcher& launcher, int id);
// ComboSelection's answer when there is no such control or it gave no answer; -1 (CB_ERR) means
// nothing is selected.
inline constexpr int COMBO_UNREADABLE = -2;
int ComboSelection(const Launcher& launcher, int id);
bool IsChecked(const Launcher& launcher, int id);
bool IsEnabled(const Launcher& launcher, int id);

// Posts WM_CLOSE and waits for the process to end. False on timeout (the process is then killed).
bool Close(Launcher& launcher, DWORD timeoutMs = 15000, DWORD* exitCode = nullptr);
// Bytes of private memory the launcher holds now (0 when unknown).
SIZE_T PrivateBytes(const Launcher& launcher);

// Is the process with this id still running?
bool ProcessAlive(DWORD pid);

} // namespace driver

// Drives the real launcher from outside, as a user would: starts it, finds its window, presses buttons
// by control id and reads what the window shows. Also the few file chores the tests share.
#pragma once

#include <windows.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace driver {

namespace fs = std::filesystem;

// The launcher's control ids, stated apart from its own header so that a changed id shows.
constexpr int Register = 1001, Unregister = 1002, Provider = 1003, MaxWidth = 1004, Camera = 1005,
              D3dCapture = 1006, Refresh = 1007, StartProducer = 1008, StopProducer = 1009, StatusLog = 1010;

// Polls until the condition holds; false only after a deadline that a hang alone reaches.
bool WaitFor(const std::function<bool()>& condition, DWORD timeoutMs = 60000);
// SendMessageW that gives up on a hung window; `handled` tells which happened.
LRESULT Send(HWND window, UINT message, WPARAM wParam = 0, LPARAM lParam = 0, bool* handled = nullptr);
std::wstring Text(HWND window);

// One launcher process, ended on destruction if it still runs.
struct Launcher {
    PROCESS_INFORMATION process = {};
    HWND window = nullptr;
    Launcher() = default;
    Launcher(const Launcher&) = delete;
    Launcher& operator=(const Launcher&) = delete;
    ~Launcher();

    // Copies the launcher into the folder, unless it is `installed` there, and starts it, `limited` without
    // elevation, with this process's environment and current folder (not the launcher's); returns once its
    // window and first lines are in.
    bool Start(const fs::path& folder, bool limited = false, bool installed = false);
    HWND Item(int id) const { return GetDlgItem(window, id); }
    // These three return once the launcher has handled the message.
    bool Press(int id) const { return Handled(Item(id), BM_CLICK, 0); }
    bool Command(WPARAM wParam) const { return Handled(window, WM_COMMAND, wParam); }
    LRESULT Ask(int id, UINT message, WPARAM wParam = 0) const { return Send(Item(id), message, wParam); }
    // Returns once everything already in the launcher's queue has been handled; false if the window went.
    bool Settle() const;
    // The status pane cut at CR LF; its last lines only, if asked.
    std::vector<std::wstring> Lines(size_t last = SIZE_MAX) const;
    std::wstring Last() const { return Lines(1).at(0); }
    std::vector<std::wstring> Items(int id) const;
    bool Enabled(int id) const { return IsWindowEnabled(Item(id)) != FALSE; }
    // The buttons of a producer's two states; Refresh is enabled in both.
    bool Idle() const { return Enabled(StartProducer) && !Enabled(StopProducer) && Enabled(Refresh); }
    bool Running() const { return !Enabled(StartProducer) && Enabled(StopProducer) && Enabled(Refresh); }
    // The control that has the keyboard focus in the launcher's thread.
    HWND Focus() const;
    bool Close(DWORD* exitCode);

  private:
    static bool Handled(HWND to, UINT message, WPARAM wParam) {
        bool handled = false;
        Send(to, message, wParam, 0, &handled);
        return handled;
    }
};

// The real mouse and keyboard, whose input waits its turn in the queue of the window in front, as the
// user's own does; true once it is in.
bool Click(HWND control);
bool Key(WORD key);
// The window's pixels as they stand on the screen.
std::vector<DWORD> Pixels(HWND window);
bool Alive(DWORD pid);
// The variable's value in this process's environment; empty when it has none.
std::wstring Variable(const wchar_t* name);
fs::path BinFolder();
// An empty folder build\scratch\<name>, where the stand-ins read and write (VQTEST_DIR).
fs::path Scenario(const std::wstring& name);
std::string Read(const fs::path& file);
void Write(const fs::path& file, const std::string& bytes);
std::string Utf8(const std::wstring& text);
std::wstring Wide(const std::string& text);
// The file's UTF-8 lines without their line ends.
std::vector<std::wstring> FileLines(const fs::path& file);
// "0x" and eight hex digits, then the system's text in brackets if it has one.
std::wstring Code(HRESULT hr);

} // namespace driver

#include "launcher/status_pane.h"

#include <windows.h>

#include <utility>

#include "launcher/control_ids.h"
#include "launcher/launcher_state.h"

void AppendStatusLine(const std::wstring& text) {
    HWND pane = g_launcher.statusPane;
    if (pane == nullptr) {
        return;
    }
    std::wstring line = text + L"\r\n";
    int length = GetWindowTextLengthW(pane);
    SendMessageW(pane, EM_SETSEL, static_cast<WPARAM>(length), static_cast<LPARAM>(length));
    SendMessageW(pane, EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(line.c_str()));
}

void PostStatusLine(const std::wstring& text) {
    PostStatusLine(std::wstring(text));
}

void PostStatusLine(std::wstring&& text) {
    std::wstring* line = new std::wstring(std::move(text));
    if (!PostMessageW(g_launcher.mainWindow, WM_APP_STATUS_LINE, 0, reinterpret_cast<LPARAM>(line))) {
        delete line;
    }
}

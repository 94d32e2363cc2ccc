#include "launcher/control_panel.h"

#include <windows.h>

#include <algorithm>
#include <initializer_list>

#include "launcher/control_ids.h"
#include "launcher/launcher_state.h"

namespace {

constexpr DWORD GROUP_STYLE = WS_CHILD | WS_VISIBLE | BS_GROUPBOX;
constexpr DWORD PUSH_STYLE = WS_CHILD | WS_VISIBLE | BS_PUSHBUTTON;
constexpr DWORD LABEL_STYLE = WS_CHILD | WS_VISIBLE | SS_LEFT;
constexpr DWORD COMBO_STYLE = WS_CHILD | WS_VISIBLE | WS_VSCROLL | CBS_DROPDOWNLIST;
constexpr DWORD CHECK_STYLE = WS_CHILD | WS_VISIBLE | BS_AUTOCHECKBOX;
constexpr DWORD LOG_STYLE =
    WS_CHILD | WS_VISIBLE | WS_BORDER | WS_VSCROLL | ES_READONLY | ES_AUTOVSCROLL | ES_MULTILINE;

struct ControlLayout {
    const wchar_t* className;
    const wchar_t* text;
    DWORD style;
    int x, y, width, height;
    int id;
    HWND LauncherState::*field;
};

// Creation order; the combo heights include their drop-down lists.
const ControlLayout CONTROLS[] = {
    {L"BUTTON", L"Virtual camera", GROUP_STYLE, 10, 12, 560, 60, -1, nullptr},
    {L"BUTTON", L"Register vcam", PUSH_STYLE, 24, 34, 160, 28, IDC_REGISTER, nullptr},
    {L"BUTTON", L"Unregister vcam", PUSH_STYLE, 200, 34, 160, 28, IDC_UNREGISTER, nullptr},
    {L"BUTTON", L"Producer settings", GROUP_STYLE, 10, 90, 560, 110, -1, nullptr},
    {L"STATIC", L"Provider:", LABEL_STYLE, 24, 116, 70, 20, -1, nullptr},
    {L"COMBOBOX", L"", COMBO_STYLE, 100, 112, 180, 200, IDC_PROVIDER, &LauncherState::providerCombo},
    {L"STATIC", L"Max width:", LABEL_STYLE, 300, 116, 70, 20, -1, nullptr},
    {L"COMBOBOX", L"", COMBO_STYLE, 380, 112, 120, 200, IDC_MAX_WIDTH, &LauncherState::widthCombo},
    {L"STATIC", L"Camera:", LABEL_STYLE, 24, 156, 70, 20, -1, nullptr},
    {L"COMBOBOX", L"", COMBO_STYLE, 100, 152, 340, 240, IDC_CAMERA, &LauncherState::cameraCombo},
    {L"BUTTON", L"Refresh", PUSH_STYLE, 450, 151, 100, 26, IDC_REFRESH, nullptr},
    {L"BUTTON", L"D3D capture", CHECK_STYLE, 100, 180, 120, 20, IDC_D3D_CAPTURE, &LauncherState::d3dCheck},
    {L"BUTTON", L"Producer", GROUP_STYLE, 10, 214, 560, 60, -1, nullptr},
    {L"BUTTON", L"Start producer", PUSH_STYLE, 24, 236, 160, 28, IDC_START_PRODUCER, nullptr},
    {L"BUTTON", L"Stop producer", PUSH_STYLE, 200, 236, 160, 28, IDC_STOP_PRODUCER, nullptr},
    {L"EDIT", L"", LOG_STYLE, 10, 284, 560, 230, IDC_STATUS_LOG, &LauncherState::statusPane},
};

// Lines break at blanks alone, as the control's classic default does. Its default under Wine analyses the
// whole text afresh for every update that wraps a line, which in a full pane cost more than the update.
// A CR LF never breaks in two, and is never part of a word.
int CALLBACK BreakAtBlanks(LPWSTR text, int at, int count, int action) {
    auto gap = [&](int i) {
        return i < 0 || i >= count || text[i] == L' ' || text[i] == L'\t' || text[i] == L'\r' ||
               text[i] == L'\n';
    };
    auto starts = [&](int i) { return i <= 0 || (gap(i - 1) && !gap(i)); };
    if (action == WB_ISDELIMITER) {
        return gap(at) && at < count;
    }
    if (action == WB_LEFT) {
        while (at > 0 && !starts(at)) {
            --at;
        }
        return at;
    }
    do {
        ++at;
    } while (at < count && !starts(at));
    return std::min(at, count);
}

void AddItems(HWND combo, std::initializer_list<const wchar_t*> items, int selected) {
    for (const wchar_t* item : items) {
        SendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(item));
    }
    SendMessageW(combo, CB_SETCURSEL, static_cast<WPARAM>(selected), 0);
}

} // namespace

void CreateControls() {
    g_launcher.font =
        CreateFontW(-14, 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, DEFAULT_CHARSET, OUT_DEFAULT_PRECIS,
                    CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY, DEFAULT_PITCH | FF_DONTCARE, L"Segoe UI");
    for (const ControlLayout& layout : CONTROLS) {
        HWND control = CreateWindowExW(0, layout.className, layout.text, layout.style, layout.x, layout.y,
                                       layout.width, layout.height, g_launcher.mainWindow,
                                       reinterpret_cast<HMENU>(static_cast<INT_PTR>(layout.id)),
                                       GetModuleHandleW(nullptr), nullptr);
        if (control != nullptr && g_launcher.font != nullptr) {
            SendMessageW(control, WM_SETFONT, reinterpret_cast<WPARAM>(g_launcher.font), TRUE);
        }
        if (layout.field != nullptr) {
            g_launcher.*layout.field = control;
        }
        if (layout.id == IDC_PROVIDER) {
            AddItems(control, {L"GPU (DirectML)", L"CPU"}, 0);
        } else if (layout.id == IDC_MAX_WIDTH) {
            AddItems(control, {L"640", L"960", L"1280", L"1920"}, 2);
        } else if (layout.id == IDC_D3D_CAPTURE) {
            SendMessageW(control, BM_SETCHECK, BST_CHECKED, 0);
        } else if (layout.id == IDC_STATUS_LOG) {
            // The pane keeps its own capacity; the control's default would refuse text at about 32K.
            SendMessageW(control, EM_SETLIMITTEXT, 0, 0);
            SendMessageW(control, EM_SETWORDBREAKPROC, 0, reinterpret_cast<LPARAM>(BreakAtBlanks));
        }
    }
    EnableWindow(GetDlgItem(g_launcher.mainWindow, IDC_START_PRODUCER), TRUE);
    EnableWindow(GetDlgItem(g_launcher.mainWindow, IDC_STOP_PRODUCER), FALSE);
}

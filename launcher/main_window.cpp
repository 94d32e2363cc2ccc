#include "launcher/main_window.h"

#include <memory>
#include <utility>

#include "cameras/camera_picker.h"
#include "launcher/control_ids.h"
#include "launcher/control_panel.h"
#include "launcher/launcher_state.h"
#include "launcher/status_pane.h"
#include "producer/lifecycle.h"
#include "registration/commands.h"

void SetProducerRunning(bool running) {
    HWND start = GetDlgItem(g_launcher.mainWindow, IDC_START_PRODUCER),
         stop = GetDlgItem(g_launcher.mainWindow, IDC_STOP_PRODUCER);
    HWND enabled = running ? stop : start, disabled = running ? start : stop;
    EnableWindow(enabled, TRUE);
    // Disabling the control that has the focus leaves it nowhere, and no key reaches a control. It goes
    // to the button that undoes what this one did, so that Space stops what Space started; in the
    // background the kept focus moves the same way.
    if (GetFocus() == disabled) {
        SetFocus(enabled);
    }
    if (g_launcher.focusBack == disabled) {
        g_launcher.focusBack = enabled;
    }
    EnableWindow(disabled, FALSE);
}

bool IsElevated() {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) {
        return false;
    }
    TOKEN_ELEVATION elevation = {};
    DWORD length = 0;
    BOOL read = GetTokenInformation(token, TokenElevation, &elevation, sizeof(elevation), &length);
    CloseHandle(token);
    return read && elevation.TokenIsElevated != 0;
}

static void OnCreate(HWND window) {
    g_launcher.mainWindow = window;
    CreateControls();
    RefreshCameraList();
    AppendStatusLine(L"Veloquin launcher ready. Folder: " + g_launcher.launcherFolder);
    if (!IsElevated()) {
        AppendStatusLine(L"WARNING: not running elevated \u2014 register/unregister will fail.");
    }
}

static void OnCommand(WORD id) {
    void (*command)() = nullptr;
    switch (id) {
    case IDC_REGISTER:
        command = OnRegisterCommand;
        break;
    case IDC_UNREGISTER:
        command = OnUnregisterCommand;
        break;
    case IDC_REFRESH:
        command = RefreshCameraList;
        break;
    case IDC_START_PRODUCER:
        command = OnStartProducerCommand;
        break;
    case IDC_STOP_PRODUCER:
        command = OnStopProducerCommand;
        break;
    default:
        return;
    }
    // What the user just asked for shows, even where they had scrolled back; from there the pane follows,
    // as a terminal does once the user types.
    ShowStatusPaneEnd();
    command();
}

static void OnStatusLine(LPARAM lParam) {
    std::unique_ptr<std::wstring> line(reinterpret_cast<std::wstring*>(lParam));
    if (line) {
        AppendStatusLine(*line);
    }
}

// The default procedure would give the focus to the window itself, where no keystroke reaches a control
// and a selection in the pane goes grey; so the window keeps the child that had it, as a dialog does, and
// gives it back once: from then on the focus itself counts. A kept child that can no longer take the
// focus makes way for the pane, which is never disabled. True when the focus has been given.
static bool OnActivate(HWND window, WPARAM wParam) {
    if (LOWORD(wParam) == WA_INACTIVE) {
        HWND focus = GetFocus();
        if (focus != nullptr) {
            g_launcher.focusBack = IsChild(window, focus) ? focus : nullptr;
        }
        return false;
    }
    if (HIWORD(wParam) != 0) {
        return false; // minimised: the restore gives it
    }
    HWND kept = std::exchange(g_launcher.focusBack, nullptr);
    if (kept == nullptr || !IsWindow(kept) || !IsWindowVisible(kept) || !IsWindowEnabled(kept)) {
        kept = g_launcher.statusPane;
    }
    if (kept == nullptr) {
        return false;
    }
    SetFocus(kept);
    return true;
}

static void OnDestroy() {
    if (g_launcher.font != nullptr) {
        DeleteObject(g_launcher.font);
    }
    PostQuitMessage(0);
}

LRESULT CALLBACK MainWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_CREATE:
        OnCreate(window);
        return 0;
    case WM_COMMAND:
        OnCommand(LOWORD(wParam));
        return 0;
    case WM_APP_STATUS_LINE:
        OnStatusLine(lParam);
        return 0;
    case WM_APP_PRODUCER_OUTPUT:
        OnProducerWake();
        return 0;
    case WM_TIMER:
        if (wParam == OUTPUT_TIMER_ID) {
            OnOutputTick();
        }
        return 0;
    case WM_ACTIVATE:
        if (OnActivate(window, wParam)) {
            return 0;
        }
        return DefWindowProcW(window, message, wParam, lParam);
    case WM_APP_PRODUCER_EXITED:
        OnProducerExited();
        return 0;
    case WM_CLOSE:
        EndProducerBeforeClose();
        DestroyWindow(window);
        return 0;
    case WM_DESTROY:
        OnDestroy();
        return 0;
    default:
        return DefWindowProcW(window, message, wParam, lParam);
    }
}

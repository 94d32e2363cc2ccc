// Control ids and the private messages that background work posts to the main window.
#pragma once

#include <windows.h>

#define IDC_REGISTER 1001
#define IDC_UNREGISTER 1002
#define IDC_PROVIDER 1003
#define IDC_MAX_WIDTH 1004
#define IDC_CAMERA 1005
#define IDC_D3D_CAPTURE 1006
#define IDC_REFRESH 1007
#define IDC_START_PRODUCER 1008
#define IDC_STOP_PRODUCER 1009
#define IDC_STATUS_LOG 1010

// lParam: a heap std::wstring that the receiver frees; null is ignored.
#define WM_APP_STATUS_LINE (WM_APP + 1)
// Posted by the output reader as its last act.
#define WM_APP_PRODUCER_EXITED (WM_APP + 2)
// Posted by the output reader when output waits and no such wake is pending.
#define WM_APP_PRODUCER_OUTPUT (WM_APP + 3)

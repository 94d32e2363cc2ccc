#include <gtest/gtest.h>

#include <thread>

#include "launcher/control_ids.h"
#include "launcher/launcher_state.h"
#include "launcher/main_window.h"
#include "launcher/status_pane.h"
#include "tests/driver/launcher_driver.h"

namespace {

void DrainQueue() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        DispatchMessageW(&message);
    }
}

std::wstring PaneText() {
    int length = GetWindowTextLengthW(g_launcher.statusPane);
    std::wstring text(static_cast<size_t>(length) + 1, L'\0');
    GetWindowTextW(g_launcher.statusPane, text.data(), length + 1);
    text.resize(static_cast<size_t>(length));
    return text;
}

} // namespace

TEST(StatusPane, PostedLinesArriveInOrderBelowDirectOnes) {
    AppendStatusLine(L"before the pane exists");

    driver::InstallSystemStandIn(L"standin_mf.dll", L"mf.dll");
    g_launcher.launcherFolder = L"C:\\launcher";
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = MainWindowProc;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = L"StatusPaneTestWindow";
    ASSERT_NE(RegisterClassW(&windowClass), 0);
    HWND window = CreateWindowExW(0, L"StatusPaneTestWindow", L"", WS_OVERLAPPEDWINDOW, 0, 0, 600, 600,
                                  nullptr, nullptr, windowClass.hInstance, nullptr);
    ASSERT_NE(window, nullptr);
    ASSERT_NE(g_launcher.statusPane, nullptr);
    ASSERT_NE(g_launcher.font, nullptr);
    EXPECT_EQ(reinterpret_cast<HFONT>(SendMessageW(g_launcher.statusPane, WM_GETFONT, 0, 0)),
              g_launcher.font);
    EXPECT_EQ(PaneText(), L"Veloquin launcher ready. Folder: C:\\launcher\r\n")
        << "the count line waits in the queue; the early line was lost";

    std::thread poster([] {
        for (int i = 0; i < 200; ++i) {
            PostStatusLine(L"line " + std::to_wstring(i));
        }
        PostMessageW(g_launcher.mainWindow, WM_APP_STATUS_LINE, 0, 0);
        PostStatusLine(L"");
        PostStatusLine(L"last");
    });
    poster.join();
    AppendStatusLine(L"direct");
    DrainQueue();

    std::wstring expected =
        L"Veloquin launcher ready. Folder: C:\\launcher\r\ndirect\r\nFound 0 camera device(s).\r\n";
    for (int i = 0; i < 200; ++i) {
        expected += L"line " + std::to_wstring(i) + L"\r\n";
    }
    expected += L"\r\nlast\r\n";
    EXPECT_EQ(PaneText(), expected);

    SendMessageW(window, WM_CLOSE, 0, 0);
    EXPECT_FALSE(IsWindow(window));
    MSG quit;
    EXPECT_TRUE(PeekMessageW(&quit, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE)) << "closing ends the loop";
    EXPECT_EQ(quit.wParam, 0u);
    g_launcher.mainWindow = g_launcher.statusPane = g_launcher.cameraCombo = nullptr;
    g_launcher.providerCombo = g_launcher.widthCombo = g_launcher.d3dCheck = nullptr;
    g_launcher.launcherFolder.clear();
}

#include "tests/e2e/e2e_support.h"

using namespace e2e;

namespace {

struct ExpectedControl {
    const wchar_t* className;
    const wchar_t* text;
    DWORD style;
    int x, y, width, height;
    int id;
};

// Window styles as they read back: WS_CHILD | WS_VISIBLE plus the control's own.
const ExpectedControl CONTROLS[] = {
    {L"Button", L"Virtual camera", 0x50000007, 10, 12, 560, 60, -1},
    {L"Button", L"Register vcam", 0x50000000, 24, 34, 160, 28, IDC_REGISTER},
    {L"Button", L"Unregister vcam", 0x50000000, 200, 34, 160, 28, IDC_UNREGISTER},
    {L"Button", L"Producer settings", 0x50000007, 10, 90, 560, 110, -1},
    {L"Static", L"Provider:", 0x50000000, 24, 116, 70, 20, -1},
    {L"ComboBox", L"GPU (DirectML)", 0x50200003, 100, 112, 180, 200, IDC_PROVIDER},
    {L"Static", L"Max width:", 0x50000000, 300, 116, 70, 20, -1},
    {L"ComboBox", L"1280", 0x50200003, 380, 112, 120, 200, IDC_MAX_WIDTH},
    {L"Static", L"Camera:", 0x50000000, 24, 156, 70, 20, -1},
    {L"ComboBox", L"", 0x50200003, 100, 152, 340, 240, IDC_CAMERA},
    {L"Button", L"Refresh", 0x50000000, 450, 151, 100, 26, IDC_REFRESH},
    {L"Button", L"D3D capture", 0x50000003, 100, 180, 120, 20, IDC_D3D_CAPTURE},
    {L"Button", L"Producer", 0x50000007, 10, 214, 560, 60, -1},
    {L"Button", L"Start producer", 0x50000000, 24, 236, 160, 28, IDC_START_PRODUCER},
    {L"Button", L"Stop producer", 0x58000000, 200, 236, 160, 28, IDC_STOP_PRODUCER},
    {L"Edit", L"", 0x50A00844, 10, 284, 560, 230, IDC_STATUS_LOG},
};

std::wstring ClassOf(HWND window) {
    wchar_t name[64] = {};
    GetClassNameW(window, name, 64);
    return name;
}

RECT ClientRectOf(HWND child, HWND parent) {
    RECT rect = {};
    GetWindowRect(child, &rect);
    MapWindowPoints(nullptr, parent, reinterpret_cast<POINT*>(&rect), 2);
    return rect;
}

} // namespace

TEST(Shell, WindowAndControlsStandAsLaidOut) {
    Scenario scenario(L"shell-layout");
    driver::Launcher launcher;
    scenario.Start(launcher);
    HWND window = launcher.window;

    EXPECT_EQ(ClassOf(window), L"VeloquinLauncherWindow");
    EXPECT_EQ(driver::WindowText(window), L"Veloquin Launcher");
    RECT client = {};
    GetClientRect(window, &client);
    EXPECT_EQ(client.right - client.left, 596);
    EXPECT_EQ(client.bottom - client.top, 600);
    LONG style = GetWindowLongW(window, GWL_STYLE);
    const LONG wanted = WS_VISIBLE | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX;
    EXPECT_EQ(style & wanted, wanted);
    EXPECT_EQ(style & (WS_THICKFRAME | WS_MAXIMIZEBOX), 0) << "a window of fixed size";

    size_t index = 0;
    for (HWND child = GetWindow(window, GW_CHILD); child != nullptr;
         child = GetWindow(child, GW_HWNDNEXT), ++index) {
        ASSERT_LT(index, std::size(CONTROLS)) << "more children than controls";
        const ExpectedControl& expected = CONTROLS[index];
        SCOPED_TRACE(driver::WideToUtf8(expected.text) + " #" + std::to_string(index + 1));
        EXPECT_EQ(_wcsicmp(ClassOf(child).c_str(), expected.className), 0)
            << driver::WideToUtf8(ClassOf(child));
        if (expected.id != IDC_STATUS_LOG) {
            EXPECT_EQ(driver::WindowText(child), expected.text);
        }
        EXPECT_EQ(GetDlgCtrlID(child), expected.id);
        DWORD childStyle = static_cast<DWORD>(GetWindowLongW(child, GWL_STYLE));
        // Wine draws the edit frame itself and hands a combo box's scroll bar to its list.
        bool combo = _wcsicmp(expected.className, L"ComboBox") == 0;
        DWORD mask = expected.id == IDC_STATUS_LOG ? ~static_cast<DWORD>(WS_BORDER)
                     : combo                       ? ~static_cast<DWORD>(WS_VSCROLL)
                                                   : ~0u;
        EXPECT_EQ(childStyle & mask, expected.style & mask) << std::hex << childStyle;
        EXPECT_EQ(childStyle & WS_TABSTOP, 0u);
        EXPECT_EQ(GetWindowLongW(child, GWL_EXSTYLE) & ~WS_EX_NOPARENTNOTIFY & ~WS_EX_CLIENTEDGE, 0);
        RECT rect = ClientRectOf(child, window);
        EXPECT_EQ(rect.left, expected.x);
        EXPECT_EQ(rect.top, expected.y);
        EXPECT_EQ(rect.right - rect.left, expected.width);
        if (combo) {
            // The created height includes the drop-down list. Windows reports it as the dropped
            // rectangle's height; Wine leaves the closed field's height out of that rectangle.
            RECT dropped = {};
            SendMessageW(child, CB_GETDROPPEDCONTROLRECT, 0, reinterpret_cast<LPARAM>(&dropped));
            LONG droppedHeight = dropped.bottom - dropped.top;
            LONG fieldHeight = rect.bottom - rect.top;
            EXPECT_TRUE(droppedHeight == expected.height || droppedHeight + fieldHeight == expected.height)
                << "dropped " << droppedHeight << ", field " << fieldHeight;
        } else {
            EXPECT_EQ(rect.bottom - rect.top, expected.height);
        }
    }
    EXPECT_EQ(index, std::size(CONTROLS));

    EXPECT_EQ(driver::ComboItems(launcher, IDC_PROVIDER),
              (std::vector<std::wstring>{L"GPU (DirectML)", L"CPU"}));
    EXPECT_EQ(driver::ComboSelection(launcher, IDC_PROVIDER), 0);
    EXPECT_EQ(driver::ComboItems(launcher, IDC_MAX_WIDTH),
              (std::vector<std::wstring>{L"640", L"960", L"1280", L"1920"}));
    EXPECT_EQ(driver::ComboSelection(launcher, IDC_MAX_WIDTH), 2);
    EXPECT_TRUE(driver::IsChecked(launcher, IDC_D3D_CAPTURE));
    EXPECT_TRUE(driver::IsEnabled(launcher, IDC_START_PRODUCER));
    EXPECT_FALSE(driver::IsEnabled(launcher, IDC_STOP_PRODUCER));
    EXPECT_TRUE(driver::IsEnabled(launcher, IDC_REFRESH));

    DWORD exitCode = 99;
    ASSERT_TRUE(driver::Close(launcher, 15000, &exitCode));
    EXPECT_EQ(exitCode, 0u);
}

TEST(Shell, FirstLinesThenOnlyKnownCommandsAct) {
    Scenario scenario(L"shell-lines");
    driver::Launcher launcher;
    scenario.Start(launcher);
    std::vector<std::wstring> expected = {L"Veloquin launcher ready. Folder: " + scenario.folder,
                                          Scenario::CountLine(0)};
    EXPECT_EQ(driver::PaneLines(launcher), expected) << "Wine runs everything elevated: no warning";

    for (WPARAM id : {WPARAM{0}, WPARAM{999}, WPARAM{1011}, WPARAM{0xFFFF}, WPARAM{IDC_PROVIDER},
                      WPARAM{IDC_D3D_CAPTURE}, WPARAM{IDC_STATUS_LOG}, MAKEWPARAM(1234, BN_CLICKED)}) {
        ASSERT_TRUE(driver::SendCommand(launcher, id));
    }
    ASSERT_TRUE(driver::Click(launcher, IDC_D3D_CAPTURE));
    EXPECT_FALSE(driver::IsChecked(launcher, IDC_D3D_CAPTURE)) << "the check box toggles itself";
    ASSERT_TRUE(driver::Settle(launcher));
    EXPECT_EQ(driver::PaneLines(launcher), expected) << "no command outside the table does anything";

    DWORD exitCode = 99;
    ASSERT_TRUE(driver::Close(launcher, 15000, &exitCode));
    EXPECT_EQ(exitCode, 0u);
}

TEST(Shell, ModulePathOfTheBufferSizeIsReadWhole) {
    // 258 characters fit the first buffer; 259 fill it to the last character and need the second.
    // (Wine starts no program from a path of 260 or more.)
    for (size_t length : {size_t{258}, size_t{259}}) {
        Scenario probe(L"shell-long-" + std::to_wstring(length), false, false);
        std::wstring folder = probe.root;
        const size_t exeName = std::wstring(driver::LAUNCHER_EXE).size() + 1;
        while (folder.size() + exeName + 40 < length) {
            folder = driver::JoinPath(folder, L"deeper-folder");
        }
        folder = driver::JoinPath(folder, std::wstring(length - exeName - folder.size() - 1, L'x'));
        std::wstring exe = driver::PrepareLauncherFolder(folder, false, false);
        ASSERT_EQ(exe.size(), length);
        driver::Launcher launcher;
        ASSERT_TRUE(driver::Start(launcher, exe, probe.environment));
        ASSERT_TRUE(driver::WaitForLine(launcher, Scenario::CountLine(0)));
        EXPECT_EQ(driver::PaneLines(launcher).front(), L"Veloquin launcher ready. Folder: " + folder);
        ASSERT_TRUE(driver::Close(launcher));
    }
}

TEST(Shell, DriveRootFolderKeepsItsSeparator) {
    Scenario scenario(L"shell-root", false, false);
    std::wstring exe = driver::PrepareLauncherFolder(FreshDriveRoot(), false, false);
    ASSERT_EQ(exe, L"V:\\veloquin_launcher.exe");
    driver::Launcher launcher;
    ASSERT_TRUE(driver::Start(launcher, exe, scenario.environment));
    ASSERT_TRUE(driver::WaitForLine(launcher, Scenario::CountLine(0)));
    EXPECT_EQ(driver::PaneLines(launcher).front(), L"Veloquin launcher ready. Folder: V:\\");
    ASSERT_TRUE(driver::Click(launcher, IDC_REGISTER));
    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    std::vector<std::wstring> lines = driver::PaneLines(launcher);
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines[2],
              L"ERROR: media-source DLL not found next to launcher: V:\\veloquin_windows_vcam_source.dll");
    EXPECT_EQ(
        lines[3],
        L"ERROR: producer exe not found next to launcher: V:\\veloquin_windows_retouch_vcam_producer.exe");
    ASSERT_TRUE(driver::Close(launcher));
}

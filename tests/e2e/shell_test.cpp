#include <gtest/gtest.h>

#include "tests/driver/driver.h"

using namespace driver;

// Class, text, id, style and bounds of each control, in creation order. Wine draws the pane's frame
// itself and gives a combo box's scroll bar to its list, so WS_BORDER and a combo box's WS_VSCROLL are
// left out; it also reports a combo box's list apart from its field.
const wchar_t* const CONTROLS[] = {
    L"Button Virtual camera|-1|50000007|10 12 560 60",
    L"Button Register vcam|1001|50000000|24 34 160 28",
    L"Button Unregister vcam|1002|50000000|200 34 160 28",
    L"Button Producer settings|-1|50000007|10 90 560 110",
    L"Static Provider:|-1|50000000|24 116 70 20",
    L"ComboBox GPU (DirectML)|1003|50000003|100 112 180 200",
    L"Static Max width:|-1|50000000|300 116 70 20",
    L"ComboBox 1280|1004|50000003|380 112 120 200",
    L"Static Camera:|-1|50000000|24 156 70 20",
    L"ComboBox |1005|50000003|100 152 340 240",
    L"Button Refresh|1007|50000000|450 151 100 26",
    L"Button D3D capture|1006|50000003|100 180 120 20",
    L"Button Producer|-1|50000007|10 214 560 60",
    L"Button Start producer|1008|50000000|24 236 160 28",
    L"Button Stop producer|1009|58000000|200 236 160 28",
    L"Edit |1010|50200844|10 284 560 230",
};

const std::wstring MARK = L"  [Veloquin \u2014 do not select]";

// Refreshes of the camera list: the devices of the moment, then the items and the selection.
const std::tuple<const char*, std::vector<std::wstring>, int> REFRESHES[] = {
    {"device Veloquin|swd#vcam\ndevice Integrated Webcam|usb#1\ndevice Integrated Webcam|usb#2\n",
     {L"0: Veloquin" + MARK, L"1: Integrated Webcam", L"2: Integrated Webcam"},
     1},
    {"device VELOQUIN\ndevice my veloquin (2)\n", {L"0: VELOQUIN" + MARK, L"1: my veloquin (2)" + MARK}, 0},
    {"device |usb#nameless\ndevice \ndevice Windows Virtual Camera\ndevice \xD0\x9A\xD0\xB0\xD0\xBC "
     "\xE3\x82\xAB\n",
     {L"0: (unnamed camera)", L"1: (unnamed camera)", L"2: Windows Virtual Camera",
      L"3: \u041a\u0430\u043c \u30ab"},
     0},
    {"MFEnumDeviceSources 0x80070015\ndevice Front Camera|usb#1\n", {}, -1},
};

static std::wstring Describe(HWND control, HWND window) {
    wchar_t className[64] = {}, text[512] = {};
    GetClassNameW(control, className, 64);
    RECT rect = {}, dropped = {}; // only a combo box has a list to drop
    GetWindowRect(control, &rect);
    MapWindowPoints(nullptr, window, reinterpret_cast<POINT*>(&rect), 2);
    SendMessageW(control, CB_GETDROPPEDCONTROLRECT, 0, reinterpret_cast<LPARAM>(&dropped));
    swprintf(text, 512, L"%ls %ls|%d|%08lX|%ld %ld %ld %ld", className,
             GetDlgCtrlID(control) == StatusLog ? L"" : Text(control).c_str(), GetDlgCtrlID(control),
             GetWindowLongW(control, GWL_STYLE) & ~(WS_BORDER | (dropped.bottom ? WS_VSCROLL : 0)), rect.left,
             rect.top, rect.right - rect.left, rect.bottom - rect.top + dropped.bottom - dropped.top);
    return text;
}

// The whole face of the window, its first lines, commands that must do nothing, the camera list through
// refreshes, and a clean close; from a launcher whose own path of 259 characters fills the first buffer
// and so needs a second, started without elevation: it warns, and goes on as before.
TEST(Shell, PanelCommandsCamerasAndClose) {
    fs::path root = Scenario(L"shell"), folder = root / std::wstring(259 - root.wstring().size() - 23, L'x');
    fs::create_directories(folder);
    Launcher launcher;
    ASSERT_TRUE(launcher.Start(folder, true));
    ASSERT_EQ((folder / L"veloquin_launcher.exe").wstring().size(), 259u);

    wchar_t className[64] = {};
    GetClassNameW(launcher.window, className, 64);
    EXPECT_STREQ(className, L"VeloquinLauncherWindow");
    EXPECT_EQ(Text(launcher.window), L"Veloquin Launcher");
    RECT client = {};
    GetClientRect(launcher.window, &client);
    EXPECT_EQ(std::make_pair(client.right, client.bottom), std::make_pair(596L, 600L));
    LONG style = GetWindowLongW(launcher.window, GWL_STYLE);
    EXPECT_EQ(style & (WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX | WS_THICKFRAME | WS_MAXIMIZEBOX),
              WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX);

    HWND child = GetWindow(launcher.window, GW_CHILD);
    for (const wchar_t* expected : CONTROLS) {
        EXPECT_EQ(Describe(child, launcher.window), expected);
        EXPECT_EQ(GetWindowLongW(child, GWL_EXSTYLE) & ~(WS_EX_NOPARENTNOTIFY | WS_EX_CLIENTEDGE), 0);
        child = GetWindow(child, GW_HWNDNEXT);
    }
    EXPECT_EQ(child, nullptr) << "more than the 16 controls";
    EXPECT_EQ(launcher.Items(Provider), (std::vector<std::wstring>{L"GPU (DirectML)", L"CPU"}));
    EXPECT_EQ(launcher.Items(MaxWidth), (std::vector<std::wstring>{L"640", L"960", L"1280", L"1920"}));
    EXPECT_EQ(launcher.Focus(), launcher.Item(StatusLog)) << "the keys reach a control, not the window";

    std::vector<std::wstring> lines = {L"Veloquin launcher ready. Folder: " + folder.wstring(),
                                       L"WARNING: not running elevated \u2014 register/unregister will fail.",
                                       L"Found 0 camera device(s)."};
    EXPECT_EQ(launcher.Lines(), lines);
    for (WPARAM id : {WPARAM{0}, WPARAM{999}, WPARAM{1011}, WPARAM{0xFFFF}, WPARAM{Provider},
                      WPARAM{D3dCapture}, WPARAM{StatusLog}, MAKEWPARAM(1234, BN_CLICKED)}) {
        ASSERT_TRUE(launcher.Command(id));
    }
    PostMessageW(launcher.window, 0x8001, 0, 0); // a status line without its text
    ASSERT_TRUE(launcher.Press(D3dCapture));
    EXPECT_EQ(launcher.Ask(D3dCapture, BM_GETCHECK), BST_UNCHECKED) << "the check box toggles itself";
    ASSERT_TRUE(launcher.Press(StartProducer) && launcher.Settle());
    lines.push_back(L"ERROR: producer exe not found next to launcher: " +
                    (folder / L"veloquin_windows_retouch_vcam_producer.exe").wstring());
    EXPECT_EQ(launcher.Lines(), lines) << "no command outside the table does anything";

    fs::remove(L"C:\\ProgramData\\Veloquin\\Logs\\vcam-service.log");
    for (const auto& [devices, items, selected] : REFRESHES) {
        SCOPED_TRACE(devices);
        Write(root / L"script.txt", devices);
        ASSERT_TRUE(launcher.Press(Refresh) && launcher.Settle());
        EXPECT_EQ(launcher.Items(Camera), items);
        EXPECT_EQ(launcher.Ask(Camera, CB_GETCURSEL), selected);
        lines.push_back(L"Found " + std::to_wstring(items.size()) + L" camera device(s).");
        EXPECT_EQ(launcher.Lines(), lines);
    }
    EXPECT_FALSE(fs::exists(L"C:\\ProgramData\\Veloquin\\Logs\\vcam-service.log")) << "the list logs nothing";

    DWORD exitCode = 99;
    ASSERT_TRUE(launcher.Close(&exitCode));
    EXPECT_EQ(exitCode, 0u);
}

#include "tests/e2e/e2e_support.h"

using namespace e2e;

namespace {

const wchar_t MARK[] = L"  [Veloquin \u2014 do not select]";

std::vector<std::wstring> Items(const driver::Launcher& launcher) {
    return driver::ComboItems(launcher, IDC_CAMERA);
}

} // namespace

TEST(Picker, NoDeviceLeavesAnEmptyListAndCountsZero) {
    Scenario scenario(L"picker-none");
    scenario.Devices(L"# no devices\n");
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    EXPECT_TRUE(Items(launcher).empty());
    EXPECT_EQ(driver::ComboSelection(launcher, IDC_CAMERA), -1);
    ASSERT_EQ(scenario.Calls(L"MFEnumDeviceSources").size(), 1u) << "one enumeration at start-up";
    EXPECT_EQ(scenario.Calls(L"MFEnumDeviceSources")[0],
              L"MFEnumDeviceSources type={8AC3587A-4AE7-42D8-99E0-0A6013EEF90F} -> 0x00000000 count=0")
        << "the video capture filter is set";
}

TEST(Picker, OwnCameraIsMarkedAndTheFirstOtherSelected) {
    Scenario scenario(L"picker-own-then-physical");
    scenario.Devices(L"device\nname Veloquin\nlink \\\\?\\swd#vcam\n"
                     L"device\nname Integrated Webcam\nlink \\\\?\\usb#1\n"
                     L"device\nname Integrated Webcam\nlink \\\\?\\usb#2\n");
    driver::Launcher launcher;
    scenario.Start(launcher, 3);
    std::vector<std::wstring> expected = {std::wstring(L"0: Veloquin") + MARK, L"1: Integrated Webcam",
                                          L"2: Integrated Webcam"};
    EXPECT_EQ(Items(launcher), expected);
    EXPECT_EQ(driver::ComboSelection(launcher, IDC_CAMERA), 1);
    EXPECT_EQ(scenario.Calls(L"Release device").size(), 3u) << "every device is released";
}

TEST(Picker, OnlyOwnCamerasSelectTheFirst) {
    Scenario scenario(L"picker-only-own");
    scenario.Devices(L"device\nname VELOQUIN\ndevice\nname my veloquin (2)\n");
    driver::Launcher launcher;
    scenario.Start(launcher, 2);
    EXPECT_EQ(Items(launcher), (std::vector<std::wstring>{std::wstring(L"0: VELOQUIN") + MARK,
                                                          std::wstring(L"1: my veloquin (2)") + MARK}));
    EXPECT_EQ(driver::ComboSelection(launcher, IDC_CAMERA), 0);
}

TEST(Picker, UnnamedAndVirtualLookingDevicesAreOrdinaryEntries) {
    Scenario scenario(L"picker-unnamed");
    scenario.Devices(L"device\nlink \\\\?\\usb#nameless\ndevice\nname\ndevice\nname Windows Virtual Camera\n"
                     L"device\nname \u041a\u0430\u043c\u0435\u0440\u0430 \u30ab\u30e1\u30e9\n");
    driver::Launcher launcher;
    scenario.Start(launcher, 4);
    EXPECT_EQ(Items(launcher),
              (std::vector<std::wstring>{L"0: (unnamed camera)", L"1: (unnamed camera)",
                                         L"2: Windows Virtual Camera",
                                         L"3: \u041a\u0430\u043c\u0435\u0440\u0430 \u30ab\u30e1\u30e9"}));
    EXPECT_EQ(driver::ComboSelection(launcher, IDC_CAMERA), 0);
}

TEST(Picker, FailedEnumerationShowsNothingButTheCount) {
    Scenario scenario(L"picker-failure");
    scenario.Devices(L"fail 0x80070015\ndevice\nname Front Camera\n");
    ClearServiceLog();
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    EXPECT_TRUE(Items(launcher).empty());
    EXPECT_EQ(driver::PaneLines(launcher),
              (std::vector<std::wstring>{L"Veloquin launcher ready. Folder: " + scenario.folder,
                                         Scenario::CountLine(0)}));
    EXPECT_FALSE(driver::FileExists(SERVICE_LOG)) << "the picker logs nothing";
}

TEST(Picker, RefreshRebuildsFromAFreshEnumeration) {
    Scenario scenario(L"picker-refresh");
    scenario.Devices(L"device\nname USB Webcam\nlink \\\\?\\usb#1\n");
    driver::Launcher launcher;
    scenario.Start(launcher, 1);
    EXPECT_EQ(Items(launcher), (std::vector<std::wstring>{L"0: USB Webcam"}));

    scenario.Devices(L"device\nname Veloquin\ndevice\nname Front Camera\ndevice\nname USB Webcam\n");
    ASSERT_TRUE(driver::Click(launcher, IDC_REFRESH));
    ASSERT_TRUE(driver::WaitForLine(launcher, Scenario::CountLine(3)));
    EXPECT_EQ(Items(launcher), (std::vector<std::wstring>{std::wstring(L"0: Veloquin") + MARK,
                                                          L"1: Front Camera", L"2: USB Webcam"}));
    EXPECT_EQ(driver::ComboSelection(launcher, IDC_CAMERA), 1) << "the rule starts afresh";

    scenario.Devices(L"fail 0x8007001F\n");
    ASSERT_TRUE(driver::Click(launcher, IDC_REFRESH));
    ASSERT_TRUE(driver::Settle(launcher));
    EXPECT_TRUE(Items(launcher).empty()) << "the previous list is gone";
    std::vector<std::wstring> lines = driver::PaneLines(launcher);
    EXPECT_EQ(lines.back(), Scenario::CountLine(0));
    EXPECT_EQ(lines.size(), 4u);
}

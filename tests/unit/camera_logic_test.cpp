#include <gtest/gtest.h>

#include "cameras/camera_picker.h"
#include "cameras/physical_cameras.h"
#include "tests/driver/launcher_driver.h"

namespace {

using Cameras = std::vector<PhysicalCamera>;

std::wstring Preferred(const Cameras& cameras) {
    auto found = FindPreferredCamera(cameras.cbegin(), cameras.cend());
    return found == cameras.cend() ? L"(end)" : found->friendlyName;
}

// The device enumeration stand-in reads its script from the file this variable names.
struct DeviceScript {
    std::wstring path;
    explicit DeviceScript(const std::wstring& text) {
        EXPECT_TRUE(driver::InstallSystemStandIn(L"standin_mf.dll", L"mf.dll"));
        path = driver::JoinPath(driver::ScratchFolder(L"unit-devices"), L"devices.txt");
        driver::WriteUtf8(path, text);
        SetEnvironmentVariableW(L"VQTEST_DEVICES", path.c_str());
    }
    ~DeviceScript() { SetEnvironmentVariableW(L"VQTEST_DEVICES", nullptr); }
};

} // namespace

TEST(CameraLogic, ContainsNoCase) {
    EXPECT_TRUE(ContainsNoCase(L"My VELOQUIN cam", L"veloquin"));
    EXPECT_TRUE(ContainsNoCase(L"veloquin", L"VeLoQuIn"));
    EXPECT_TRUE(ContainsNoCase(L"", L"")) << "an empty needle is always found";
    EXPECT_TRUE(ContainsNoCase(L"abc", L""));
    EXPECT_FALSE(ContainsNoCase(L"velo", L"veloquin")) << "needle longer than haystack";
    EXPECT_FALSE(ContainsNoCase(L"velo quin", L"veloquin"));
    EXPECT_FALSE(ContainsNoCase(L"", L"a"));
}

TEST(CameraLogic, OwnCameraTestsNameThenLinkThenWindowsVirtualCamera) {
    EXPECT_TRUE(IsOwnCamera({L"Veloquin", L"\\\\?\\usb#1"}));
    EXPECT_TRUE(IsOwnCamera({L"USB Webcam", L"\\\\?\\SWD#VELOQUIN#1"})) << "by link, any case";
    EXPECT_TRUE(IsOwnCamera({L"Windows Virtual Camera", L"\\\\?\\swd#1"}));
    EXPECT_TRUE(IsOwnCamera({L"WINDOWS VIRTUAL CAMERA (2)", L"\\\\?\\swd#1"}));
    EXPECT_FALSE(IsOwnCamera({L"USB Webcam", L"\\\\?\\windows virtual camera#1"}))
        << "these words count in the name only";
    EXPECT_FALSE(IsOwnCamera({L"", L"\\\\?\\usb#1"}));
}

TEST(CameraLogic, PreferredCameraGoesByDeviceOrderNotWordOrder) {
    EXPECT_EQ(Preferred({{L"USB Webcam", L"a"}, {L"FaceTime HD", L"b"}, {L"Front Camera", L"c"}}),
              L"FaceTime HD");
    EXPECT_EQ(Preferred({{L"USB Webcam", L"a"}, {L"INTEGRATED webcam", L"b"}}), L"INTEGRATED webcam");
    EXPECT_EQ(Preferred({{L"USB Webcam", L"front"}, {L"Capture Card", L"integrated"}}), L"(end)")
        << "the link plays no part";
    EXPECT_EQ(Preferred({}), L"(end)");
}

TEST(CameraLogic, PhysicalCamerasLeaveOutVirtualAndLinklessDevices) {
    DeviceScript script(L"device\nname Veloquin\nlink \\\\?\\swd#vcam#1\n"
                        L"device\nname Front Camera\n"
                        L"device\nname Studio Cam\nlink \\\\?\\swd#VeLoQuIn#2\n"
                        L"device\nname Windows Virtual Camera\nlink \\\\?\\swd#wvc\n"
                        L"device\nlink \\\\?\\usb#nameless\n"
                        L"device\nname Capture Card\nlink \\\\?\\usb#windows virtual camera\n"
                        L"device\nname USB Webcam\nlink \\\\?\\usb#webcam\n");
    Cameras cameras = EnumeratePhysicalCameras();
    ASSERT_EQ(cameras.size(), 3u);
    EXPECT_EQ(cameras[0].friendlyName, L"");
    EXPECT_EQ(cameras[0].symbolicLink, L"\\\\?\\usb#nameless");
    EXPECT_EQ(cameras[1].friendlyName, L"Capture Card");
    EXPECT_EQ(cameras[2].friendlyName, L"USB Webcam");
    EXPECT_EQ(cameras[2].symbolicLink, L"\\\\?\\usb#webcam");
}

TEST(CameraLogic, EnumerationFailureGivesEmptyLists) {
    DeviceScript script(L"fail 0x80070015\ndevice\nname Front Camera\nlink \\\\?\\usb#1\n");
    EXPECT_TRUE(EnumeratePhysicalCameras().empty());
    EXPECT_TRUE(EnumerateCameraList().empty());
}

TEST(CameraLogic, PickerListKeepsEveryDeviceInOrder) {
    DeviceScript script(L"device\nname VELOQUIN\nlink \\\\?\\swd#1\n"
                        L"device\nlink \\\\?\\usb#2\n"
                        L"device\nname\n"
                        L"device\nname Windows Virtual Camera\n");
    std::vector<CameraListEntry> list = EnumerateCameraList();
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(list[0].name, L"VELOQUIN");
    EXPECT_TRUE(list[0].isOwnCamera);
    EXPECT_EQ(list[1].name, L"(unnamed camera)");
    EXPECT_EQ(list[2].name, L"(unnamed camera)") << "an empty name counts as none";
    EXPECT_FALSE(list[2].isOwnCamera);
    EXPECT_FALSE(list[3].isOwnCamera) << "the picker's own test is the name's product word alone";
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(list[static_cast<size_t>(i)].deviceIndex, i);
    }
}

#include "tests/e2e/e2e_support.h"

#include <regex>

using namespace e2e;

namespace {

const std::wstring INPROC_KEY = CLSID_KEY + L"\\InprocServer32";
const std::wstring CATEGORIES =
    L"{E5323777-F976-4F5B-9B55-B94699C46E44},{6994AD05-93EF-11D0-A3CC-00A0C9223196},"
    L"{65E8773D-8F56-11D0-A3B9-00A0C9223196}";
const std::wstring CREATE = L"MFCreateVirtualCamera type=0 lifetime=1 access=1 name=Veloquin "
                            L"source={fb0afedc-9b71-404f-8154-36cc0ef0a550} ";
const std::wstring CREATE_FOR_REGISTER = CREATE + L"count=3 categories=" + CATEGORIES + L" -> ";
const std::wstring CREATE_FOR_REMOVE = CREATE + L"count=0 categories=(null) -> ";
const std::wstring LOAD_STAGE = L"Load MFCreateVirtualCamera from mfsensorgroup.dll. Windows build 22000+ is "
                                L"required for this registration path";

// A pattern for a formatted code: the number, then the system's text in brackets if it has one.
std::wstring Code(const std::wstring& hex) {
    return L"0x" + hex + L"( \\(.+\\))?";
}

std::wstring RetryPattern(const std::wstring& stage, const std::wstring& hex, int delay, int attempt) {
    return std::regex_replace(stage, std::wregex(L"[.:()]"), L"\\$&") + L" failed transiently \\(" +
           Code(hex) + L"\\), retrying in " + std::to_wstring(delay) + L" ms \\(attempt " +
           std::to_wstring(attempt) + L"/5\\) \u2014 the Camera Frame Server was likely still starting";
}

// Each line must match its pattern, and there must be as many lines as patterns.
void ExpectLinesMatch(const std::vector<std::wstring>& lines, const std::vector<std::wstring>& patterns) {
    EXPECT_EQ(lines.size(), patterns.size());
    for (size_t i = 0; i < lines.size() && i < patterns.size(); ++i) {
        EXPECT_TRUE(std::regex_match(lines[i], std::wregex(patterns[i])))
            << "line " << i << ": " << driver::WideToUtf8(lines[i])
            << "\n pattern: " << driver::WideToUtf8(patterns[i]);
    }
}

// What the launcher asked of the virtual camera API, without the device enumeration's lines.
std::vector<std::wstring> CameraCalls(const Scenario& scenario) {
    std::vector<std::wstring> calls;
    for (const std::wstring& line : scenario.Journal()) {
        if (line.rfind(L"MFEnumDeviceSources", 0) != 0 && line.rfind(L"Release device", 0) != 0) {
            calls.push_back(line);
        }
    }
    return calls;
}

std::wstring RegistryString(const std::wstring& key, const wchar_t* value, DWORD* type) {
    std::wstring data;
    *type = REG_NONE;
    driver::ReadRegistryString(HKEY_LOCAL_MACHINE, key, value, &data, type);
    return data;
}

void ClearMachineState() {
    driver::DeleteRegistryTree(HKEY_LOCAL_MACHINE, CLSID_KEY);
    ClearServiceLog();
}

// Presses a button and gives back the lines it added, the refresh's count line included.
std::vector<std::wstring> Press(const driver::Launcher& launcher, int id) {
    size_t before = driver::PaneLines(launcher).size();
    EXPECT_TRUE(driver::Click(launcher, id));
    EXPECT_TRUE(driver::Settle(launcher));
    std::vector<std::wstring> lines = driver::PaneLines(launcher);
    return std::vector<std::wstring>(lines.begin() + static_cast<long>(std::min(before, lines.size())),
                                     lines.end());
}

const std::vector<std::wstring> UNREGISTERED = {L"Removing Veloquin virtual camera...", L"  device removed.",
                                                L"  COM server unregistered.", L"Unregister complete."};

} // namespace

TEST(Registration, RegisterWritesTheServerAndStartsTheCameraThenUnregisterRemovesBoth) {
    ClearMachineState();
    Scenario scenario(L"register-flow");
    scenario.Devices(L"device\nname Veloquin\nlink \\\\?\\swd#vcam\n"
                     L"device\nname USB Webcam\nlink \\\\?\\usb#1\n"
                     L"device\nname Integrated Camera\nlink \\\\?\\usb#2\n");
    scenario.Vcam(L"link \\\\?\\SWD#VCAMDEVAPI#veloquin\n");
    driver::Launcher launcher;
    scenario.Start(launcher, 3);

    EXPECT_EQ(Press(launcher, IDC_REGISTER),
              (std::vector<std::wstring>{L"Registering Veloquin virtual camera (COM + device)...",
                                         L"Registered. Veloquin should now appear in OBS / camera apps.",
                                         L"  symbolic link: \\\\?\\SWD#VCAMDEVAPI#veloquin",
                                         Scenario::CountLine(3)}));
    DWORD type = 0;
    EXPECT_EQ(RegistryString(CLSID_KEY, nullptr, &type), L"Veloquin Retouch Media Source");
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    const std::wstring dll = driver::JoinPath(scenario.folder, driver::MEDIA_SOURCE_DLL);
    EXPECT_EQ(RegistryString(INPROC_KEY, nullptr, &type), dll);
    EXPECT_EQ(type, static_cast<DWORD>(REG_EXPAND_SZ));
    EXPECT_EQ(RegistryString(INPROC_KEY, L"ThreadingModel", &type), L"Both");
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));

    EXPECT_EQ(CameraCalls(scenario),
              (std::vector<std::wstring>{
                  CREATE_FOR_REGISTER + L"0x00000000", L"AddDeviceSourceInfo \\\\?\\usb#2 -> 0x00000000",
                  L"SetString VCAM_ATTR_PHYSICAL_SYMBOLIC_LINK \\\\?\\usb#2 -> 0x00000000",
                  L"SetString VCAM_ATTR_SOURCE_FOLDER " + scenario.folder + L" -> 0x00000000",
                  L"Start callback=(null) -> 0x00000000", L"Released"}));
    EXPECT_EQ(ServiceLogTexts(),
              (std::vector<std::wstring>{L"Associated physical camera: Integrated Camera"}));

    // The same server from another folder: the registration follows the DLL.
    Scenario moved(L"register-flow-moved");
    driver::Launcher second;
    moved.Start(second, 0);
    EXPECT_EQ(Press(second, IDC_REGISTER).at(1),
              L"Registered. Veloquin should now appear in OBS / camera apps.");
    EXPECT_EQ(RegistryString(INPROC_KEY, nullptr, &type),
              driver::JoinPath(moved.folder, driver::MEDIA_SOURCE_DLL));
    ASSERT_TRUE(driver::Close(second));

    DeleteFileW(scenario.journal.c_str());
    std::vector<std::wstring> expected = UNREGISTERED;
    expected.push_back(Scenario::CountLine(3));
    EXPECT_EQ(Press(launcher, IDC_UNREGISTER), expected);
    EXPECT_FALSE(driver::RegistryKeyExists(HKEY_LOCAL_MACHINE, CLSID_KEY));
    EXPECT_EQ(CameraCalls(scenario), (std::vector<std::wstring>{CREATE_FOR_REMOVE + L"0x00000000",
                                                                L"Remove -> 0x00000000", L"Released"}));
    EXPECT_EQ(Press(launcher, IDC_UNREGISTER), expected) << "a missing key counts as unregistered";
    EXPECT_EQ(ServiceLogTexts().size(), 2u) << "unregistering writes no log line";
}

TEST(Registration, MissingMediaSourceStopsBeforeAnything) {
    ClearMachineState();
    Scenario scenario(L"register-missing", false, false);
    scenario.Devices(L"device\nname USB Webcam\nlink \\\\?\\usb#1\n");
    driver::Launcher launcher;
    scenario.Start(launcher, 1);
    EXPECT_EQ(Press(launcher, IDC_REGISTER),
              (std::vector<std::wstring>{L"ERROR: media-source DLL not found next to launcher: " +
                                         driver::JoinPath(scenario.folder, driver::MEDIA_SOURCE_DLL)}));
    EXPECT_FALSE(driver::RegistryKeyExists(HKEY_LOCAL_MACHINE, CLSID_KEY));
    EXPECT_FALSE(driver::FileExists(SERVICE_LOG));
    EXPECT_EQ(scenario.Calls(L"MFEnumDeviceSources").size(), 1u) << "the picker is not refreshed";
    EXPECT_TRUE(CameraCalls(scenario).empty());
    EXPECT_EQ(driver::ComboItems(launcher, IDC_CAMERA), (std::vector<std::wstring>{L"0: USB Webcam"}));

    // Anything at the path passes the test, a folder too.
    ASSERT_TRUE(driver::CreateFolders(driver::JoinPath(scenario.folder, driver::MEDIA_SOURCE_DLL)));
    EXPECT_EQ(Press(launcher, IDC_REGISTER).at(0), L"Registering Veloquin virtual camera (COM + device)...");
    EXPECT_TRUE(driver::RegistryKeyExists(HKEY_LOCAL_MACHINE, INPROC_KEY));
}

TEST(Registration, SuccessOnTheThirdAttemptAfterTwoWaits) {
    ClearMachineState();
    Scenario scenario(L"register-third");
    scenario.Vcam(L"create 0x800706BA 0x800706BE 0\n");
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    DWORD start = GetTickCount();
    std::vector<std::wstring> lines = Press(launcher, IDC_REGISTER);
    DWORD elapsed = GetTickCount() - start;
    EXPECT_EQ(lines.at(1), L"Registered. Veloquin should now appear in OBS / camera apps.");
    EXPECT_GE(elapsed, 2900u) << "waits of 1000 and 2000 ms";
    ExpectLinesMatch(ServiceLogTexts(),
                     {RetryPattern(L"MFCreateVirtualCamera", L"800706BA", 1000, 1),
                      RetryPattern(L"MFCreateVirtualCamera", L"800706BE", 2000, 2),
                      L"No physical camera was available during virtual camera registration\\.",
                      L"Virtual camera registration succeeded on attempt 3"});
    std::vector<std::wstring> calls = CameraCalls(scenario);
    ASSERT_EQ(calls.size(), 6u);
    EXPECT_EQ(calls[0], CREATE_FOR_REGISTER + L"0x800706BA");
    EXPECT_EQ(calls[1], CREATE_FOR_REGISTER + L"0x800706BE");
    EXPECT_EQ(calls[2], CREATE_FOR_REGISTER + L"0x00000000");
    EXPECT_EQ(calls[3].rfind(L"SetString VCAM_ATTR_SOURCE_FOLDER ", 0), 0u) << "no camera, still the folder";
    EXPECT_EQ(calls[4], L"Start callback=(null) -> 0x00000000");
    EXPECT_EQ(calls[5], L"Released");
}

TEST(Registration, TransientOnEveryAttemptFailsAfterFourWaits) {
    ClearMachineState();
    Scenario scenario(L"register-all-transient");
    scenario.Devices(
        L"device\nname FaceTime HD\nlink \\\\?\\usb#ft\ndevice\nname Front Camera\nlink \\\\?\\usb#fr\n");
    scenario.Vcam(L"start 0x800706BA\n");
    driver::Launcher launcher;
    scenario.Start(launcher, 2);
    DWORD start = GetTickCount();
    std::vector<std::wstring> lines = Press(launcher, IDC_REGISTER);
    DWORD elapsed = GetTickCount() - start;
    ExpectLinesMatch(lines, {L"Registering Veloquin virtual camera \\(COM \\+ device\\)\\.\\.\\.",
                             L"Register FAILED: " + Code(L"800706BA"), L"  detail: IMFVirtualCamera::Start",
                             L"Found 2 camera device\\(s\\)\\."});
    EXPECT_GE(elapsed, 10900u) << "1000 + 2000 + 3000 + 5000 ms";
    EXPECT_LT(elapsed, 16000u) << "no fifth wait";

    std::vector<std::wstring> expected;
    const int delays[] = {1000, 2000, 3000, 5000};
    for (int attempt = 1; attempt <= 5; ++attempt) {
        expected.push_back(L"Associated physical camera: FaceTime HD");
        if (attempt < 5) {
            expected.push_back(
                RetryPattern(L"IMFVirtualCamera::Start", L"800706BA", delays[attempt - 1], attempt));
        }
    }
    expected.push_back(L"IMFVirtualCamera::Start failed: " + Code(L"800706BA"));
    ExpectLinesMatch(ServiceLogTexts(), expected);
    EXPECT_EQ(scenario.Calls(L"MFCreateVirtualCamera").size(), 5u);
    EXPECT_EQ(scenario.Calls(L"Start ").size(), 5u);
    EXPECT_EQ(scenario.Calls(L"Released").size(), 5u) << "each attempt's camera is released";
    EXPECT_TRUE(scenario.Calls(L"Remove").empty());
}

TEST(Registration, NonTransientCodesEndAtOnce) {
    ClearMachineState();
    Scenario scenario(L"register-final");
    scenario.Vcam(L"create 0x800706BA 0x80070005\n");
    {
        driver::Launcher launcher;
        scenario.Start(launcher, 0);
        ExpectLinesMatch(Press(launcher, IDC_REGISTER),
                         {L"Registering Veloquin virtual camera \\(COM \\+ device\\)\\.\\.\\.",
                          L"Register FAILED: " + Code(L"80070005"), L"  detail: MFCreateVirtualCamera",
                          L"Found 0 camera device\\(s\\)\\."});
        ExpectLinesMatch(ServiceLogTexts(), {RetryPattern(L"MFCreateVirtualCamera", L"800706BA", 1000, 1),
                                             L"MFCreateVirtualCamera failed: " + Code(L"80070005")});
        EXPECT_EQ(scenario.Calls(L"MFCreateVirtualCamera").size(), 2u);
        EXPECT_TRUE(driver::RegistryKeyExists(HKEY_LOCAL_MACHINE, INPROC_KEY)) << "no rollback of the server";
    }
    // The code right after RPC_S_SERVER_UNAVAILABLE is not one of the transient ones.
    ClearServiceLog();
    DeleteFileW(scenario.journal.c_str());
    scenario.Vcam(L"create 0x800706BB 0\n");
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    EXPECT_EQ(Press(launcher, IDC_REGISTER).at(2), L"  detail: MFCreateVirtualCamera");
    ExpectLinesMatch(ServiceLogTexts(), {L"MFCreateVirtualCamera failed: " + Code(L"800706BB")});
}

TEST(Registration, FailedDeviceSourceInfoStillStarts) {
    ClearMachineState();
    Scenario scenario(L"register-adddevice");
    scenario.Devices(L"device\nname USB Webcam\nlink \\\\?\\usb#1\n");
    scenario.Vcam(L"adddevicesourceinfo 0x80004005\n");
    driver::Launcher launcher;
    scenario.Start(launcher, 1);
    EXPECT_EQ(Press(launcher, IDC_REGISTER),
              (std::vector<std::wstring>{L"Registering Veloquin virtual camera (COM + device)...",
                                         L"Registered. Veloquin should now appear in OBS / camera apps.",
                                         Scenario::CountLine(1)}))
        << "no link line when the camera has no link to read";
    ExpectLinesMatch(ServiceLogTexts(), {L"AddDeviceSourceInfo failed: " + Code(L"80004005"),
                                         L"Associated physical camera: USB Webcam"});
    EXPECT_EQ(scenario.Calls(L"SetString VCAM_ATTR_PHYSICAL_SYMBOLIC_LINK").size(), 1u);
}

TEST(Registration, WithoutTheVirtualCameraApiBothCommandsReport) {
    ClearMachineState();
    Scenario scenario(L"register-no-api");
    ASSERT_TRUE(driver::RemoveSystemFile(L"mfsensorgroup.dll"));
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    ExpectLinesMatch(
        Press(launcher, IDC_REGISTER),
        {L"Registering Veloquin virtual camera \\(COM \\+ device\\)\\.\\.\\.",
         L"Register FAILED: " + Code(L"8007007E"),
         L"  detail: Load MFCreateVirtualCamera from mfsensorgroup\\.dll\\. Windows build 22000\\+ is "
         L"required for this registration path",
         L"Found 0 camera device\\(s\\)\\."});
    ExpectLinesMatch(
        ServiceLogTexts(),
        {L"Load MFCreateVirtualCamera from mfsensorgroup\\.dll\\. Windows build 22000\\+ is required for "
         L"this registration path failed: " +
         Code(L"8007007E")});
    EXPECT_TRUE(driver::RegistryKeyExists(HKEY_LOCAL_MACHINE, INPROC_KEY));

    ExpectLinesMatch(Press(launcher, IDC_UNREGISTER),
                     {L"Removing Veloquin virtual camera\\.\\.\\.",
                      L"  remove device failed: " + Code(L"8007007E"), L"  COM server unregistered\\.",
                      L"Unregister complete\\.", L"Found 0 camera device\\(s\\)\\."});
    EXPECT_FALSE(driver::RegistryKeyExists(HKEY_LOCAL_MACHINE, CLSID_KEY));
    EXPECT_TRUE(driver::InstallSystemStandIn(L"standin_mfsensorgroup.dll", L"mfsensorgroup.dll"));
}

TEST(Registration, RemovalMakesOneAttemptAndLeavesTheDetailAlone) {
    ClearMachineState();
    Scenario scenario(L"unregister-transient");
    scenario.Vcam(L"create 0x80070015\nremove 0x800706BA\n");
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    ExpectLinesMatch(Press(launcher, IDC_UNREGISTER),
                     {L"Removing Veloquin virtual camera\\.\\.\\.",
                      L"  remove device failed: " + Code(L"80070015"), L"  COM server unregistered\\.",
                      L"Unregister complete\\.", L"Found 0 camera device\\(s\\)\\."});
    EXPECT_EQ(scenario.Calls(L"MFCreateVirtualCamera").size(), 1u) << "no retry, whatever the code";
    EXPECT_FALSE(driver::FileExists(SERVICE_LOG));

    scenario.Vcam(L"remove 0x800706BA\n");
    ExpectLinesMatch(Press(launcher, IDC_UNREGISTER),
                     {L"Removing Veloquin virtual camera\\.\\.\\.",
                      L"  remove device failed: " + Code(L"800706BA"), L"  COM server unregistered\\.",
                      L"Unregister complete\\.", L"Found 0 camera device\\(s\\)\\."});
}

TEST(Registration, HalfWrittenKeyIsCompletedByTheNextRegistration) {
    ClearMachineState();
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, INPROC_KEY.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                              nullptr),
              ERROR_SUCCESS);
    RegCloseKey(key);
    Scenario scenario(L"register-half-written");
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    EXPECT_EQ(Press(launcher, IDC_REGISTER).at(1),
              L"Registered. Veloquin should now appear in OBS / camera apps.");
    DWORD type = 0;
    EXPECT_EQ(RegistryString(CLSID_KEY, nullptr, &type), L"Veloquin Retouch Media Source");
    EXPECT_EQ(RegistryString(INPROC_KEY, L"ThreadingModel", &type), L"Both");
}

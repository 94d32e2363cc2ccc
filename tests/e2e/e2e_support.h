// What the end-to-end tests share: a launcher folder of the test's own with scripts for the
// stand-ins, and the places where the launcher leaves its traces.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/driver/launcher_driver.h"

namespace e2e {

inline constexpr int IDC_REGISTER = 1001;
inline constexpr int IDC_UNREGISTER = 1002;
inline constexpr int IDC_PROVIDER = 1003;
inline constexpr int IDC_MAX_WIDTH = 1004;
inline constexpr int IDC_CAMERA = 1005;
inline constexpr int IDC_D3D_CAPTURE = 1006;
inline constexpr int IDC_REFRESH = 1007;
inline constexpr int IDC_START_PRODUCER = 1008;
inline constexpr int IDC_STOP_PRODUCER = 1009;
inline constexpr int IDC_STATUS_LOG = 1010;

inline const std::wstring CLSID_KEY = L"Software\\Classes\\CLSID\\{fb0afedc-9b71-404f-8154-36cc0ef0a550}";
inline const std::wstring SERVICE_LOG = L"C:\\ProgramData\\Veloquin\\Logs\\vcam-service.log";

// One test's launcher folder, its stand-in scripts and the environment that points the stand-ins
// at them. The system's stand-ins are installed afresh for each scenario.
struct Scenario {
    std::wstring root;
    std::wstring folder;
    std::wstring exe;
    std::wstring journal;
    std::wstring devices;
    std::wstring vcam;
    std::wstring record;
    driver::EnvironmentChanges environment;

    explicit Scenario(const std::wstring& name, bool withMediaSource = true, bool withProducer = true,
                      const std::wstring& subfolder = L"launcher")
        : root(driver::ScratchFolder(name)) {
        folder = driver::JoinPath(root, subfolder);
        exe = driver::PrepareLauncherFolder(folder, withMediaSource, withProducer);
        journal = driver::JoinPath(root, L"journal.txt");
        devices = driver::JoinPath(root, L"devices.txt");
        vcam = driver::JoinPath(root, L"vcam.txt");
        record = driver::JoinPath(root, L"producer-record.txt");
        environment = {{L"VQTEST_JOURNAL", journal},
                       {L"VQTEST_DEVICES", devices},
                       {L"VQTEST_VCAM", vcam},
                       {L"VQTEST_PRODUCER_RECORD", record}};
        EXPECT_TRUE(driver::InstallSystemStandIn(L"standin_mf.dll", L"mf.dll"));
        EXPECT_TRUE(driver::InstallSystemStandIn(L"standin_mfsensorgroup.dll", L"mfsensorgroup.dll"));
    }
    void Devices(const std::wstring& script) const { EXPECT_TRUE(driver::WriteUtf8(devices, script)); }
    void Vcam(const std::wstring& script) const { EXPECT_TRUE(driver::WriteUtf8(vcam, script)); }
    void Set(const std::wstring& name, const std::wstring& value) { environment.emplace_back(name, value); }
    std::vector<std::wstring> Journal() const { return driver::ReadUtf8Lines(journal); }
    // Journal lines that start with `prefix`.
    std::vector<std::wstring> Calls(const std::wstring& prefix) const {
        std::vector<std::wstring> found;
        for (const std::wstring& line : Journal()) {
            if (line.rfind(prefix, 0) == 0) {
                found.push_back(line);
            }
        }
        return found;
    }
    // One value from the record the stand-in producer writes at its start; waits for it to appear.
    std::wstring Recorded(const std::wstring& name, DWORD timeoutMs = 10000) const {
        DWORD start = GetTickCount();
        do {
            for (const std::wstring& line : driver::ReadUtf8Lines(record)) {
                if (line.rfind(name + L"=", 0) == 0) {
                    return line.substr(name.size() + 1);
                }
            }
            Sleep(50);
        } while (GetTickCount() - start < timeoutMs);
        return L"(not recorded)";
    }
    DWORD RecordedPid(const std::wstring& name) const {
        return static_cast<DWORD>(std::wcstoul(Recorded(name).c_str(), nullptr, 10));
    }
    // Starts the launcher and waits for the count line of its first refresh.
    void Start(driver::Launcher& launcher, int expectedCameras = 0) const {
        ASSERT_TRUE(driver::Start(launcher, exe, environment));
        ASSERT_TRUE(driver::WaitForLine(launcher, CountLine(expectedCameras)));
    }
    static std::wstring CountLine(int cameras) {
        return L"Found " + std::to_wstring(cameras) + L" camera device(s).";
    }
};

// The root of drive V: (a folder of the build tree that the prefix maps), cleared of whatever an
// earlier test put there.
inline std::wstring FreshDriveRoot() {
    for (const wchar_t* name : {driver::LAUNCHER_EXE, driver::MEDIA_SOURCE_DLL, driver::PRODUCER_EXE}) {
        driver::DeleteTree(std::wstring(L"V:\\") + name);
    }
    return L"V:\\";
}

// The service log's lines without their time stamps.
inline std::vector<std::wstring> ServiceLogTexts() {
    std::vector<std::wstring> texts;
    for (const std::wstring& line : driver::ReadUtf8Lines(SERVICE_LOG)) {
        texts.push_back(line.size() >= 20 ? line.substr(20) : line);
    }
    return texts;
}

inline void ClearServiceLog() {
    DeleteFileW(SERVICE_LOG.c_str());
}

// Pane lines from the first one equal to `first` on.
inline std::vector<std::wstring> LinesFrom(const driver::Launcher& launcher, const std::wstring& first) {
    std::vector<std::wstring> lines = driver::PaneLines(launcher);
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i] == first) {
            return std::vector<std::wstring>(lines.begin() + static_cast<long>(i), lines.end());
        }
    }
    return {};
}

} // namespace e2e

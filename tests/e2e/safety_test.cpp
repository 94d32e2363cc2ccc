#include "tests/e2e/e2e_support.h"

using namespace e2e;

namespace {

// Every DLL outside the KnownDLLs that the launcher uses.
const wchar_t* const PLANTED_NAMES[] = {L"comctl32.dll", L"mfplat.dll", L"mf.dll", L"mfsensorgroup.dll"};
// Tells Wine to prefer a native copy under these names over its own built-in one, as Windows would.
const wchar_t OVERRIDES[] = L"mscoree,mshtml=;comctl32,mfplat,mf,mfsensorgroup=n,b";

} // namespace

TEST(Safety, DllsPlantedBesideTheLauncherAreNeverLoaded) {
    ClearServiceLog();
    Scenario scenario(L"safety-planted");
    for (const wchar_t* name : PLANTED_NAMES) {
        ASSERT_TRUE(CopyFileW(driver::JoinPath(driver::BinFolder(), L"standin_planted.dll").c_str(),
                              driver::JoinPath(scenario.folder, name).c_str(), FALSE));
    }
    const std::wstring marker = driver::JoinPath(scenario.root, L"planted-loaded.txt");
    scenario.Set(L"VQTEST_PLANTED_MARKER", marker);
    scenario.Set(L"WINEDLLOVERRIDES", OVERRIDES);
    scenario.Set(L"VQTEST_PRODUCER_MODE", L"lines");
    scenario.Devices(L"device\nname USB Webcam\nlink \\\\?\\usb#1\n");

    driver::Launcher launcher;
    scenario.Start(launcher, 1);
    ASSERT_TRUE(driver::Click(launcher, IDC_REGISTER));
    ASSERT_TRUE(driver::Click(launcher, IDC_UNREGISTER));
    ASSERT_TRUE(driver::Click(launcher, IDC_REFRESH));
    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    ASSERT_TRUE(driver::WaitForLine(launcher, L"Producer stopped."));
    ASSERT_TRUE(driver::Close(launcher));

    std::vector<std::wstring> lines = driver::PaneLines(launcher);
    EXPECT_FALSE(driver::FileExists(marker)) << driver::ReadBytes(marker);
    EXPECT_EQ(scenario.Calls(L"Start callback").size(), 1u) << "the system's virtual camera API did the work";
    EXPECT_EQ(scenario.Calls(L"Remove").size(), 1u);

    // The same DLLs are loaded by a search that includes the folder: the check above can fail.
    const std::wstring probeMarker = driver::JoinPath(scenario.root, L"probe-loaded.txt");
    SetEnvironmentVariableW(L"VQTEST_PLANTED_MARKER", probeMarker.c_str());
    SetEnvironmentVariableW(L"WINEDLLOVERRIDES", OVERRIDES);
    HMODULE planted = LoadLibraryExW(driver::JoinPath(scenario.folder, L"mfsensorgroup.dll").c_str(), nullptr,
                                     LOAD_WITH_ALTERED_SEARCH_PATH);
    SetEnvironmentVariableW(L"VQTEST_PLANTED_MARKER", nullptr);
    ASSERT_NE(planted, nullptr);
    FreeLibrary(planted);
    EXPECT_TRUE(driver::FileExists(probeMarker));
}

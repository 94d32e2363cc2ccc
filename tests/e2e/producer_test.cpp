#include "tests/e2e/e2e_support.h"

#include <regex>

using namespace e2e;

namespace {

const std::wstring OPEN_LINE =
    L"Open Veloquin in OBS/Zoom/Teams to begin \u2014 timing stats appear once a consumer is active.";

std::wstring Quoted(const std::wstring& text) {
    return L"\"" + text + L"\"";
}

std::wstring ExpectedCommandLine(const std::wstring& folder, const std::wstring& provider,
                                 const std::wstring& width, const std::wstring& index) {
    std::wstring producer = folder + (folder.back() == L'\\' ? L"" : L"\\") + driver::PRODUCER_EXE;
    return Quoted(producer) + L" \"--camera\" \"--no-mirror\" \"--provider\" " + Quoted(provider) +
           L" \"--max-width\" " + Quoted(width) + L" \"--camera-index\" " + Quoted(index) +
           L" \"--repo-root\" " + Quoted(folder);
}

bool Idle(const driver::Launcher& launcher) {
    return driver::IsEnabled(launcher, IDC_START_PRODUCER) && !driver::IsEnabled(launcher, IDC_STOP_PRODUCER);
}

bool Running(const driver::Launcher& launcher) {
    return !driver::IsEnabled(launcher, IDC_START_PRODUCER) && driver::IsEnabled(launcher, IDC_STOP_PRODUCER);
}

size_t CountOf(const std::vector<std::wstring>& lines, const std::wstring& line) {
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}

// Starts the producer and gives back the pane lines from its start line on, once it has stopped.
std::vector<std::wstring> RunToEnd(const driver::Launcher& launcher) {
    size_t before = driver::PaneLines(launcher).size();
    EXPECT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    DWORD start = GetTickCount();
    std::vector<std::wstring> lines;
    do {
        lines = driver::PaneLines(launcher);
        if (lines.size() > before && lines.back() == L"Producer stopped.") {
            break;
        }
        Sleep(50);
    } while (GetTickCount() - start < 15000);
    return std::vector<std::wstring>(lines.begin() + static_cast<long>(std::min(before, lines.size())),
                                     lines.end());
}

void Select(const driver::Launcher& launcher, int id, int position) {
    SendMessageW(driver::Control(launcher, id), CB_SETCURSEL, static_cast<WPARAM>(position), 0);
}

} // namespace

TEST(Producer, CommandLineAndEnvironmentFollowThePanel) {
    Scenario scenario(L"producer-settings");
    scenario.Devices(L"device\nname Veloquin\ndevice\nname USB Webcam\ndevice\nname Front Camera\n");
    scenario.Set(L"VQTEST_PRODUCER_MODE", L"silent");
    driver::Launcher launcher;
    scenario.Start(launcher, 3);

    std::vector<std::wstring> lines = RunToEnd(launcher);
    std::wstring pid = scenario.Recorded(L"pid");
    EXPECT_EQ(lines,
              (std::vector<std::wstring>{L"Producer started (pid " + pid +
                                             L"): provider=directml width=1280 camera-index=1 d3d-capture=on",
                                         OPEN_LINE, L"Producer stopped."}));
    EXPECT_EQ(scenario.Recorded(L"cmdline"),
              ExpectedCommandLine(scenario.folder, L"directml", L"1280", L"1"));
    EXPECT_EQ(scenario.Recorded(L"d3d"), L"1");
    EXPECT_EQ(scenario.Recorded(L"cwd"), scenario.folder);
    EXPECT_TRUE(Idle(launcher));

    Select(launcher, IDC_PROVIDER, 1);
    Select(launcher, IDC_MAX_WIDTH, 3);
    Select(launcher, IDC_CAMERA, 2);
    ASSERT_TRUE(driver::Click(launcher, IDC_D3D_CAPTURE));
    DeleteFileW(scenario.record.c_str());
    lines = RunToEnd(launcher);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], L"Producer started (pid " + scenario.Recorded(L"pid") +
                            L"): provider=cpu width=1920 camera-index=2 d3d-capture=off");
    EXPECT_EQ(scenario.Recorded(L"cmdline"), ExpectedCommandLine(scenario.folder, L"cpu", L"1920", L"2"));
    EXPECT_EQ(scenario.Recorded(L"d3d"), L"0") << "the variable follows the check box on every start";

    // Nothing selected falls back to the defaults.
    Select(launcher, IDC_PROVIDER, -1);
    Select(launcher, IDC_MAX_WIDTH, -1);
    Select(launcher, IDC_CAMERA, -1);
    DeleteFileW(scenario.record.c_str());
    lines = RunToEnd(launcher);
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(std::regex_match(lines[0], std::wregex(L"Producer started \\(pid \\d+\\): provider=directml "
                                                       L"width=1280 camera-index=0 d3d-capture=off")));
    EXPECT_EQ(scenario.Recorded(L"cmdline"),
              ExpectedCommandLine(scenario.folder, L"directml", L"1280", L"0"));
}

TEST(Producer, FoldersWithBlanksAndDriveRootsStayOneArgument) {
    Scenario blank(L"producer-blank", true, true, L"my launcher folder");
    blank.Set(L"VQTEST_PRODUCER_MODE", L"silent");
    driver::Launcher launcher;
    blank.Start(launcher, 0);
    RunToEnd(launcher);
    EXPECT_EQ(blank.Recorded(L"cmdline"), ExpectedCommandLine(blank.folder, L"directml", L"1280", L"0"));
    ASSERT_TRUE(driver::Close(launcher));

    Scenario root(L"producer-root", false, false);
    root.Set(L"VQTEST_PRODUCER_MODE", L"silent");
    std::wstring exe = driver::PrepareLauncherFolder(FreshDriveRoot(), false, true);
    driver::Launcher atRoot;
    ASSERT_TRUE(driver::Start(atRoot, exe, root.environment));
    ASSERT_TRUE(driver::WaitForLine(atRoot, Scenario::CountLine(0)));
    RunToEnd(atRoot);
    EXPECT_EQ(root.Recorded(L"cmdline"), ExpectedCommandLine(L"V:\\", L"directml", L"1280", L"0"))
        << "the root's backslash stands right before the closing quote";
    EXPECT_EQ(root.Recorded(L"cwd"), L"V:\\");
}

TEST(Producer, OutputBecomesLinesInOrderThenTheStopLine) {
    Scenario scenario(L"producer-output");
    driver::Launcher launcher;
    scenario.Set(L"VQTEST_PRODUCER_MODE", L"lines");
    scenario.Start(launcher, 0);
    std::vector<std::wstring> lines = RunToEnd(launcher);
    EXPECT_EQ(std::vector<std::wstring>(lines.begin() + std::min<long>(2, static_cast<long>(lines.size())),
                                        lines.end()),
              (std::vector<std::wstring>{L"alpha", L"beta", L"", L"gamma\rdelta", L"last-without-lf\r",
                                         L"Producer stopped."}));

    ASSERT_TRUE(driver::Close(launcher));
    scenario.environment.back().second = L"split";
    driver::Launcher split;
    scenario.Start(split, 0);
    lines = RunToEnd(split);
    EXPECT_EQ(std::vector<std::wstring>(lines.begin() + std::min<long>(2, static_cast<long>(lines.size())),
                                        lines.end()),
              (std::vector<std::wstring>{L"hello world", L"second line", L"Producer stopped."}));

    ASSERT_TRUE(driver::Close(split));
    scenario.environment.back().second = L"stderr";
    driver::Launcher both;
    scenario.Start(both, 0);
    lines = RunToEnd(both);
    EXPECT_EQ(
        std::vector<std::wstring>(lines.begin() + std::min<long>(2, static_cast<long>(lines.size())),
                                  lines.end()),
        (std::vector<std::wstring>{L"to stdout 1", L"to stderr", L"to stdout 2", L"Producer stopped."}));

    // A zero byte ends what the pane takes of that line, its line end included.
    ASSERT_TRUE(driver::Close(both));
    scenario.environment.back().second = L"bytes";
    driver::Launcher bytes;
    scenario.Start(bytes, 0);
    lines = RunToEnd(bytes);
    std::wstring high = L"zero[high[";
    for (int b = 0x80; b <= 0xFF; ++b) {
        high += static_cast<wchar_t>(b);
    }
    high += L"]";
    EXPECT_EQ(std::vector<std::wstring>(lines.begin() + std::min<long>(2, static_cast<long>(lines.size())),
                                        lines.end()),
              (std::vector<std::wstring>{high, L"Producer stopped."}))
        << "one character per byte";
}

TEST(Producer, StopEndsItAndTheButtonsFollowTheState) {
    Scenario scenario(L"producer-stop");
    scenario.Set(L"VQTEST_PRODUCER_MODE", L"lines");
    scenario.Set(L"VQTEST_PRODUCER_THEN", L"wait");
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    ASSERT_TRUE(driver::WaitForLine(launcher, L"alpha"));
    EXPECT_TRUE(Running(launcher));
    DWORD pid = scenario.RecordedPid(L"pid");
    EXPECT_TRUE(driver::ProcessAlive(pid));

    ASSERT_TRUE(driver::SendCommand(launcher, IDC_STOP_PRODUCER));
    ASSERT_TRUE(driver::SendCommand(launcher, IDC_STOP_PRODUCER));
    ASSERT_TRUE(driver::WaitForLine(launcher, L"Producer stopped."));
    ASSERT_TRUE(driver::Settle(launcher));
    std::vector<std::wstring> lines = driver::PaneLines(launcher);
    EXPECT_EQ(CountOf(lines, OPEN_LINE), 1u);
    EXPECT_EQ(CountOf(lines, L"Stopping producer..."), 2u);
    EXPECT_EQ(CountOf(lines, L"Producer stopped."), 1u);
    EXPECT_EQ(lines.back(), L"Producer stopped.");
    EXPECT_LT(std::find(lines.begin(), lines.end(), L"last-without-lf\r"),
              std::find(lines.begin(), lines.end(), L"Producer stopped."));
    EXPECT_TRUE(Idle(launcher));
    EXPECT_FALSE(driver::ProcessAlive(pid));

    ASSERT_TRUE(driver::SendCommand(launcher, IDC_STOP_PRODUCER));
    ASSERT_TRUE(driver::Settle(launcher));
    EXPECT_EQ(driver::PaneLines(launcher).size(), lines.size()) << "stop with nothing running says nothing";

    DeleteFileW(scenario.record.c_str());
    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    EXPECT_NE(scenario.Recorded(L"pid"), std::to_wstring(pid)) << "a new producer after the last one ended";
    EXPECT_TRUE(Running(launcher));
}

TEST(Producer, ClosingTakesTheProducerDown) {
    Scenario scenario(L"producer-close");
    scenario.Set(L"VQTEST_PRODUCER_MODE", L"demo");
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    DWORD pid = scenario.RecordedPid(L"pid");
    ASSERT_TRUE(driver::ProcessAlive(pid));
    DWORD exitCode = 99;
    ASSERT_TRUE(driver::Close(launcher, 15000, &exitCode));
    EXPECT_EQ(exitCode, 0u);
    EXPECT_FALSE(driver::ProcessAlive(pid));
}

TEST(Producer, StopAlsoEndsAChildHoldingThePipe) {
    Scenario scenario(L"producer-stop-child");
    scenario.Set(L"VQTEST_PRODUCER_MODE", L"grandchild");
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    DWORD child = scenario.RecordedPid(L"child");
    ASSERT_TRUE(driver::WaitForLine(launcher, L"parent done"));
    ASSERT_TRUE(driver::Click(launcher, IDC_STOP_PRODUCER));
    ASSERT_TRUE(driver::WaitForLine(launcher, L"Producer stopped.", 10000));
    EXPECT_FALSE(driver::ProcessAlive(child));
    EXPECT_TRUE(Idle(launcher));
}

#include "tests/e2e/e2e_support.h"

#include <regex>

using namespace e2e;

namespace {

const std::wstring OPEN_LINE =
    L"Open Veloquin in OBS/Zoom/Teams to begin \u2014 timing stats appear once a consumer is active.";

// One value from the record the stand-in producer writes at its start; waits for it to appear.
std::wstring Recorded(const Scenario& scenario, const std::wstring& name, DWORD timeoutMs = 10000) {
    DWORD start = GetTickCount();
    do {
        for (const std::wstring& line : driver::ReadUtf8Lines(scenario.record)) {
            if (line.rfind(name + L"=", 0) == 0) {
                return line.substr(name.size() + 1);
            }
        }
        Sleep(50);
    } while (GetTickCount() - start < timeoutMs);
    return L"(not recorded)";
}

std::wstring Quoted(const std::wstring& text) {
    return L"\"" + text + L"\"";
}

std::wstring ExpectedCommandLine(const std::wstring& folder, const std::wstring& provider, const std::wstring& width,
                                 const std::wstring& index) {
    std::wstring producer = folder + (folder.back() == L'\\' ? L"" : L"\\") + driver::PRODUCER_EXE;
    return Quoted(producer) + L" \"--camera\" \"--no-mirror\" \"--provider\" " + Quoted(provider) +
           L" \"--max-width\" " + Quoted(width) + L" \"--camera-index\" " + Quoted(index) + L" \"--repo-root\" " +
           Quoted(folder);
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
    return std::vector<std::wstring>(lines.begin() + static_cast<long>(std::min(before, lines.size())), lines.end());
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
    std::wstring pid = Recorded(scenario, L"pid");
    EXPECT_EQ(lines, (std::vector<std::wstring>{L"Producer started (pid " + pid +
                                                    L"): provider=directml width=1280 camera-index=1 d3d-capture=on",
                                                OPEN_LINE, L"Producer stopped."}));
    EXPECT_EQ(Recorded(scenario, L"cmdline"), ExpectedCommandLine(scenario.folder, L"directml", L"1280", L"1"));
    EXPECT_EQ(Recorded(scenario, L"d3d"), L"1");
    EXPECT_EQ(Recorded(scenario, L"cwd"), scenario.folder);
    EXPECT_TRUE(Idle(launcher));

    Select(launcher, IDC_PROVIDER, 1);
    Select(launcher, IDC_MAX_WIDTH, 3);
    Select(launcher, IDC_CAMERA, 2);
    ASSERT_TRUE(driver::Click(launcher, IDC_D3D_CAPTURE));
    DeleteFileW(scenario.record.c_str());
    lines = RunToEnd(launcher);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], L"Producer started (pid " + Recorded(scenario, L"pid") +
                            L"): provider=cpu width=1920 camera-index=2 d3d-capture=off");
    EXPECT_EQ(Recorded(scenario, L"cmdline"), ExpectedCommandLine(scenario.folder, L"cpu", L"1920", L"2"));
    EXPECT_EQ(Recorded(scenario, L"d3d"), L"0") << "the variable follows the check box on every start";

    // Nothing selected falls back to the defaults.
    Select(launcher, IDC_PROVIDER, -1);
    Select(launcher, IDC_MAX_WIDTH, -1);
    Select(launcher, IDC_CAMERA, -1);
    DeleteFileW(scenario.record.c_str());
    lines = RunToEnd(launcher);
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(std::regex_match(lines[0], std::wregex(L"Producer started \\(pid \\d+\\): provider=directml "
                                                       L"width=1280 camera-index=0 d3d-capture=off")));
    EXPECT_EQ(Recorded(scenario, L"cmdline"), ExpectedCommandLine(scenario.folder, L"directml", L"1280", L"0"));
}

TEST(Producer, FoldersWithBlanksAndDriveRootsStayOneArgument) {
    Scenario blank(L"producer-blank", true, true, L"my launcher folder");
    blank.Set(L"VQTEST_PRODUCER_MODE", L"silent");
    driver::Launcher launcher;
    blank.Start(launcher, 0);
    RunToEnd(launcher);
    EXPECT_EQ(Recorded(blank, L"cmdline"), ExpectedCommandLine(blank.folder, L"directml", L"1280", L"0"));
    ASSERT_TRUE(driver::Close(launcher));

    Scenario root(L"producer-root", false, false);
    root.Set(L"VQTEST_PRODUCER_MODE", L"silent");
    std::wstring exe = driver::PrepareLauncherFolder(FreshDriveRoot(), false, true);
    driver::Launcher atRoot;
    ASSERT_TRUE(driver::Start(atRoot, exe, root.environment));
    ASSERT_TRUE(driver::WaitForLine(atRoot, Scenario::CountLine(0)));
    RunToEnd(atRoot);
    EXPECT_EQ(Recorded(root, L"cmdline"), ExpectedCommandLine(L"V:\\", L"directml", L"1280", L"0"))
        << "the root's backslash stands right before the closing quote";
    EXPECT_EQ(Recorded(root, L"cwd"), L"V:\\");
}

TEST(Producer, OutputBecomesLinesInOrderThenTheStopLine) {
    Scenario scenario(L"producer-output");
    driver::Launcher launcher;
    scenario.Set(L"VQTEST_PRODUCER_MODE", L"lines");
    scenario.Start(launcher, 0);
    std::vector<std::wstring> lines = RunToEnd(launcher);
    EXPECT_EQ(std::vector<std::wstring>(lines.begin() + std::min<long>(2, static_cast<long>(lines.size())), lines.end()),
              (std::vector<std::wstring>{L"alpha", L"beta", L"", L"gamma\rdelta", L"last-without-lf\r",
                                         L"Producer stopped."}));

    ASSERT_TRUE(driver::Close(launcher));
    scenario.environment.back().second = L"split";
    driver::Launcher split;
    scenario.Start(split, 0);
    lines = RunToEnd(split);
    EXPECT_EQ(std::vector<std::wstring>(lines.begin() + std::min<long>(2, static_cast<long>(lines.size())), lines.end()),
              (std::vector<std::wstring>{L"hello world", L"second line", L"Producer stopped."}));

    ASSERT_TRUE(driver::Close(split));
    scenario.environment.back().second = L"stderr";
    driver::Launcher both;
    scenario.Start(both, 0);
    lines = RunToEnd(both);
    EXPECT_EQ(std::vector<std::wstring>(lines.begin() + std::min<long>(2, static_cast<long>(lines.size())), lines.end()),
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
    EXPECT_EQ(std::vector<std::wstring>(lines.begin() + std::min<long>(2, static_cast<long>(lines.size())), lines.end()),
              (std::vector<std::wstring>{high, L"Producer stopped."}))
        << "one character per byte";
}

TEST(Producer, StopEndsItAndTheButtonsFollowTheState) {
    Scenario scenario(L"producer-stop");
    scenario.Set(L"VQTEST_PRODUCER_MODE", L"lines");
    scenario.Set(L"VQTEST_PRODUCER_THEN", L"wait");
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    ASSERT_TRUE(driver::SendCommand(launcher, IDC_START_PRODUCER));
    ASSERT_TRUE(driver::SendCommand(launcher, IDC_START_PRODUCER)) << "a second start while running is ignored";
    ASSERT_TRUE(driver::WaitForLine(launcher, L"alpha"));
    EXPECT_TRUE(Running(launcher));
    DWORD pid = static_cast<DWORD>(std::stoul(Recorded(scenario, L"pid")));
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
    EXPECT_NE(Recorded(scenario, L"pid"), std::to_wstring(pid)) << "a new producer after the last one ended";
    EXPECT_TRUE(Running(launcher));
}

TEST(Producer, StartFailuresLeaveItIdle) {
    Scenario scenario(L"producer-start-failures", true, false);
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    const std::wstring producer = driver::JoinPath(scenario.folder, driver::PRODUCER_EXE);
    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    EXPECT_EQ(driver::PaneLines(launcher).back(), L"ERROR: producer exe not found next to launcher: " + producer);

    ASSERT_TRUE(driver::CreateFolders(producer));
    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    std::wregex failed(L"ERROR: failed to start producer: \\d+( \\(.+\\))?");
    EXPECT_TRUE(std::regex_match(driver::PaneLines(launcher).back(), failed))
        << driver::WideToUtf8(driver::PaneLines(launcher).back());
    EXPECT_TRUE(Idle(launcher));

    ASSERT_TRUE(driver::DeleteTree(producer));
    ASSERT_TRUE(driver::WriteBytes(producer, "this is not a program\r\n"));
    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    EXPECT_TRUE(std::regex_match(driver::PaneLines(launcher).back(), failed));
    EXPECT_TRUE(Idle(launcher));
    ASSERT_TRUE(driver::Close(launcher));

    // A producer that crashes at once ends like any other.
    Scenario crash(L"producer-crash");
    crash.Set(L"VQTEST_PRODUCER_MODE", L"crash");
    driver::Launcher crashing;
    crash.Start(crashing, 0);
    std::vector<std::wstring> lines = RunToEnd(crashing);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2], L"Producer stopped.");
    EXPECT_TRUE(Idle(crashing));
}

TEST(Producer, ClosingTakesTheProducerAndItsChildrenDown) {
    Scenario scenario(L"producer-close");
    scenario.Set(L"VQTEST_PRODUCER_MODE", L"demo");
    {
        driver::Launcher launcher;
        scenario.Start(launcher, 0);
        ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
        DWORD pid = static_cast<DWORD>(std::stoul(Recorded(scenario, L"pid")));
        ASSERT_TRUE(driver::ProcessAlive(pid));
        DWORD exitCode = 99;
        ASSERT_TRUE(driver::Close(launcher, 15000, &exitCode));
        EXPECT_EQ(exitCode, 0u);
        EXPECT_FALSE(driver::ProcessAlive(pid));
    }

    // A child that inherited the pipe and outlives the producer must neither hang the close nor stay.
    DeleteFileW(scenario.record.c_str());
    scenario.environment.back().second = L"grandchild";
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    DWORD child = static_cast<DWORD>(std::stoul(Recorded(scenario, L"child")));
    ASSERT_TRUE(driver::WaitForLine(launcher, L"child holding"));
    ASSERT_TRUE(driver::WaitForLine(launcher, L"parent done"));
    Sleep(300);
    EXPECT_TRUE(Running(launcher)) << "the pipe is still open, so the producer still counts as running";
    DWORD start = GetTickCount();
    DWORD exitCode = 99;
    ASSERT_TRUE(driver::Close(launcher, 20000, &exitCode));
    EXPECT_LT(GetTickCount() - start, 12000u);
    EXPECT_EQ(exitCode, 0u);
    EXPECT_FALSE(driver::ProcessAlive(child));
}

TEST(Producer, StopAlsoEndsAChildHoldingThePipe) {
    Scenario scenario(L"producer-stop-child");
    scenario.Set(L"VQTEST_PRODUCER_MODE", L"grandchild");
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    DWORD child = static_cast<DWORD>(std::stoul(Recorded(scenario, L"child")));
    ASSERT_TRUE(driver::WaitForLine(launcher, L"parent done"));
    ASSERT_TRUE(driver::Click(launcher, IDC_STOP_PRODUCER));
    ASSERT_TRUE(driver::WaitForLine(launcher, L"Producer stopped.", 10000));
    EXPECT_FALSE(driver::ProcessAlive(child));
    EXPECT_TRUE(Idle(launcher));
}

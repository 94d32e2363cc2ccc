// Faults and bad input, each case through the real launcher. Every test prints a table of case,
// expected and seen, so that one run shows how the launcher held up.
#include "tests/e2e/e2e_support.h"

#include <cstdio>
#include <regex>

using namespace e2e;

namespace {

struct Table {
    std::string title;
    std::vector<std::array<std::string, 4>> rows;
    explicit Table(std::string name) : title(std::move(name)) {}
    void Row(const std::string& name, const std::string& expected, const std::string& seen, bool ok) {
        rows.push_back({name, expected, seen, ok ? "ok" : "FAILED"});
        EXPECT_TRUE(ok) << name << ": expected " << expected << ", seen " << seen;
    }
    ~Table() {
        std::printf("\n%s\n%-44s | %-34s | %-44s | %s\n", title.c_str(), "case", "expected", "seen", "");
        for (const auto& row : rows) {
            std::printf("%-44s | %-34s | %-44s | %s\n", row[0].c_str(), row[1].c_str(), row[2].c_str(),
                        row[3].c_str());
        }
        std::fflush(stdout);
    }
};

std::string Utf8(const std::wstring& text) {
    return driver::WideToUtf8(text);
}

bool Idle(const driver::Launcher& launcher) {
    return driver::IsEnabled(launcher, IDC_START_PRODUCER) && !driver::IsEnabled(launcher, IDC_STOP_PRODUCER);
}

// Waits for the producer's exit to be handled, noting the launcher's largest memory meanwhile.
bool WaitIdle(const driver::Launcher& launcher, DWORD timeoutMs, SIZE_T* peak = nullptr) {
    DWORD start = GetTickCount();
    while (GetTickCount() - start < timeoutMs) {
        if (peak != nullptr) {
            *peak = std::max(*peak, driver::PrivateBytes(launcher));
        }
        if (Idle(launcher)) {
            return true;
        }
        Sleep(50);
    }
    return false;
}

std::string MiB(SIZE_T bytes) {
    return std::to_string(bytes / (1024 * 1024)) + " MiB";
}

// How long the launcher takes to handle a press, in milliseconds.
DWORD PressTime(const driver::Launcher& launcher, int id) {
    DWORD start = GetTickCount();
    return driver::Click(launcher, id, 30000) ? GetTickCount() - start : 30000;
}

std::vector<std::wstring> ProducerLines(const driver::Launcher& launcher) {
    std::vector<std::wstring> lines = driver::PaneLines(launcher);
    auto open = std::find_if(lines.begin(), lines.end(), [](const std::wstring& line) {
        return line.rfind(L"Open Veloquin in OBS", 0) == 0;
    });
    return open == lines.end() ? std::vector<std::wstring>()
                               : std::vector<std::wstring>(open + 1, lines.end());
}

std::wstring Latin1(const std::string& bytes) {
    std::wstring wide;
    for (unsigned char byte : bytes) {
        wide += static_cast<wchar_t>(byte);
    }
    return wide;
}

struct ProducerRun {
    Scenario scenario;
    driver::Launcher launcher;
    ProducerRun(const std::wstring& name, const std::wstring& mode, const std::string& input = std::string())
        : scenario(name) {
        scenario.Set(L"VQTEST_PRODUCER_MODE", mode);
        if (!input.empty()) {
            std::wstring file = driver::JoinPath(scenario.root, L"input.bin");
            EXPECT_TRUE(driver::WriteBytes(file, input));
            scenario.Set(L"VQTEST_PRODUCER_INPUT", file);
        }
        scenario.Start(launcher, 0);
    }
};

} // namespace

TEST(Faults, ProducerOutput) {
    Table table("producer output");
    {
        // Deterministic garbage: every byte but LF, CR and zero, with a line feed now and then.
        std::string garbage;
        std::vector<std::wstring> expected;
        unsigned seed = 12345;
        std::string line;
        for (int i = 0; i < 12000; ++i) {
            seed = seed * 1103515245u + 12345u;
            unsigned char byte = static_cast<unsigned char>(seed >> 16);
            if (byte % 61 == 0) {
                garbage += line + "\n";
                expected.push_back(Latin1(line));
                line.clear();
            } else if (byte != 0 && byte != '\n' && byte != '\r') {
                line += static_cast<char>(byte);
            }
        }
        ProducerRun run(L"faults-garbage", L"file", garbage);
        ASSERT_TRUE(driver::Click(run.launcher, IDC_START_PRODUCER));
        bool idle = WaitIdle(run.launcher, 20000);
        std::vector<std::wstring> seen = ProducerLines(run.launcher);
        expected.push_back(L"Producer stopped.");
        table.Row("binary garbage, " + std::to_string(expected.size() - 1) + " lines", "every line intact",
                  seen == expected ? "every line intact" : std::to_string(seen.size()) + " lines, differing",
                  idle && seen == expected);
    }
    {
        ProducerRun run(L"faults-zero", L"file", std::string("a\0b\nc\n\0\n", 9));
        ASSERT_TRUE(driver::Click(run.launcher, IDC_START_PRODUCER));
        bool idle = WaitIdle(run.launcher, 10000);
        std::vector<std::wstring> seen = ProducerLines(run.launcher);
        std::vector<std::wstring> expected = {L"ac", L"Producer stopped."};
        table.Row("zero bytes", "shown up to the zero", Utf8(seen.empty() ? L"(nothing)" : seen[0]),
                  idle && seen == expected);
    }
    {
        ProducerRun run(L"faults-utf8", L"file",
                        "\xC3\x28\xA0\xA1\xE2\x82\n\xF0\x28\x8C\xBC\n\xED\xA0\x80\n");
        ASSERT_TRUE(driver::Click(run.launcher, IDC_START_PRODUCER));
        bool idle = WaitIdle(run.launcher, 10000);
        std::vector<std::wstring> expected = {L"\u00C3(\u00A0\u00A1\u00E2\u0082", L"\u00F0(\u008C\u00BC",
                                              L"\u00ED\u00A0\u0080", L"Producer stopped."};
        std::vector<std::wstring> seen = ProducerLines(run.launcher);
        table.Row("invalid UTF-8", "one character per byte",
                  seen == expected ? "one character per byte" : "differs", idle && seen == expected);
    }
    {
        ProducerRun run(L"faults-longline", L"longline:10000000");
        SIZE_T baseline = driver::PrivateBytes(run.launcher);
        SIZE_T peak = baseline;
        ASSERT_TRUE(driver::Click(run.launcher, IDC_START_PRODUCER));
        bool idle = WaitIdle(run.launcher, 60000, &peak);
        DWORD press = PressTime(run.launcher, IDC_REFRESH);
        table.Row("10 MB line without LF", "ends; memory bounded",
                  "peak +" + MiB(peak - baseline) + ", press " + std::to_string(press) + " ms",
                  idle && peak - baseline < 64u * 1024 * 1024 && press < 1000);
    }
    {
        ProducerRun run(L"faults-flood", L"flood:200000");
        SIZE_T baseline = driver::PrivateBytes(run.launcher);
        SIZE_T peak = baseline;
        ASSERT_TRUE(driver::Click(run.launcher, IDC_START_PRODUCER));
        bool idle = WaitIdle(run.launcher, 120000, &peak);
        DWORD press = PressTime(run.launcher, IDC_REFRESH);
        std::vector<std::wstring> seen = ProducerLines(run.launcher);
        // Lines that don't fit whole are left out, so short ones may still follow the flood.
        while (!seen.empty() &&
               (seen.back() == L"Producer stopped." || seen.back() == Scenario::CountLine(0))) {
            seen.pop_back();
        }
        bool intact = !seen.empty();
        for (size_t i = 0; i < seen.size() && intact; ++i) {
            std::wstring number = std::to_wstring(i + 1);
            std::wstring prefix = L"flood line " + std::wstring(8 - number.size(), L'0') + number + L" ";
            intact = seen[i].size() == 79 && seen[i].rfind(prefix, 0) == 0;
            if (!intact) {
                std::printf("line %zu damaged: %s\n", i + 1, Utf8(seen[i]).c_str());
            }
        }
        table.Row("flood of 200,000 lines", "responsive; accepted lines intact",
                  std::to_string(seen.size()) + " lines shown " + (intact ? "intact" : "DAMAGED") +
                      ", press " + std::to_string(press) + " ms, peak +" + MiB(peak - baseline),
                  idle && intact && press < 1000 && peak - baseline < 256u * 1024 * 1024);
    }
}

TEST(Faults, ProducerStartUp) {
    Table table("producer start-up");
    Scenario scenario(L"faults-startup", true, false);
    driver::Launcher launcher;
    scenario.Start(launcher, 0);
    const std::wstring producer = driver::JoinPath(scenario.folder, driver::PRODUCER_EXE);
    auto last = [&] { return driver::PaneLines(launcher).back(); };
    std::wregex failed(L"ERROR: failed to start producer: \\d+( \\(.+\\))?");

    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    table.Row("missing file", "not-found ERROR line", Utf8(last()),
              last() == L"ERROR: producer exe not found next to launcher: " + producer && Idle(launcher));

    ASSERT_TRUE(driver::CreateFolders(producer));
    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    table.Row("a folder in its place", "failed-to-start ERROR line", Utf8(last()),
              std::regex_match(last(), failed) && Idle(launcher));

    ASSERT_TRUE(driver::DeleteTree(producer));
    ASSERT_TRUE(driver::WriteBytes(producer, "this is not a program\r\n"));
    ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
    table.Row("a file that is not a program", "failed-to-start ERROR line", Utf8(last()),
              std::regex_match(last(), failed) && Idle(launcher));
    ASSERT_TRUE(driver::Close(launcher));

    for (const wchar_t* mode : {L"crash", L"silent"}) {
        ProducerRun run(std::wstring(L"faults-startup-") + mode, mode);
        ASSERT_TRUE(driver::Click(run.launcher, IDC_START_PRODUCER));
        bool idle = WaitIdle(run.launcher, 10000);
        std::vector<std::wstring> seen = ProducerLines(run.launcher);
        table.Row(
            std::string(mode == std::wstring(L"crash") ? "crashes at once" : "exits before the first read"),
            "Producer stopped.", Utf8(seen.empty() ? L"(nothing)" : seen.back()),
            idle && seen == std::vector<std::wstring>{L"Producer stopped."});
    }
}

TEST(Faults, Paths) {
    Table table("paths");
    ClearServiceLog();
    for (const std::wstring& name :
         {std::wstring(L"folder with blanks"),
          std::wstring(L"\u041a\u0430\u043c\u0435\u0440\u0430 \u30ab\u30e1\u30e9 \u00e9")}) {
        Scenario scenario(L"faults-path-" + std::to_wstring(name.size()), true, true, name);
        scenario.Set(L"VQTEST_PRODUCER_MODE", L"silent");
        driver::Launcher launcher;
        scenario.Start(launcher, 0);
        ASSERT_TRUE(driver::Click(launcher, IDC_REGISTER));
        std::wstring registered;
        DWORD type = 0;
        driver::ReadRegistryString(HKEY_LOCAL_MACHINE, CLSID_KEY + L"\\InprocServer32", nullptr, &registered,
                                   &type);
        ASSERT_TRUE(driver::Click(launcher, IDC_START_PRODUCER));
        bool idle = WaitIdle(launcher, 10000);
        std::wstring folder = scenario.folder;
        bool ok = registered == driver::JoinPath(folder, driver::MEDIA_SOURCE_DLL) && idle &&
                  driver::PaneLines(launcher).front() == L"Veloquin launcher ready. Folder: " + folder &&
                  scenario.Calls(L"SetString VCAM_ATTR_SOURCE_FOLDER " + folder + L" ").size() == 1;
        table.Row("launcher folder \"" + Utf8(name) + "\"", "registered and started there",
                  ok ? "registered and started there" : "path differs: " + Utf8(registered), ok);
    }
    {
        Scenario scenario(L"faults-path-root", true, true);
        std::wstring exe = driver::PrepareLauncherFolder(FreshDriveRoot(), true, false);
        driver::Launcher launcher;
        ASSERT_TRUE(driver::Start(launcher, exe, scenario.environment));
        ASSERT_TRUE(driver::WaitForLine(launcher, Scenario::CountLine(0)));
        ASSERT_TRUE(driver::Click(launcher, IDC_REGISTER));
        std::vector<std::wstring> source = scenario.Calls(L"SetString VCAM_ATTR_SOURCE_FOLDER");
        std::wstring seen = source.empty() ? L"(none)" : source.back();
        table.Row("drive root", "source folder V:\\", Utf8(seen),
                  seen == L"SetString VCAM_ATTR_SOURCE_FOLDER V:\\ -> 0x00000000");
    }
    {
        // The artefact paths pass MAX_PATH although the launcher's own does not (Wine starts no
        // program from a path of 260 characters or more).
        Scenario scenario(L"faults-path-long", false, false);
        std::wstring folder = scenario.root;
        while (folder.size() < 225) {
            folder = driver::JoinPath(folder, L"long-folder");
        }
        std::wstring exe = driver::PrepareLauncherFolder(folder, true, true);
        driver::Launcher launcher;
        ASSERT_TRUE(driver::Start(launcher, exe, scenario.environment));
        ASSERT_TRUE(driver::WaitForLine(launcher, Scenario::CountLine(0)));
        ASSERT_TRUE(driver::Click(launcher, IDC_REGISTER));
        std::wstring registered;
        DWORD type = 0;
        driver::ReadRegistryString(HKEY_LOCAL_MACHINE, CLSID_KEY + L"\\InprocServer32", nullptr, &registered,
                                   &type);
        table.Row(
            "media source path of " + std::to_string(registered.size()) + " characters", "registered whole",
            registered == driver::JoinPath(folder, driver::MEDIA_SOURCE_DLL) ? "registered whole" : "differs",
            registered.size() > MAX_PATH && registered == driver::JoinPath(folder, driver::MEDIA_SOURCE_DLL));
    }
}

TEST(Faults, ServiceLog) {
    Table table("service log");
    const std::wstring registered = L"Registered. Veloquin should now appear in OBS / camera apps.";
    auto registerOnce = [&](const wchar_t* name) {
        Scenario scenario(name);
        driver::Launcher launcher;
        scenario.Start(launcher, 0);
        EXPECT_TRUE(driver::Click(launcher, IDC_REGISTER));
        return LinesFrom(launcher, L"Registering Veloquin virtual camera (COM + device)...").at(1);
    };

    driver::DeleteTree(L"C:\\ProgramData\\Veloquin");
    ASSERT_TRUE(driver::CreateFolders(L"C:\\ProgramData\\Veloquin"));
    ASSERT_TRUE(driver::WriteBytes(L"C:\\ProgramData\\Veloquin\\Logs", "in the way"));
    std::wstring seen = registerOnce(L"faults-log-blocked");
    table.Row("a file named Logs in the folder's place", "Registered.", Utf8(seen.substr(0, 11)),
              seen == registered && !driver::FileExists(SERVICE_LOG));
    ASSERT_TRUE(driver::DeleteTree(L"C:\\ProgramData\\Veloquin\\Logs"));

    ASSERT_TRUE(driver::CreateFolders(L"C:\\ProgramData\\Veloquin\\Logs"));
    ASSERT_TRUE(driver::WriteBytes(SERVICE_LOG, "older line\r\n"));
    HANDLE locked =
        CreateFileW(SERVICE_LOG.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(locked, INVALID_HANDLE_VALUE);
    seen = registerOnce(L"faults-log-locked");
    CloseHandle(locked);
    table.Row("log locked by another writer", "Registered.", Utf8(seen.substr(0, 11)),
              seen == registered && driver::ReadBytes(SERVICE_LOG) == "older line\r\n");

    // With the known folder gone, the variable is next; pointing nowhere, it loses the lines.
    ASSERT_TRUE(MoveFileW(L"C:\\ProgramData", L"C:\\ProgramData.away"));
    SetEnvironmentVariableW(L"ProgramData", L"Q:\\nowhere");
    seen = registerOnce(L"faults-log-nowhere");
    SetEnvironmentVariableW(L"ProgramData", L"C:\\ProgramData");
    ASSERT_TRUE(MoveFileW(L"C:\\ProgramData.away", L"C:\\ProgramData"));
    table.Row("ProgramData pointing nowhere", "Registered.", Utf8(seen.substr(0, 11)), seen == registered);
}

TEST(Faults, Window) {
    Table table("window");
    {
        ProducerRun run(L"faults-close-flood", L"flood:200000");
        ASSERT_TRUE(driver::Click(run.launcher, IDC_START_PRODUCER));
        DWORD pid = run.scenario.RecordedPid(L"pid");
        Sleep(300);
        DWORD start = GetTickCount();
        DWORD exitCode = 99;
        bool closed = driver::Close(run.launcher, 20000, &exitCode);
        DWORD took = GetTickCount() - start;
        table.Row("closing during a flood", "exit 0, producer gone",
                  "exit " + std::to_string(exitCode) + " after " + std::to_string(took) + " ms",
                  closed && exitCode == 0 && pid != 0 && !driver::ProcessAlive(pid));
    }
    {
        ProducerRun run(L"faults-close-grandchild", L"grandchild");
        ASSERT_TRUE(driver::Click(run.launcher, IDC_START_PRODUCER));
        ASSERT_TRUE(driver::WaitForLine(run.launcher, L"parent done"));
        ASSERT_TRUE(driver::WaitForLine(run.launcher, L"child holding"));
        DWORD child = run.scenario.RecordedPid(L"child");
        DWORD start = GetTickCount();
        DWORD exitCode = 99;
        bool closed = driver::Close(run.launcher, 20000, &exitCode);
        DWORD took = GetTickCount() - start;
        table.Row("closing while a grandchild holds the pipe", "closes; grandchild gone",
                  "exit " + std::to_string(exitCode) + " after " + std::to_string(took) + " ms",
                  closed && exitCode == 0 && took < 12000 && child != 0 && !driver::ProcessAlive(child));
    }
    {
        Scenario scenario(L"faults-start-twice");
        scenario.Set(L"VQTEST_PRODUCER_MODE", L"silent");
        scenario.Set(L"VQTEST_PRODUCER_THEN", L"wait");
        driver::Launcher launcher;
        scenario.Start(launcher, 0);
        ASSERT_TRUE(driver::SendCommand(launcher, IDC_START_PRODUCER));
        ASSERT_TRUE(driver::SendCommand(launcher, IDC_START_PRODUCER));
        size_t starts = 0;
        for (const std::wstring& line : driver::PaneLines(launcher)) {
            starts += line.rfind(L"Producer started", 0) == 0 ? 1 : 0;
        }
        table.Row("pressing Start twice quickly", "one producer", std::to_string(starts) + " started",
                  starts == 1);
    }
    {
        ProducerRun run(L"faults-stop-after-end", L"silent");
        ASSERT_TRUE(driver::Click(run.launcher, IDC_START_PRODUCER));
        ASSERT_TRUE(WaitIdle(run.launcher, 10000));
        size_t before = driver::PaneLines(run.launcher).size();
        ASSERT_TRUE(driver::SendCommand(run.launcher, IDC_STOP_PRODUCER));
        ASSERT_TRUE(driver::Settle(run.launcher));
        size_t added = driver::PaneLines(run.launcher).size() - before;
        table.Row("Stop after the producer ended", "nothing happens", std::to_string(added) + " lines added",
                  added == 0 && Idle(run.launcher));
    }
}

#include <gtest/gtest.h>

#include <regex>

#include "tests/driver/driver.h"

using namespace driver;

const std::wstring OPEN =
    L"Open Veloquin in OBS/Zoom/Teams to begin \u2014 timing stats appear once a consumer is active.";

static std::wstring CommandLine(const std::wstring& provider, const std::wstring& width,
                                const std::wstring& index) {
    return LR"("V:\veloquin_windows_retouch_vcam_producer.exe" "--camera" "--no-mirror" "--provider" ")" +
           provider + LR"(" "--max-width" ")" + width + LR"(" "--camera-index" ")" + index +
           LR"(" "--repo-root" "V:\")";
}

static std::wstring Recorded(const fs::path& folder, const std::wstring& name) {
    std::wstring record = Wide(Read(folder / L"producer.txt"));
    std::wsmatch match;
    return std::regex_search(record, match, std::wregex(L"(^|\n)" + name + L"=([^\r\n]*)"))
               ? match[2].str()
               : L"(not recorded)";
}

// Starting, reading, stopping and closing, with the settings of the panel, from the root of a drive.
TEST(Producer, StartStopAndClose) {
    fs::path root = Scenario(L"producer");
    const fs::path drive = L"V:\\", producer = drive / L"veloquin_windows_retouch_vcam_producer.exe";
    fs::remove_all(producer);
    const std::string cameras = "device Veloquin\ndevice USB Webcam\ndevice Front Camera\n";
    Write(root / L"script.txt", cameras);
    SetEnvironmentVariableW(L"VQTEST_PID", std::to_wstring(GetCurrentProcessId()).c_str());
    Launcher launcher;
    ASSERT_TRUE(launcher.Start(drive));
    EXPECT_EQ(launcher.Lines(), (std::vector<std::wstring>{L"Veloquin launcher ready. Folder: V:\\",
                                                           L"Found 3 camera device(s)."}))
        << "elevated: no warning";
    auto pane = [&] { return Utf8(Text(launcher.Item(StatusLog))); };
    auto run = [&](const char* mode) {
        fs::remove(root / L"producer.txt");
        Write(root / L"script.txt", cameras + "producer " + mode + "\n");
        EXPECT_TRUE(launcher.Press(StartProducer));
    };

    run("exit");
    EXPECT_EQ(launcher.Last(), L"ERROR: producer exe not found next to launcher: " + producer.wstring());
    fs::create_directory(producer);
    run("exit");
    EXPECT_TRUE(
        std::regex_match(launcher.Last(), std::wregex(L"ERROR: failed to start producer: \\d+ \\(.+\\)")))
        << Utf8(launcher.Last());
    EXPECT_TRUE(launcher.Idle());
    fs::remove(producer);
    fs::copy_file(BinFolder() / L"standin_producer.exe", producer);

    // Lines cut at LF or CR LF, one CR only, across reads, one character for each byte.
    std::string bytes = "alpha\nbeta\r\n\ngamma\rdelta\ntwo cr\r\r\n" + std::string(5000, 'x') + "\n" +
                        std::string("zero[\0]after\nhigh[", 18);
    std::wstring widened = L"zero[high[";
    for (int byte = 0x80; byte <= 0xFF; ++byte) {
        bytes += static_cast<char>(byte);
        widened += static_cast<wchar_t>(byte);
    }
    Write(root / L"output.bin", bytes + "]\n");
    run("share\nstderr failures go to standard error");
    const std::wstring error = L"failures go to standard error";
    ASSERT_TRUE(WaitFor([&] { return launcher.Last() == error; })) << pane();
    EXPECT_TRUE(launcher.Running());
    EXPECT_EQ(launcher.Lines(10),
              (std::vector<std::wstring>{L"Producer started (pid " + Recorded(root, L"pid") +
                                             L"): provider=directml width=1280 camera-index=1 d3d-capture=on",
                                         OPEN, L"alpha", L"beta", L"", L"gamma\rdelta", L"two cr\r",
                                         std::wstring(5000, L'x'), widened + L"]", error}))
        << "a zero byte ends what the pane takes of its line, line end included";
    EXPECT_EQ(Recorded(root, L"cmdline"), CommandLine(L"directml", L"1280", L"1"));
    EXPECT_EQ(Recorded(root, L"d3d"), L"1");
    EXPECT_EQ(Recorded(root, L"cwd"), L"V:\\");
    // While the test holds the pipe open, the launcher stays stopping however often Stop is pressed.
    DWORD pid = std::stoul(Recorded(root, L"pid"));
    // Esc in the pane, the way a keystroke arrives, does nothing at all.
    PostMessageW(launcher.Item(StatusLog), WM_KEYDOWN, VK_ESCAPE, 0x00010001);
    PostMessageW(launcher.Item(StatusLog), WM_KEYUP, VK_ESCAPE, 0xC0010001);
    ASSERT_TRUE(launcher.Settle() && launcher.Settle()) << "Esc in the pane closed the window";
    EXPECT_TRUE(launcher.Running() && Alive(pid) && launcher.Last() == error);
    ASSERT_TRUE(WaitFor([&] { return Recorded(root, L"shared") != L"(not recorded)"; }));
    HANDLE shared = reinterpret_cast<HANDLE>(std::stoull(Recorded(root, L"shared")));
    ASSERT_TRUE(launcher.Command(StartProducer)); // ignored while one runs
    ASSERT_TRUE(launcher.Command(StopProducer));
    ASSERT_TRUE(launcher.Command(StopProducer));
    EXPECT_TRUE(WaitFor([&] { return !Alive(pid); })) << "Stop left the producer running";
    ASSERT_TRUE(launcher.Settle());
    EXPECT_TRUE(launcher.Running()) << "the buttons wait for the end of the output";
    DWORD written = 0;
    WriteFile(shared, "last without lf\r", 16, &written, nullptr);
    CloseHandle(shared);
    ASSERT_TRUE(WaitFor([&] { return launcher.Idle(); })) << "still running after:\n" << pane();
    EXPECT_EQ(launcher.Lines(5),
              (std::vector<std::wstring>{error, L"Stopping producer...", L"Stopping producer...",
                                         L"last without lf\r", L"Producer stopped."}));
    ASSERT_TRUE(launcher.Command(StopProducer)); // nothing to stop
    ASSERT_TRUE(launcher.Settle());
    EXPECT_EQ(launcher.Last(), L"Producer stopped.");

    fs::remove(root / L"output.bin");
    launcher.Ask(Provider, CB_SETCURSEL, 1);
    launcher.Ask(MaxWidth, CB_SETCURSEL, 3);
    launcher.Ask(Camera, CB_SETCURSEL, 2);
    ASSERT_TRUE(launcher.Press(D3dCapture));
    run("exit");
    ASSERT_TRUE(WaitFor([&] { return launcher.Idle(); })) << "still running after:\n" << pane();
    EXPECT_EQ(launcher.Lines(3),
              (std::vector<std::wstring>{L"Producer started (pid " + Recorded(root, L"pid") +
                                             L"): provider=cpu width=1920 camera-index=2 d3d-capture=off",
                                         OPEN, L"Producer stopped."}));
    EXPECT_EQ(Recorded(root, L"cmdline"), CommandLine(L"cpu", L"1920", L"2"));
    EXPECT_EQ(Recorded(root, L"d3d"), L"0");

    for (int id : {Provider, MaxWidth, Camera}) {
        launcher.Ask(id, CB_SETCURSEL, static_cast<WPARAM>(-1));
    }
    run("exit");
    ASSERT_TRUE(WaitFor([&] { return launcher.Idle(); })) << "still running after:\n" << pane();
    EXPECT_EQ(launcher.Lines(3)[0], L"Producer started (pid " + Recorded(root, L"pid") +
                                        L"): provider=directml width=1280 camera-index=0 d3d-capture=off");
    EXPECT_EQ(Recorded(root, L"cmdline"), CommandLine(L"directml", L"1280", L"0"));

    // A child that inherited the pipe keeps it open after the producer has gone; Stop ends it too.
    run("grandchild");
    ASSERT_TRUE(WaitFor([&] { return launcher.Last() == L"parent done"; })) << pane();
    DWORD child = std::wcstoul(Recorded(root, L"child").c_str(), nullptr, 10);
    EXPECT_TRUE(launcher.Running());
    ASSERT_TRUE(launcher.Press(StopProducer));
    EXPECT_TRUE(WaitFor([&] { return launcher.Idle() && !Alive(child); }))
        << "child or launcher still running";

    // Output that has ended while the producer goes on: it runs until it has gone.
    Write(root / L"output.bin", "quiet\n");
    run("quiet");
    ASSERT_TRUE(WaitFor([&] { return launcher.Last() == L"quiet"; })) << pane();
    ASSERT_TRUE(launcher.Settle());
    EXPECT_TRUE(launcher.Running()) << "the exit waits for the process, not only for the end of its output";
    ASSERT_TRUE(launcher.Press(StopProducer));
    ASSERT_TRUE(WaitFor([&] { return launcher.Idle(); })) << "still running after:\n" << pane();

    // The pane takes what fits under its limit and then no more: the line is cut, not dropped.
    Write(root / L"output.bin", std::string(40000, 'x'));
    run("exit");
    ASSERT_TRUE(WaitFor([&] { return launcher.Idle(); })) << "still running after:\n" << pane();
    std::wstring full = Text(launcher.Item(StatusLog));
    EXPECT_EQ(full.size(), 30000u);
    EXPECT_EQ(full.back(), L'x');

    // The pane takes no more lines, so the producer's record tells when it runs. Closing while the test
    // still holds the pipe, out of reach of the job, ends all the same.
    fs::remove(root / L"output.bin");
    run("share");
    ASSERT_TRUE(WaitFor([&] { return Recorded(root, L"shared") != L"(not recorded)"; }));
    pid = std::stoul(Recorded(root, L"pid"));
    DWORD exitCode = 99;
    EXPECT_TRUE(launcher.Close(&exitCode)) << "closing hangs on a pipe held outside the job";
    EXPECT_EQ(exitCode, 0u);
    EXPECT_FALSE(Alive(pid)) << "the producer goes before the window";
    CloseHandle(reinterpret_cast<HANDLE>(std::stoull(Recorded(root, L"shared"))));
}

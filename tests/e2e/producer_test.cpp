#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <thread>

#include "launcher/status_pane.h"
#include "producer/output_pump.h"
#include "tests/driver/driver.h"

using namespace driver;

const std::wstring OPEN =
    L"Open Veloquin in OBS/Zoom/Teams to begin \u2014 timing stats appear once a consumer is active.";

static std::wstring Recorded(const fs::path& folder, const std::wstring& name) {
    std::wstring record = Wide(Read(folder / L"producer.txt"));
    std::wsmatch match;
    return std::regex_search(record, match, std::wregex(L"(^|\n)" + name + L"=([^\r\n]*)"))
               ? match[2].str()
               : L"(not recorded)";
}

// The line that a start with these settings shows first, once the producer has been handed them.
static std::wstring Started(const fs::path& folder, const std::wstring& provider, const std::wstring& width,
                            const std::wstring& index, bool d3d) {
    EXPECT_EQ(Recorded(folder, L"cmdline"),
              LR"("V:\veloquin_windows_retouch_vcam_producer.exe" "--camera" "--no-mirror" "--provider" ")" +
                  provider + LR"(" "--max-width" ")" + width + LR"(" "--camera-index" ")" + index +
                  LR"(" "--repo-root" "V:\")");
    EXPECT_EQ(Recorded(folder, L"d3d"), d3d ? L"1" : L"0");
    return L"Producer started (pid " + Recorded(folder, L"pid") + L"): provider=" + provider + L" width=" +
           width + L" camera-index=" + index + L" d3d-capture=" + (d3d ? L"on" : L"off");
}

// Starting, reading, stopping and closing, with the settings of the panel, from the root of a drive.
TEST(Producer, StartStopAndClose) {
    fs::path root = Scenario(L"producer");
    const fs::path drive = L"V:\\", producer = drive / L"veloquin_windows_retouch_vcam_producer.exe";
    fs::remove_all(producer);
    const std::string cameras = "device Veloquin\ndevice USB Webcam\ndevice Front Camera\n";
    Write(root / L"script.txt", cameras);
    SetEnvironmentVariableW(L"VQTEST_PID", std::to_wstring(GetCurrentProcessId()).c_str());
    Launcher launcher, holder;
    const Launcher* starter = &launcher;
    ASSERT_TRUE(launcher.Start(drive));
    EXPECT_EQ(launcher.Lines(), (std::vector<std::wstring>{L"Veloquin launcher ready. Folder: V:\\",
                                                           L"Found 3 camera device(s)."}))
        << "elevated: no warning";
    auto pane = [&] { return Utf8(Text(launcher.Item(StatusLog))); };
    // Started by a press, or by the user's own click or key.
    auto run = [&](const char* mode, const std::function<bool()>& press = nullptr) {
        fs::remove(root / L"producer.txt");
        Write(root / L"script.txt", cameras + "producer " + mode + "\n");
        EXPECT_TRUE(press ? press() : starter->Press(StartProducer));
    };
    // A producer that hands the test a copy of its pipe's write end, to hold and write to.
    DWORD pid = 0, written = 0;
    HANDLE shared = nullptr;
    auto share = [&](const char* script, const std::function<bool()>& press = nullptr) {
        run(script, press);
        EXPECT_TRUE(WaitFor([&] { return Recorded(root, L"shared") != L"(not recorded)"; }));
        pid = std::stoul(Recorded(root, L"pid"));
        shared = reinterpret_cast<HANDLE>(std::stoull(Recorded(root, L"shared")));
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

    // Lines cut at LF or CR LF, one CR only, one character for each byte, a zero as a blank.
    Write(root / L"output.bin", "alpha\nbeta\r\n\ngamma\rdelta\ntwo cr\r\r\n" + std::string(200, 'x') + "\n" +
                                    std::string("zero[\0]after\nhigh[\x80\xC3\xFF]\n", 23));
    share("share\nstderr failures go to standard error");
    const std::wstring error = L"failures go to standard error";
    ASSERT_TRUE(WaitFor([&] { return launcher.Last() == error; })) << pane();
    EXPECT_TRUE(launcher.Running());
    EXPECT_EQ(launcher.Lines(11),
              (std::vector<std::wstring>{Started(root, L"directml", L"1280", L"1", true), OPEN, L"alpha",
                                         L"beta", L"", L"gamma\rdelta", L"two cr\r", std::wstring(200, L'x'),
                                         L"zero[ ]after", L"high[\x80\xC3\xFF]", error}));
    EXPECT_EQ(Recorded(root, L"cwd"), L"V:\\");
    // Esc in the pane, the way a keystroke arrives, does nothing at all.
    PostMessageW(launcher.Item(StatusLog), WM_KEYDOWN, VK_ESCAPE, 0x00010001);
    PostMessageW(launcher.Item(StatusLog), WM_KEYUP, VK_ESCAPE, 0xC0010001);
    ASSERT_TRUE(launcher.Settle() && launcher.Settle()) << "Esc in the pane closed the window";
    EXPECT_TRUE(launcher.Running() && Alive(pid) && launcher.Last() == error);
    WriteFile(shared, "zero at its end\0\n", 17, &written, nullptr);
    ASSERT_TRUE(WaitFor([&] { return launcher.Last() == L"zero at its end "; }));
    // While the test holds the pipe open, the launcher stays stopping however often Stop is pressed.
    ASSERT_TRUE(launcher.Command(StartProducer)); // ignored while one runs
    ASSERT_TRUE(launcher.Command(StopProducer));
    ASSERT_TRUE(launcher.Command(StopProducer));
    EXPECT_TRUE(WaitFor([&] { return !Alive(pid); })) << "Stop left the producer running";
    ASSERT_TRUE(launcher.Settle());
    EXPECT_TRUE(launcher.Running()) << "the buttons wait for the end of the output";
    WriteFile(shared, "last\0without lf\r", 16, &written, nullptr);
    CloseHandle(shared);
    ASSERT_TRUE(WaitFor([&] { return launcher.Idle(); })) << "still running after:\n" << pane();
    EXPECT_EQ(launcher.Lines(5), (std::vector<std::wstring>{L"zero at its end ", L"Stopping producer...",
                                                            L"Stopping producer...", L"last without lf\r",
                                                            L"Producer stopped."}));
    ASSERT_TRUE(launcher.Command(StopProducer)); // nothing to stop
    ASSERT_TRUE(launcher.Settle());
    EXPECT_EQ(launcher.Last(), L"Producer stopped.");

    // A producer that writes UTF-16: a blank for every zero, and every line on its own.
    Write(root / L"output.bin", std::string("a\0b\0\r\0\n\0c\0\n\0", 12));
    launcher.Ask(Provider, CB_SETCURSEL, 1);
    launcher.Ask(MaxWidth, CB_SETCURSEL, 3);
    launcher.Ask(Camera, CB_SETCURSEL, 2);
    ASSERT_TRUE(launcher.Press(D3dCapture));
    run("exit");
    ASSERT_TRUE(WaitFor([&] { return launcher.Idle(); })) << "still running after:\n" << pane();
    EXPECT_EQ(launcher.Lines(6), (std::vector<std::wstring>{Started(root, L"cpu", L"1920", L"2", false), OPEN,
                                                            L"a b \r ", L" c ", L" ", L"Producer stopped."}));
    fs::remove(root / L"output.bin");

    for (int id : {Provider, MaxWidth, Camera}) {
        launcher.Ask(id, CB_SETCURSEL, static_cast<WPARAM>(-1));
    }
    run("exit");
    ASSERT_TRUE(WaitFor([&] { return launcher.Idle(); })) << "still running after:\n" << pane();
    EXPECT_EQ(launcher.Lines(3)[0], Started(root, L"directml", L"1280", L"0", false));

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

    // More than the pane holds, in short lines, then in characters (bursts, and lines of carriage returns
    // alone); then a line of 300,000 characters, which shows as consecutive pane lines. Meanwhile the window
    // answers, and the pane keeps the newest whole lines in order, within both bounds.
    auto pieces = [](const std::wstring& line) {
        std::wstring shown;
        for (size_t at = 0; at < line.size(); at += PRODUCER_LINE_LIMIT) {
            shown += line.substr(at, PRODUCER_LINE_LIMIT) + L"\r\n";
        }
        return shown;
    };
    std::string blob;
    for (int i = 0; blob.size() < 300000; ++i) {
        blob += std::to_string(i) + ",";
    }
    blob.resize(300000);
    for (size_t part : {0, 1, 2}) {
        std::string bytes;
        std::wstring shown; // as the pane shows them
        for (int i = 0; part == 1 ? bytes.size() < STATUS_PANE_CAPACITY * 3 / 2 : part == 0 && i < 20000;
             ++i) {
            std::string line = "burst " + std::to_string(i) + std::string(part * 64, '.');
            bytes += line + "\n";
            shown += Wide(line) + L"\r\n";
        }
        if (part == 1) {
            bytes += std::string(700, '\r') + "\nlast\n";
            shown += pieces(std::wstring(699, L'\r')) + L"last\r\n";
        } else if (part == 2) {
            bytes = blob + "\nafter\n";
            shown = pieces(Wide(blob)) + L"after\r\n";
        }
        Write(root / L"output.bin", bytes);
        run("exit");
        ULONGLONG worst = 0;
        ASSERT_TRUE(WaitFor([&] {
            ULONGLONG sent = GetTickCount64();
            Send(launcher.window, WM_NULL);
            worst = std::max(worst, GetTickCount64() - sent);
            return launcher.Idle();
        })) << "still running";
        EXPECT_LT(worst, 1000u) << "the window froze while it took the output of part " << part;
        std::wstring full = Text(launcher.Item(StatusLog));
        shown += L"Producer stopped.\r\n";
        EXPECT_TRUE(full.size() <= STATUS_PANE_CAPACITY &&
                    size_t(std::count(full.begin(), full.end(), L'\n')) <= STATUS_PANE_LINE_CAPACITY);
        EXPECT_TRUE(part < 2 ? full.starts_with(L"burst ") && shown.ends_with(full) : full.ends_with(shown))
            << "part " << part << ": " << Utf8(full.substr(full.size() - 60));
    }

    // Reading while lines come: a scrolled-back view stays on its text (the first it shows), with or
    // without a selection, and a selection whose text went moves to the top.
    fs::remove(root / L"output.bin");
    share("share");
    // Lines that the test writes into the producer's pipe itself, until the last is in the pane.
    auto print = [&](const std::string& word, size_t count, size_t dots = 0, bool shown = true) {
        std::string bytes, line;
        for (size_t i = 0; i < count; ++i) {
            line = word + std::to_string(i) + std::string(dots, '.');
            bytes += line + "\n";
        }
        return WriteFile(shared, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
               (!shown || WaitFor([&] { return launcher.Last() == Wide(line); }));
    };
    HWND log = launcher.Item(StatusLog);
    auto view = [&] {
        DWORD start = 0, end = 0;
        Send(log, EM_GETSEL, reinterpret_cast<WPARAM>(&start), reinterpret_cast<LPARAM>(&end));
        std::wstring text = Text(log);
        size_t first = static_cast<size_t>(Send(log, EM_LINEINDEX, Send(log, EM_GETFIRSTVISIBLELINE)));
        return std::make_tuple(start, end, text.substr(start, end - start), text.substr(first, 20));
    };
    ASSERT_TRUE(print("kept ", 30));
    std::wstring text = Text(log);
    // The user selects, then scrolls: selecting scrolls to the caret.
    auto select = [&](size_t start, size_t end) {
        Send(log, EM_SETSEL, start, end);
        Send(log, EM_LINESCROLL, 0,
             Send(log, EM_LINEFROMCHAR, text.find(L"kept 2")) - Send(log, EM_GETFIRSTVISIBLELINE));
        return view();
    };
    auto before = select(text.find(L"kept 5"), text.find(L"kept 5"));
    ASSERT_TRUE(print("more ", 20));
    EXPECT_EQ(view(), before);
    before = select(0, 10);
    ASSERT_TRUE(print("old lines go ", (STATUS_PANE_CAPACITY - text.size()) / 50 + 10, 50));
    EXPECT_EQ(view(), std::make_tuple(DWORD{0}, DWORD{0}, std::wstring(), std::get<3>(before)))
        << "the view stays on its text; the selection's text has gone";
    // While the user drags a selection the output waits, and goes on once the button is up. The write
    // returns once the reader has read most of it, so its first wake has been posted before the Settle.
    PostMessageW(log, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(4, 4));
    ASSERT_TRUE(launcher.Settle());
    std::wstring last = launcher.Last();
    ASSERT_TRUE(print("dragged ", 1000, 90, false) && launcher.Settle());
    EXPECT_EQ(launcher.Last(), last) << "shown while the button was down";
    PostMessageW(log, WM_LBUTTONUP, 0, MAKELPARAM(4, 4));
    EXPECT_TRUE(WaitFor([&] { return launcher.Last() == L"dragged 999" + std::wstring(90, L'.'); }));
    // The row of the point at the foot of the pane is the last one.
    auto endShown = [&] {
        RECT client = {};
        GetClientRect(log, &client);
        LRESULT foot = Send(log, EM_CHARFROMPOS, 0, MAKELPARAM(2, client.bottom - 3));
        return HIWORD(foot) + 1 >= Send(log, EM_GETLINECOUNT);
    };
    // A selection holds the view in the focused pane, and in the background, which keeps the focus for it.
    text = Text(log);
    Send(log, EM_SETSEL, text.rfind(L"dragged 998"), text.rfind(L"dragged 999"));
    Send(log, EM_LINESCROLL, 0, 1000);
    before = view();
    HWND other = CreateWindowExW(0, L"STATIC", L"other", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 200, 100,
                                 nullptr, nullptr, nullptr, nullptr);
    ASSERT_TRUE(SetForegroundWindow(other) && WaitFor([&] { return GetForegroundWindow() == other; }));
    ASSERT_TRUE(endShown() && print("background ", 40));
    ASSERT_TRUE(SetForegroundWindow(launcher.window));
    EXPECT_TRUE(WaitFor([&] { return launcher.Focus() == log; }))
        << "the focus did not come back to the pane";
    DestroyWindow(other);
    ASSERT_TRUE(print("focused ", 40));
    EXPECT_EQ(view(), before);
    // With the real mouse, Stop and then Start: each hands the focus to the other, so that Space presses it,
    // and the pane follows again.
    HWND start = launcher.Item(StartProducer), stop = launcher.Item(StopProducer);
    auto stopped = [&](const std::function<bool()>& press) {
        bool pressed = press() && WaitFor([&] { return launcher.Last() == L"Stopping producer..."; });
        CloseHandle(shared);
        return pressed && WaitFor([&] { return launcher.Idle(); });
    };
    ASSERT_TRUE(stopped([&] { return Click(stop); }));
    EXPECT_EQ(launcher.Focus(), start);
    share("share", [&] { return Click(start); });
    EXPECT_EQ(launcher.Focus(), stop);
    ASSERT_TRUE(print("follow ", 40));
    EXPECT_TRUE(endShown());
    EXPECT_EQ(std::get<2>(view()), std::get<2>(before));
    ASSERT_TRUE(stopped([] { return Key(VK_SPACE); }));
    EXPECT_EQ(launcher.Focus(), start);
    share("share", [] { return Key(VK_SPACE); });
    EXPECT_EQ(launcher.Focus(), stop);
    Send(log, EM_LINESCROLL, 0, -1000);
    ASSERT_TRUE(launcher.Press(Refresh) && launcher.Settle());
    EXPECT_TRUE(launcher.Last() == L"Found 3 camera device(s)." && endShown());
    // Steady output into the full pane, a numbered line about every millisecond: the pane is drawn.
    std::atomic<bool> steady = true;
    std::thread ticks([&] {
        for (DWORD i = 0, done = 0; steady; ++i, Sleep(1)) {
            std::string line = "tick " + std::to_string(i) + "\n";
            WriteFile(shared, line.data(), static_cast<DWORD>(line.size()), &done, nullptr);
        }
    });
    for (int look = 0; look < 3; ++look) {
        std::vector<DWORD> seen = Pixels(log);
        EXPECT_TRUE(WaitFor([&] { return Pixels(log) != seen; })) << "the pane is not drawn";
    }
    steady = false;
    ticks.join();
    // Output that a drag holds when the producer ends shows before its end.
    PostMessageW(log, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(4, 4));
    ASSERT_TRUE(launcher.Settle() && print("held ", 3, 0, false));
    ASSERT_TRUE(launcher.Command(StopProducer)); // by a command, which takes no capture
    CloseHandle(shared);
    ASSERT_TRUE(WaitFor([&] { return launcher.Idle(); }));
    EXPECT_EQ(launcher.Lines(2), (std::vector<std::wstring>{L"held 2", L"Producer stopped."}));
    PostMessageW(log, WM_LBUTTONUP, 0, MAKELPARAM(4, 4));
    share("share");

    // Closing while the test still holds the pipe, out of reach of the job, ends all the same.
    DWORD exitCode = 99;
    EXPECT_TRUE(launcher.Close(&exitCode)) << "closing hangs on a pipe held outside the job";
    EXPECT_EQ(exitCode, 0u);
    EXPECT_FALSE(Alive(pid)) << "the producer goes before the window";
    CloseHandle(shared);

    // Held back by a drag, a flood fills the reader's room, and the producer waits for the reader. A drag
    // that a message sent to the pane ends, with nothing else for the launcher, lets it go on. Closing
    // while the reader waits for room, as it does during a flood, ends at once.
    ASSERT_TRUE(holder.Start(drive));
    starter = &holder;
    share("share");
    HWND held = holder.Item(StatusLog);
    PostMessageW(held, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(4, 4));
    EXPECT_TRUE(holder.Settle());
    std::atomic<size_t> flooded = 0;
    std::thread flood([&] {
        std::string lines(4096, 'x');
        lines.back() = '\n';
        for (DWORD done = 0; WriteFile(shared, lines.data(), 4096, &done, nullptr); flooded += done) {
        }
    });
    EXPECT_TRUE(WaitFor([&] { return flooded > PRODUCER_OUTPUT_BACKLOG / 2; }));
    EXPECT_LT(flooded, PRODUCER_OUTPUT_BACKLOG + 65536) << "read on past the room";
    Send(held, WM_CANCELMODE);
    EXPECT_TRUE(WaitFor([&] { return flooded > 4 * PRODUCER_OUTPUT_BACKLOG; })) << "held after the drag";
    ULONGLONG closing = GetTickCount64();
    if (!holder.Close(&exitCode)) {
        TerminateProcess(holder.process.hProcess, 1); // so that the pipe breaks for the flood to end
    }
    EXPECT_LT(GetTickCount64() - closing, 5000u) << "the close gave up on a reader waiting for room";
    EXPECT_EQ(exitCode, 0u);
    EXPECT_FALSE(Alive(pid));
    flood.join();
    CloseHandle(shared);
}

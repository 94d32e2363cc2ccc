// Figures for the producer's output on its way to the status pane of the real launcher: a flood's
// throughput and memory, and the latency from the producer's write to the pane, into a fresh pane and
// into a full one; with the raw pipe and one post per line as references. Prints figures only.
// Started by the launcher as its producer, the same program prints what %VQTEST_DIR%\mode.txt asks.
#include <windows.h>
#include <psapi.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <thread>
#include <vector>

#include "launcher/control_ids.h"
#include "launcher/launcher_state.h"
#include "launcher/status_pane.h"
#include "producer/output_pump.h"
#include "tests/driver/driver.h"

namespace {

constexpr size_t REFERENCE_LINES = 100000;
constexpr size_t LINE_BYTES = 80;
constexpr size_t LATENCY_LINES = 1000;
constexpr size_t FLOOD_LINES = 1000000;
// "L", six digits, a blank, the stamp and a line feed, which the pane shows as CR LF.
constexpr size_t LATENCY_LINE_CHARS = 25;
constexpr size_t LONG_LINE = 300000;
constexpr size_t LONG_BYTES = 10000000;

double Now() {
    LARGE_INTEGER ticks, frequency;
    QueryPerformanceCounter(&ticks);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(ticks.QuadPart) / static_cast<double>(frequency.QuadPart);
}

bool WriteAll(HANDLE pipe, const std::string& bytes) {
    DWORD written = 0;
    return WriteFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) != FALSE;
}

// 80 bytes, numbered from 1.
std::string FloodLine(size_t number) {
    char line[LINE_BYTES + 1];
    std::snprintf(line, sizeof(line), "flood %-73zu\n", number);
    return line;
}

// The producer's side: "flood N" prints N lines in 64 KiB writes; "endless" prints 1,000 lines a write
// until it is ended; "steady" fills the pane, then prints a short line about every millisecond until it
// is ended; "long" prints 10 MB in lines of 300,000 characters without a blank, in 64 KiB writes;
// "progress" rewrites one line with carriage returns about every millisecond for 10 s; "latency N" prints
// N lines of the same length at 500 a second and then writes down when it wrote each.
int Produce() {
    HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    std::string mode = driver::Read(driver::fs::path(driver::Variable(L"VQTEST_DIR")) / L"mode.txt");
    size_t lines = std::strtoul(mode.c_str() + mode.find(' ') + 1, nullptr, 10);
    if (mode == "long") {
        std::string line;
        for (size_t i = 0; line.size() < LONG_LINE; ++i) {
            line += "QUJD" + std::to_string(i);
        }
        line.resize(LONG_LINE);
        line += "\n";
        for (size_t written = 0; written < LONG_BYTES; written += line.size()) {
            for (size_t at = 0; at < line.size(); at += 65536) {
                WriteAll(out, line.substr(at, 65536));
            }
        }
        return 0;
    }
    if (mode == "progress") {
        char bar[64];
        for (double start = Now(), now = start; now - start < 10; now = Now(), Sleep(1)) {
            int percent = static_cast<int>(10 * (now - start));
            std::snprintf(bar, sizeof(bar), "\r%3d%% [%-50s]", percent,
                          std::string(percent / 2, '#').c_str());
            WriteAll(out, bar);
        }
        WriteAll(out, "\ndone\n");
        return 0;
    }
    if (mode == "endless") {
        std::string thousand;
        for (size_t i = 1; i <= 1000; ++i) {
            thousand += FloodLine(i);
        }
        while (WriteAll(out, thousand)) {
        }
        return 0;
    }
    if (mode == "steady") {
        std::string fill;
        for (size_t i = 1; i <= 20000; ++i) {
            fill += "fill " + std::to_string(i) + "\n";
        }
        WriteAll(out, fill);
        for (size_t i = 1; WriteAll(out, "tick " + std::to_string(i) + "\n"); ++i) {
            Sleep(1);
        }
        return 0;
    }
    if (mode.rfind("flood", 0) == 0) {
        std::string chunk;
        for (size_t i = 1; i <= lines; ++i) {
            chunk += FloodLine(i);
            if (chunk.size() >= 65536 || i == lines) {
                WriteAll(out, chunk);
                chunk.clear();
            }
        }
        return 0;
    }
    // The bench reads the pane's length before the first line comes.
    Sleep(300);
    std::vector<double> times(lines);
    double first = Now();
    for (size_t i = 0; i < lines; ++i) {
        while (Now() < first + 0.002 * static_cast<double>(i)) {
            Sleep(0);
        }
        char line[LATENCY_LINE_CHARS + 1];
        times[i] = Now();
        std::snprintf(line, sizeof(line), "L%06zu %016.7f\n", i, times[i]);
        WriteAll(out, line);
    }
    driver::Write(driver::fs::path(driver::Variable(L"VQTEST_DIR")) / L"times.bin",
                  std::string(reinterpret_cast<const char*>(times.data()), lines * sizeof(double)));
    return 0;
}

// What reaches the bench's own window in the posting reference.
size_t received = 0;
bool exited = false;

LRESULT CALLBACK Receive(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_APP_STATUS_LINE) {
        delete reinterpret_cast<std::wstring*>(lParam);
        ++received;
        return 0;
    }
    exited = exited || message == WM_APP_PRODUCER_EXITED;
    return DefWindowProcW(window, message, wParam, lParam);
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Lines per second through a pipe alone, and through one posted message per line, as before batching.
double References() {
    std::string flood;
    for (size_t i = 1; i <= REFERENCE_LINES; ++i) {
        flood += FloodLine(i);
    }
    std::vector<double> raw, posting;
    for (int run = 0; run < 3; ++run) {
        HANDLE readEnd = nullptr, writeEnd = nullptr;
        CreatePipe(&readEnd, &writeEnd, nullptr, 0);
        double start = Now();
        std::thread writer([&] {
            WriteAll(writeEnd, flood);
            CloseHandle(writeEnd);
        });
        char chunk[PRODUCER_READ_CHUNK];
        for (DWORD count = 0; ReadFile(readEnd, chunk, sizeof(chunk), &count, nullptr) && count > 0;) {
        }
        raw.push_back(static_cast<double>(REFERENCE_LINES) / (Now() - start));
        writer.join();
        CloseHandle(readEnd);

        received = 0;
        exited = false;
        start = Now();
        std::thread poster([] {
            for (size_t i = 0; i < REFERENCE_LINES; ++i) {
                PostStatusLine(std::wstring(LINE_BYTES - 1, L'.'));
            }
            PostMessageW(g_launcher.mainWindow, WM_APP_PRODUCER_EXITED, 0, 0);
        });
        for (MSG message; !exited && GetMessageW(&message, nullptr, 0, 0) > 0;) {
            DispatchMessageW(&message);
        }
        posting.push_back(static_cast<double>(received) / (Now() - start));
        poster.join();
    }
    std::printf("references, %zu lines of %zu bytes, median of 3 runs:\n", REFERENCE_LINES, LINE_BYTES);
    std::printf("  raw pipe                %9.0f lines/s\n", Median(raw));
    std::printf("  posting ceiling         %9.0f lines/s (one posted message per line)\n", Median(posting));
    return Median(posting);
}

double PrivateMiB(const driver::Launcher& launcher) {
    PROCESS_MEMORY_COUNTERS counters = {};
    counters.cb = sizeof(counters);
    GetProcessMemoryInfo(launcher.process.hProcess, &counters, sizeof(counters));
    return static_cast<double>(counters.PagefileUsage) / (1024 * 1024);
}

// Once the last part's producer has gone: a part may end as soon as it has seen what it measures, and a
// press meanwhile would go to a disabled Start.
bool Start(const driver::Launcher& launcher, const std::string& mode) {
    driver::Write(driver::fs::path(driver::Variable(L"VQTEST_DIR")) / L"mode.txt", mode);
    return driver::WaitFor([&] { return launcher.Idle(); }) && launcher.Press(driver::StartProducer) &&
           driver::WaitFor([&] { return launcher.Running(); });
}

// A line has reached the pane once the pane's text has grown by its length. Lines that leave the
// front of the pane meanwhile are told by the newest line number in the text.
void Latency(const driver::Launcher& launcher, const char* label) {
    HWND pane = launcher.Item(driver::StatusLog);
    if (!Start(launcher, "latency " + std::to_string(LATENCY_LINES))) {
        std::printf("latency %s: the producer did not start\n", label);
        return;
    }
    std::vector<double> arrivals;
    LRESULT start = driver::Send(pane, WM_GETTEXTLENGTH), last = start;
    for (bool stopped = false; !stopped && arrivals.size() < LATENCY_LINES; Sleep(1)) {
        stopped = launcher.Idle();
        LRESULT length = driver::Send(pane, WM_GETTEXTLENGTH);
        double seen = Now();
        if (length < last) {
            std::wstring text = driver::Text(pane);
            size_t newest = text.rfind(L"\r\nL");
            long index =
                newest == std::wstring::npos ? -1 : std::wcstol(text.c_str() + newest + 3, nullptr, 10);
            start = static_cast<LRESULT>(newest + 2) - index * static_cast<LRESULT>(LATENCY_LINE_CHARS + 1);
        }
        last = length;
        while (arrivals.size() < LATENCY_LINES &&
               length - start >= static_cast<LRESULT>((arrivals.size() + 1) * (LATENCY_LINE_CHARS + 1))) {
            arrivals.push_back(seen);
        }
    }
    std::string written = driver::Read(driver::fs::path(driver::Variable(L"VQTEST_DIR")) / L"times.bin");
    if (arrivals.size() != LATENCY_LINES || written.size() != LATENCY_LINES * sizeof(double)) {
        std::printf("latency %s: %zu of %zu lines seen\n", label, arrivals.size(), LATENCY_LINES);
        return;
    }
    std::vector<double> latencies(LATENCY_LINES);
    for (size_t i = 0; i < LATENCY_LINES; ++i) {
        latencies[i] = arrivals[i] - reinterpret_cast<const double*>(written.data())[i];
    }
    std::sort(latencies.begin(), latencies.end());
    std::printf("latency %s, %zu lines at 500 lines/s: median %.1f ms, p99 %.1f ms, worst %.1f ms\n", label,
                LATENCY_LINES, 1000 * latencies[LATENCY_LINES / 2],
                1000 * latencies[LATENCY_LINES * 99 / 100], 1000 * latencies.back());
}

void Flood(const driver::Launcher& launcher, double ceiling) {
    double baseline = PrivateMiB(launcher), peak = baseline, start = Now();
    if (!Start(launcher, "flood " + std::to_string(FLOOD_LINES))) {
        std::printf("flood: the producer did not start\n");
        return;
    }
    for (; !launcher.Idle() && Now() - start < 600; Sleep(20)) {
        peak = std::max(peak, PrivateMiB(launcher));
    }
    double elapsed = Now() - start, rate = static_cast<double>(FLOOD_LINES) / elapsed;
    std::vector<std::wstring> last = launcher.Lines(2);
    std::wstring expected = driver::Wide(FloodLine(FLOOD_LINES));
    expected.erase(expected.find_last_not_of(L" \n") + 1);
    bool whole = last.size() == 2 && last[0].substr(0, last[0].find_last_not_of(L' ') + 1) == expected &&
                 last[1] == L"Producer stopped.";
    launcher.Settle();
    std::printf(
        "flood, %zu lines of %zu bytes to the pane: %.1f s, %.0f lines/s (%.2f of the posting ceiling)%s\n",
        FLOOD_LINES, LINE_BYTES, elapsed, rate, rate / ceiling, whole ? "" : ", LAST LINES MISSING");
    std::printf(
        "memory during the flood (private bytes): baseline %.1f MiB, peak %.1f MiB (+%.1f), after %.1f "
        "MiB (+%.1f); the pane holds %zu characters\n",
        baseline, peak, peak - baseline, PrivateMiB(launcher), PrivateMiB(launcher) - baseline,
        driver::Text(launcher.Item(driver::StatusLog)).size());
}

// A real click on Stop, through the input queue as the user's own, until Start is enabled again.
std::string ClickStop(const driver::Launcher& launcher) {
    double stop = Now();
    if (!driver::Click(launcher.Item(driver::StopProducer))) {
        return "the click could not be sent";
    }
    while (!launcher.Idle() && Now() - stop < 60) {
        Sleep(1);
    }
    char text[96];
    std::snprintf(text, sizeof(text), "a real click on Stop until Start is enabled: %.0f ms",
                  1000 * (Now() - stop));
    return text;
}

// A real click on the check box, through the input queue as the user's own, until the box looks different
// on the screen.
std::string ClickShown(const driver::Launcher& launcher) {
    HWND box = launcher.Item(driver::D3dCapture);
    std::vector<DWORD> before = driver::Pixels(box);
    double start = Now();
    if (!driver::Click(box)) {
        return "the click could not be sent";
    }
    while (driver::Pixels(box) == before && Now() - start < 60) {
        Sleep(1);
    }
    char text[96];
    std::snprintf(text, sizeof(text), "a real click on the check box shown after %.0f ms",
                  1000 * (Now() - start));
    return text;
}

// Output whose lines the control wraps at a high cost: its throughput, how long the window takes to answer
// a message sent from another process (looks 100 to 150 ms apart, from the start to "Producer stopped."),
// and a real click on the check box, 1 s in.
void Long(const driver::Launcher& launcher, const char* mode, const char* label, double bytes) {
    double start = Now();
    if (!Start(launcher, mode)) {
        std::printf("%s: the producer did not start\n", label);
        return;
    }
    std::vector<double> answers;
    std::string click;
    for (; !launcher.Idle() && Now() - start < 600; Sleep(100 + std::rand() % 51)) {
        double sent = Now();
        driver::Send(launcher.window, WM_NULL);
        answers.push_back(1000 * (Now() - sent));
        if (click.empty() && Now() - start > 1) {
            click = ClickShown(launcher);
        }
    }
    double elapsed = Now() - start;
    char rate[48] = "";
    if (bytes > 0) {
        std::snprintf(rate, sizeof(rate), ", %.0f KB/s into the pane", bytes / elapsed / 1000);
    }
    std::printf(
        "%s: %.1f s until \"Producer stopped.\"%s%s; the window answers a sent message in median %.1f "
        "ms, worst %.1f ms; %s\n",
        label, elapsed, launcher.Last() == L"Producer stopped." ? "" : " (NOT STOPPED)", rate,
        Median(answers), *std::max_element(answers.begin(), answers.end()), click.c_str());
}

// While a producer floods without end: how long the window takes to answer a message sent from another
// process, 40 looks after 2 s of flood, and the time from Stop to "Producer stopped.". The looks are 100
// to 150 ms apart at random: at a fixed spacing they fall in step with the window's own rhythm.
void Responsiveness(const driver::Launcher& launcher, int round) {
    if (!Start(launcher, "endless")) {
        std::printf("endless flood: the producer did not start\n");
        return;
    }
    Sleep(2000);
    std::vector<double> answers;
    for (int look = 0; look < 40; ++look, Sleep(100 + std::rand() % 51)) {
        double sent = Now();
        driver::Send(launcher.window, WM_NULL);
        answers.push_back(1000 * (Now() - sent));
    }
    std::string click = ClickShown(launcher);
    std::printf("endless flood, round %d: the window answers a sent message in median %.1f ms, worst %.1f "
                "ms; %s; %s\n",
                round, Median(answers), *std::max_element(answers.begin(), answers.end()), click.c_str(),
                ClickStop(launcher).c_str());
}

// Steady output into a full pane, a short line about every millisecond: how often the pane's pixels on the
// screen change (looks every 20 ms for 3 s), how long the window takes to answer a sent message, and a
// real click on Stop.
void Steady(const driver::Launcher& launcher, int round) {
    if (!Start(launcher, "steady") ||
        !driver::WaitFor([&] { return launcher.Last().rfind(L"tick ", 0) == 0; })) {
        std::printf("steady output: the producer did not start\n");
        return;
    }
    HWND pane = launcher.Item(driver::StatusLog);
    std::vector<DWORD> seen = driver::Pixels(pane);
    int changes = 0, looks = 150;
    double start = Now(), changed = start, longest = 0;
    for (int look = 0; look < looks; ++look) {
        Sleep(20);
        std::vector<DWORD> now = driver::Pixels(pane);
        if (now != seen) {
            ++changes;
            longest = std::max(longest, Now() - changed);
            changed = Now();
            seen.swap(now);
        }
    }
    longest = std::max(longest, Now() - changed);
    std::vector<double> answers;
    for (int look = 0; look < 20; ++look, Sleep(100 + std::rand() % 51)) {
        double sent = Now();
        driver::Send(launcher.window, WM_NULL);
        answers.push_back(1000 * (Now() - sent));
    }
    std::printf(
        "steady output into a full pane, round %d: the pane changed on %d of %d looks, at most %.0f ms "
        "apart; the window answers a sent message in median %.1f ms, worst %.1f ms; %s\n",
        round, changes, looks, 1000 * longest, Median(answers),
        *std::max_element(answers.begin(), answers.end()), ClickStop(launcher).c_str());
}

} // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc > 1 && std::wcscmp(argv[1], L"--camera") == 0) {
        return Produce();
    }
    // Named parts alone, or all of them.
    auto part = [&](const wchar_t* name) {
        return argc == 1 || std::find_if(argv + 1, argv + argc, [&](const wchar_t* given) {
                                return std::wcscmp(given, name) == 0;
                            }) != argv + argc;
    };
    if (!part(L"latency") && !part(L"flood") && !part(L"endless") && !part(L"steady") && !part(L"long")) {
        std::fputs("usage: pump_bench [latency] [flood] [endless] [steady] [long]\n", stderr);
        return 2;
    }
    double whole = Now();
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = Receive;
    windowClass.lpszClassName = L"PumpBench";
    RegisterClassW(&windowClass);
    g_launcher.mainWindow =
        CreateWindowExW(0, L"PumpBench", L"pump bench", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
    double ceiling = References();

    driver::fs::path folder = driver::Scenario(L"bench");
    driver::fs::copy_file(driver::BinFolder() / L"pump_bench.exe",
                          folder / L"veloquin_windows_retouch_vcam_producer.exe");
    driver::Launcher launcher;
    if (!launcher.Start(folder)) {
        std::printf("the launcher did not start\n");
        return 1;
    }
    if (part(L"latency")) {
        Latency(launcher, "into a fresh pane");
    }
    if (part(L"flood")) {
        Flood(launcher, ceiling);
    }
    if (part(L"latency")) {
        Latency(launcher, "into a full pane");
    }
    for (int round = 1; round <= 2; ++round) {
        if (part(L"endless")) {
            Responsiveness(launcher, round);
        }
        if (part(L"steady")) {
            Steady(launcher, round);
        }
    }
    if (part(L"long")) {
        double lines = std::ceil(static_cast<double>(LONG_BYTES) / (LONG_LINE + 1));
        Long(launcher, "long", "10 MB in lines of 300,000 characters", lines * (LONG_LINE + 1));
        Long(launcher, "progress", "a progress bar rewriting its line about every millisecond for 10 s", 0);
    }
    DWORD exitCode = 0;
    launcher.Close(&exitCode);
    std::printf("bench run: %.0f s\n", Now() - whole);
    return 0;
}

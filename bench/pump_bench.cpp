// Figures for the producer's output on its way to the status pane: throughput of the pipe alone, of
// posting alone and of the real reader thread, latency from the producer's write to the pane, and the
// real launcher's memory under a flood. Prints figures only.
#include <windows.h>
#include <psapi.h>

#include <algorithm>
#include <cwchar>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include "launcher/control_ids.h"
#include "launcher/launcher_state.h"
#include "launcher/status_pane.h"
#include "producer/output_pump.h"
#include "tests/driver/driver.h"

namespace {

constexpr size_t LINES = 200000;
constexpr size_t LINE_BYTES = 80;
constexpr size_t LATENCY_LINES = 1000;
// Enough to show memory under a flood: the peak against the baseline, and what stays. Wine's edit
// control works about 4 ms on each line into a full pane, so the launcher drains some 250 lines a second.
constexpr size_t MEMORY_LINES = 20000;

double Now() {
    LARGE_INTEGER ticks, frequency;
    QueryPerformanceCounter(&ticks);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(ticks.QuadPart) / static_cast<double>(frequency.QuadPart);
}

std::string Flood(size_t lines) {
    std::string line(LINE_BYTES - 1, '.'), bytes;
    line += '\n';
    bytes.reserve(lines * LINE_BYTES);
    for (size_t i = 0; i < lines; ++i) {
        bytes += line;
    }
    return bytes;
}

void WriteAll(HANDLE pipe, const std::string& bytes) {
    DWORD written = 0;
    WriteFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

// What reaches the bench window; with a pane set, each line is appended and timed from the stamp it
// carries.
size_t received = 0;
bool exited = false;
std::vector<double> latencies;

LRESULT CALLBACK Receive(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_APP_STATUS_LINE) {
        std::unique_ptr<std::wstring> line(reinterpret_cast<std::wstring*>(lParam));
        ++received;
        if (g_launcher.statusPane != nullptr) {
            AppendStatusLine(*line);
            latencies.push_back(Now() - _wtof(line->c_str()));
        }
        return 0;
    }
    exited = exited || message == WM_APP_PRODUCER_EXITED;
    return DefWindowProcW(window, message, wParam, lParam);
}

// Runs the reader thread over a pipe that `write` fills, until its exit message; gives lines per second.
template <typename Writer> double Pump(Writer write) {
    HANDLE readEnd = nullptr, writeEnd = nullptr, ended = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    CreatePipe(&readEnd, &writeEnd, nullptr, 0);
    received = 0;
    exited = false;
    double start = Now();
    std::thread reader(PumpProducerOutput, readEnd, ended, nullptr);
    std::thread writer([&] {
        write(writeEnd);
        CloseHandle(writeEnd);
    });
    for (MSG message; !exited && GetMessageW(&message, nullptr, 0, 0) > 0;) {
        DispatchMessageW(&message);
    }
    double rate = static_cast<double>(received) / (Now() - start);
    writer.join();
    reader.join();
    CloseHandle(readEnd);
    CloseHandle(ended);
    return rate;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void Throughput() {
    const std::string flood = Flood(LINES);
    std::vector<double> raw, posting, pump;
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
        raw.push_back(static_cast<double>(LINES) / (Now() - start));
        writer.join();
        CloseHandle(readEnd);

        received = 0;
        exited = false;
        start = Now();
        std::thread poster([] {
            for (size_t i = 0; i < LINES; ++i) {
                PostStatusLine(std::wstring(LINE_BYTES - 1, L'.'));
            }
            PostMessageW(g_launcher.mainWindow, WM_APP_PRODUCER_EXITED, 0, 0);
        });
        for (MSG message; !exited && GetMessageW(&message, nullptr, 0, 0) > 0;) {
            DispatchMessageW(&message);
        }
        posting.push_back(static_cast<double>(received) / (Now() - start));
        poster.join();

        pump.push_back(Pump([&](HANDLE pipe) { WriteAll(pipe, flood); }));
    }
    std::printf("throughput, %zu lines of %zu bytes, median of 3 runs:\n", LINES, LINE_BYTES);
    std::printf("  raw pipe        %10.0f lines/s\n", Median(raw));
    std::printf("  posting ceiling %10.0f lines/s\n", Median(posting));
    std::printf("  pump            %10.0f lines/s (%.0f%% of the posting ceiling)\n", Median(pump),
                100.0 * Median(pump) / Median(posting));
}

// Lines stamped with their write time, one every 2 ms, into a pane of the launcher's style and size.
void Latency(HWND host) {
    g_launcher.statusPane =
        CreateWindowExW(0, L"EDIT", L"", 0x50A00844, 10, 284, 560, 230, host, nullptr, nullptr, nullptr);
    // Every line is appended, so that each one costs what a real append costs.
    SendMessageW(g_launcher.statusPane, EM_SETLIMITTEXT, 16 * 1024 * 1024, 0);
    latencies.clear();
    Pump([](HANDLE pipe) {
        double first = Now();
        for (size_t i = 0; i < LATENCY_LINES; ++i) {
            while (Now() < first + 0.002 * static_cast<double>(i)) {
                Sleep(0);
            }
            char line[LINE_BYTES + 1];
            std::snprintf(line, sizeof(line), "%-79.9f\n", Now());
            WriteAll(pipe, line);
        }
    });
    DestroyWindow(g_launcher.statusPane);
    g_launcher.statusPane = nullptr;
    std::sort(latencies.begin(), latencies.end());
    std::printf("latency, %zu lines at 500 lines/s: median %.2f ms, p99 %.2f ms, worst %.2f ms\n",
                latencies.size(), 1000 * latencies[latencies.size() / 2],
                1000 * latencies[latencies.size() * 99 / 100], 1000 * latencies.back());
}

double MiB(const driver::Launcher& launcher) {
    PROCESS_MEMORY_COUNTERS counters = {};
    counters.cb = sizeof(counters);
    GetProcessMemoryInfo(launcher.process.hProcess, &counters, sizeof(counters));
    return static_cast<double>(counters.PagefileUsage) / (1024 * 1024);
}

// The real launcher beside the stand-in producer, which prints a flood and ends.
void Memory(size_t lines) {
    driver::fs::path folder = driver::Scenario(L"bench");
    driver::fs::copy_file(driver::BinFolder() / L"standin_producer.exe",
                          folder / L"veloquin_windows_retouch_vcam_producer.exe");
    driver::Write(folder / L"output.bin", Flood(lines));
    driver::Launcher launcher;
    if (!launcher.Start(folder)) {
        std::printf("memory: the launcher did not start\n");
        return;
    }
    double baseline = MiB(launcher), peak = baseline;
    launcher.Press(driver::StartProducer);
    double start = Now();
    driver::WaitFor(
        [&] {
            peak = std::max(peak, MiB(launcher));
            return launcher.Idle();
        },
        static_cast<DWORD>(std::min<size_t>(60000 + 20 * lines, INFINITE - 1)));
    double drained = Now() - start;
    launcher.Settle();
    std::printf("memory, %zu lines, %s %.0f s: baseline %.1f MiB, peak %.1f MiB, after %.1f MiB\n", lines,
                launcher.Idle() ? "drained in" : "STILL DRAINING after", drained, baseline, peak,
                MiB(launcher));
    DWORD exitCode = 0;
    launcher.Close(&exitCode);
}

} // namespace

int wmain(int argc, wchar_t** argv) {
    bool flood = argc == 3 && std::wcscmp(argv[1], L"--flood") == 0;
    size_t floodLines = flood ? std::wcstoul(argv[2], nullptr, 10) : MEMORY_LINES;
    if ((argc != 1 && !flood) || floodLines == 0) {
        std::fputs("usage: pump_bench [--flood LINES]\n", stderr);
        return 2;
    }
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = Receive;
    windowClass.lpszClassName = L"PumpBench";
    RegisterClassW(&windowClass);
    g_launcher.mainWindow = CreateWindowExW(0, L"PumpBench", L"pump bench", WS_OVERLAPPEDWINDOW | WS_VISIBLE,
                                            0, 0, 600, 560, nullptr, nullptr, nullptr, nullptr);
    Throughput();
    Latency(g_launcher.mainWindow);
    Memory(floodLines);
    return 0;
}

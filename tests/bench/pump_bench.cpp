// Figures for the path of the producer's output into the status pane: the pipe alone, posting
// alone, the real reader thread, write-to-pane latency, and the real launcher's memory under floods.
// Prints figures only. Exits non-zero when a run lost or garbled lines, because its figures would
// then describe different work.
#include <windows.h>
#include <mmsystem.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "launcher/control_ids.h"
#include "launcher/launcher_state.h"
#include "launcher/status_pane.h"
#include "producer/output_pump.h"
#include "tests/driver/launcher_driver.h"

namespace {

constexpr size_t THROUGHPUT_LINES = 200000;
constexpr size_t LINE_BYTES = 80;
constexpr size_t WRITE_CHUNK = 64 * 1024;
constexpr int THROUGHPUT_RUNS = 3;
constexpr int RAW_RUNS = 5;
constexpr size_t LATENCY_LINES = 1000;
constexpr double LATENCY_INTERVAL_MS = 2.0;
// A run that takes longer than this is stuck, not slow.
constexpr DWORD RUN_DEADLINE_MS = 60000;
constexpr DWORD LAUNCHER_DEADLINE_MS = 120000;
constexpr DWORD MEMORY_POLL_MS = 100;
constexpr int START_BUTTON = 1008;
constexpr int STOP_BUTTON = 1009;

bool g_invalid = false;

void Invalid(const char* what) {
    std::printf("INVALID: %s\n", what);
    std::fflush(stdout);
    g_invalid = true;
}

LONGLONG Ticks() {
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return now.QuadPart;
}

double TicksPerSecond() {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(frequency.QuadPart);
}

double Seconds(LONGLONG from, LONGLONG to) {
    return static_cast<double>(to - from) / TicksPerSecond();
}

double Median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// Nearest-rank percentile of sorted values.
double Percentile(const std::vector<double>& sorted, double percent) {
    if (sorted.empty()) {
        return 0;
    }
    size_t rank = static_cast<size_t>(percent / 100.0 * static_cast<double>(sorted.size()) + 0.999999);
    rank = std::clamp<size_t>(rank, 1, sorted.size());
    return sorted[rank - 1];
}

// 1234567.8 -> "1,234,568".
std::string Grouped(double value) {
    const std::string digits = std::to_string(static_cast<long long>(value + 0.5));
    std::string out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0 && digits[i - 1] != '-') {
            out += ',';
        }
        out += digits[i];
    }
    return out;
}

double Mebibytes(SIZE_T bytes) {
    return static_cast<double>(bytes) / (1024.0 * 1024.0);
}

// Line n (from 1) of the flood: "line 00000001 ....", LINE_BYTES bytes including the LF.
std::string FloodBytes(size_t lines) {
    std::string bytes;
    bytes.reserve(lines * LINE_BYTES);
    for (size_t n = 1; n <= lines; ++n) {
        char head[32];
        std::snprintf(head, sizeof head, "line %08llu ", static_cast<unsigned long long>(n));
        std::string line = head;
        line.resize(LINE_BYTES - 1, '.');
        bytes += line;
        bytes += '\n';
    }
    return bytes;
}

// The number a flood line carries, or 0 when the line is not one.
size_t FloodNumber(const std::wstring& line) {
    if (line.size() != LINE_BYTES - 1 || line.compare(0, 5, L"line ") != 0) {
        return 0;
    }
    size_t number = 0;
    for (size_t i = 5; i < 13; ++i) {
        if (line[i] < L'0' || line[i] > L'9') {
            return 0;
        }
        number = number * 10 + static_cast<size_t>(line[i] - L'0');
    }
    return number;
}

bool WriteAll(HANDLE pipe, const std::string& bytes, size_t chunk) {
    size_t done = 0;
    while (done < bytes.size()) {
        const DWORD size = static_cast<DWORD>(std::min(chunk, bytes.size() - done));
        DWORD written = 0;
        if (!WriteFile(pipe, bytes.data() + done, size, &written, nullptr) || written == 0) {
            return false;
        }
        done += written;
    }
    return true;
}

// ---- the receiving window -----------------------------------------------------------------------

// What a measurement does with each line that reaches the window, and with the exit message.
struct Receiver {
    virtual ~Receiver() = default;
    virtual void Line(const std::wstring& line) = 0;
    virtual void Exited() {}
    bool done = false;
};

Receiver* g_receiver = nullptr;
size_t g_strayLines = 0;

LRESULT CALLBACK BenchWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_APP_STATUS_LINE) {
        std::unique_ptr<std::wstring> line(reinterpret_cast<std::wstring*>(lParam));
        if (g_receiver == nullptr) {
            ++g_strayLines;
        } else if (line) {
            g_receiver->Line(*line);
        }
        return 0;
    }
    if (message == WM_APP_PRODUCER_EXITED) {
        if (g_receiver != nullptr) {
            g_receiver->Exited();
        }
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

// Dispatches this thread's messages until the receiver is done; false past the deadline.
bool RunUntilDone(Receiver& receiver) {
    g_receiver = &receiver;
    const ULONGLONG deadline = GetTickCount64() + RUN_DEADLINE_MS;
    while (!receiver.done) {
        if (GetTickCount64() >= deadline) {
            break;
        }
        MsgWaitForMultipleObjectsEx(0, nullptr, 100, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
        MSG message;
        while (!receiver.done && PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            DispatchMessageW(&message);
        }
    }
    g_receiver = nullptr;
    return receiver.done;
}

// Frees whatever a measurement left queued; returns how many lines that was.
size_t DrainStrays() {
    g_strayLines = 0;
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        DispatchMessageW(&message);
    }
    return g_strayLines;
}

HWND CreateBenchWindow(HWND parent, DWORD style, int width, int height) {
    static bool registered = false;
    if (!registered) {
        WNDCLASSW windowClass = {};
        windowClass.lpfnWndProc = BenchWindowProc;
        windowClass.hInstance = GetModuleHandleW(nullptr);
        windowClass.hbrBackground = reinterpret_cast<HBRUSH>(static_cast<INT_PTR>(COLOR_BTNFACE + 1));
        windowClass.lpszClassName = L"PumpBenchWindow";
        registered = RegisterClassW(&windowClass) != 0;
    }
    return CreateWindowExW(0, L"PumpBenchWindow", L"pump bench", style, 0, 0, width, height, parent, nullptr,
                           GetModuleHandleW(nullptr), nullptr);
}

// ---- the pipe alone -----------------------------------------------------------------------------

double RawPipeRun(const std::string& bytes) {
    HANDLE readEnd = nullptr, writeEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, nullptr, 0)) {
        Invalid("raw pipe: CreatePipe failed");
        return 0;
    }
    const LONGLONG start = Ticks();
    std::thread writer([&] {
        WriteAll(writeEnd, bytes, WRITE_CHUNK);
        CloseHandle(writeEnd);
    });
    char chunk[PRODUCER_READ_CHUNK];
    size_t total = 0;
    DWORD count = 0;
    while (ReadFile(readEnd, chunk, sizeof chunk, &count, nullptr) && count > 0) {
        total += count;
    }
    const LONGLONG end = Ticks();
    writer.join();
    CloseHandle(readEnd);
    if (total != bytes.size()) {
        Invalid("raw pipe: the reader did not get every byte");
        return 0;
    }
    return static_cast<double>(THROUGHPUT_LINES) / Seconds(start, end);
}

// ---- posting alone ------------------------------------------------------------------------------

struct CountingReceiver : Receiver {
    size_t expected = 0;
    size_t received = 0;
    size_t wrong = 0;
    LONGLONG lastTicks = 0;
    void Line(const std::wstring& line) override {
        if (line.size() != LINE_BYTES) {
            ++wrong;
        }
        if (++received == expected) {
            lastTicks = Ticks();
            done = true;
        }
    }
};

double PostingRun(HWND window, size_t* retries) {
    CountingReceiver receiver;
    receiver.expected = THROUGHPUT_LINES;
    const std::wstring text(LINE_BYTES, L'x');
    const LONGLONG start = Ticks();
    std::thread poster([&] {
        for (size_t i = 0; i < THROUGHPUT_LINES; ++i) {
            std::wstring* line = new std::wstring(text);
            // A full queue refuses posts (Windows caps it); wait for room so that the ceiling counts every
            // line.
            while (!PostMessageW(window, WM_APP_STATUS_LINE, 0, reinterpret_cast<LPARAM>(line))) {
                ++*retries;
                Sleep(0);
            }
        }
    });
    const bool finished = RunUntilDone(receiver);
    poster.join();
    if (!finished || receiver.wrong != 0) {
        Invalid("posting: lines missing or wrong");
        return 0;
    }
    return static_cast<double>(THROUGHPUT_LINES) / Seconds(start, receiver.lastTicks);
}

// ---- the real reader thread ---------------------------------------------------------------------

struct FloodReceiver : Receiver {
    size_t received = 0;
    size_t wrong = 0;
    LONGLONG exitTicks = 0;
    void Line(const std::wstring& line) override {
        if (FloodNumber(line) != ++received) {
            ++wrong;
        }
    }
    void Exited() override {
        exitTicks = Ticks();
        done = true;
    }
};

double PumpRun(const std::string& bytes) {
    HANDLE readEnd = nullptr, writeEnd = nullptr;
    HANDLE processEnded = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (processEnded == nullptr || !CreatePipe(&readEnd, &writeEnd, nullptr, 0)) {
        Invalid("pump: no pipe or event");
        return 0;
    }
    FloodReceiver receiver;
    std::thread reader([=] { PumpProducerOutput(readEnd, processEnded); });
    const LONGLONG start = Ticks();
    std::thread writer([&] {
        WriteAll(writeEnd, bytes, WRITE_CHUNK);
        CloseHandle(writeEnd);
        SetEvent(processEnded);
    });
    const bool finished = RunUntilDone(receiver);
    writer.join();
    if (!finished) {
        // The pump would wait for ever; let it go so the thread can be joined.
        SetEvent(processEnded);
    }
    reader.join();
    CloseHandle(readEnd);
    CloseHandle(processEnded);
    const size_t strays = DrainStrays();
    if (!finished || receiver.received != THROUGHPUT_LINES || receiver.wrong != 0 || strays != 0) {
        std::printf(
            "pump run: %llu of %llu lines, %llu out of order or garbled, %llu after the exit message\n",
            static_cast<unsigned long long>(receiver.received),
            static_cast<unsigned long long>(THROUGHPUT_LINES),
            static_cast<unsigned long long>(receiver.wrong), static_cast<unsigned long long>(strays));
        Invalid("pump: lines lost, garbled or late");
        return 0;
    }
    return static_cast<double>(THROUGHPUT_LINES) / Seconds(start, receiver.exitTicks);
}

// ---- latency into the pane ----------------------------------------------------------------------

// Writer's stamp, as text in the line, to the moment the line stands in the pane.
struct LatencyReceiver : Receiver {
    std::vector<double> microseconds;
    // The append alone, to tell the pane's own cost from time spent queued.
    std::vector<double> appendMicroseconds;
    size_t wrong = 0;
    double ticksPerMicrosecond = TicksPerSecond() / 1e6;
    void Line(const std::wstring& line) override {
        const size_t at = line.find(L"stamp ");
        const LONGLONG stamp = at == std::wstring::npos ? 0 : _wtoi64(line.c_str() + at + 6);
        const LONGLONG before = Ticks();
        AppendStatusLine(line);
        const LONGLONG appended = Ticks();
        appendMicroseconds.push_back(static_cast<double>(appended - before) / ticksPerMicrosecond);
        if (stamp <= 0 || line.size() != LINE_BYTES - 1) {
            ++wrong;
            return;
        }
        microseconds.push_back(static_cast<double>(appended - stamp) / ticksPerMicrosecond);
    }
    void Exited() override { done = true; }
};

void MeasureLatency() {
    HWND host = CreateBenchWindow(nullptr, WS_OVERLAPPEDWINDOW | WS_VISIBLE, 600, 560);
    // The launcher's own pane style and size.
    HWND pane = CreateWindowExW(
        0, L"EDIT", L"",
        WS_CHILD | WS_VISIBLE | WS_BORDER | WS_VSCROLL | ES_READONLY | ES_AUTOVSCROLL | ES_MULTILINE, 10, 284,
        560, 230, host, reinterpret_cast<HMENU>(static_cast<INT_PTR>(IDC_STATUS_LOG)),
        GetModuleHandleW(nullptr), nullptr);
    if (host == nullptr || pane == nullptr) {
        Invalid("latency: no window");
        return;
    }
    SendMessageW(pane, EM_SETLIMITTEXT, 16 * 1024 * 1024, 0);
    UpdateWindow(host);
    g_launcher.mainWindow = host;
    g_launcher.statusPane = pane;

    HANDLE readEnd = nullptr, writeEnd = nullptr;
    HANDLE processEnded = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (processEnded == nullptr || !CreatePipe(&readEnd, &writeEnd, nullptr, 0)) {
        Invalid("latency: no pipe or event");
        g_launcher.statusPane = g_launcher.mainWindow = nullptr;
        DestroyWindow(host);
        return;
    }
    LatencyReceiver receiver;
    receiver.microseconds.reserve(LATENCY_LINES);
    std::atomic<LONGLONG> writerSpan{0};
    std::thread reader([=] { PumpProducerOutput(readEnd, processEnded); });
    // Without this Windows sleeps in 15.6 ms steps and the writer could not keep its pace.
    timeBeginPeriod(1);
    std::thread writer([&] {
        const double ticksPerMs = TicksPerSecond() / 1000.0;
        const LONGLONG first = Ticks();
        for (size_t i = 0; i < LATENCY_LINES; ++i) {
            const LONGLONG due =
                first + static_cast<LONGLONG>(static_cast<double>(i) * LATENCY_INTERVAL_MS * ticksPerMs);
            for (LONGLONG now = Ticks(); now < due; now = Ticks()) {
                // Sleep(1) may oversleep; only sleep while a whole millisecond and more remains.
                if (static_cast<double>(due - now) > 1.5 * ticksPerMs) {
                    Sleep(1);
                } else {
                    SwitchToThread();
                }
            }
            char text[LINE_BYTES + 1];
            std::snprintf(text, sizeof text, "%05llu stamp %020lld ", static_cast<unsigned long long>(i + 1),
                          static_cast<long long>(Ticks()));
            std::string line = text;
            line.resize(LINE_BYTES - 1, '.');
            line += '\n';
            WriteAll(writeEnd, line, line.size());
        }
        writerSpan = Ticks() - first;
        CloseHandle(writeEnd);
        SetEvent(processEnded);
    });
    const bool finished = RunUntilDone(receiver);
    writer.join();
    timeEndPeriod(1);
    if (!finished) {
        SetEvent(processEnded);
    }
    reader.join();
    CloseHandle(readEnd);
    CloseHandle(processEnded);
    DrainStrays();

    // Every line must stand in the pane: the figures are about appends that happened.
    const int paneLength = GetWindowTextLengthW(pane);
    const int expectedLength = static_cast<int>(LATENCY_LINES * (LINE_BYTES - 1 + 2));
    g_launcher.statusPane = nullptr;
    g_launcher.mainWindow = nullptr;
    DestroyWindow(host);
    DrainStrays();
    if (!finished || receiver.wrong != 0 || receiver.microseconds.size() != LATENCY_LINES ||
        paneLength != expectedLength) {
        std::printf("latency run: %llu of %llu lines timed, %llu garbled, pane holds %d of %d characters\n",
                    static_cast<unsigned long long>(receiver.microseconds.size()),
                    static_cast<unsigned long long>(LATENCY_LINES),
                    static_cast<unsigned long long>(receiver.wrong), paneLength, expectedLength);
        Invalid("latency: lines lost or garbled");
        return;
    }
    std::vector<double> sorted = receiver.microseconds;
    std::sort(sorted.begin(), sorted.end());
    const double spacingMs = Seconds(0, writerSpan.load()) * 1000.0 / static_cast<double>(LATENCY_LINES - 1);
    std::printf(
        "latency write->appended, %llu lines one every %.2f ms: median %s us, p99 %s us, worst %s us\n",
        static_cast<unsigned long long>(LATENCY_LINES), spacingMs, Grouped(Percentile(sorted, 50)).c_str(),
        Grouped(Percentile(sorted, 99)).c_str(), Grouped(sorted.back()).c_str());
    const std::vector<double>& appends = receiver.appendMicroseconds;
    const size_t tenth = appends.size() / 10;
    std::vector<double> sortedAppends = appends;
    std::sort(sortedAppends.begin(), sortedAppends.end());
    std::printf(
        "    AppendStatusLine alone: median %s us, worst %s us; median of the first %llu %s us, of the last "
        "%llu %s us\n",
        Grouped(Percentile(sortedAppends, 50)).c_str(), Grouped(sortedAppends.back()).c_str(),
        static_cast<unsigned long long>(tenth),
        Grouped(Median(std::vector<double>(appends.begin(), appends.begin() + tenth))).c_str(),
        static_cast<unsigned long long>(tenth),
        Grouped(Median(std::vector<double>(appends.end() - tenth, appends.end()))).c_str());
}

// ---- the real launcher's memory -----------------------------------------------------------------

bool PaneHas(const driver::Launcher& launcher, const wchar_t* text) {
    return driver::PaneText(launcher).find(text) != std::wstring::npos;
}

// The producer the launcher reports in its pane; null when there is no such line.
HANDLE OpenProducer(const driver::Launcher& launcher) {
    const std::wstring pane = driver::PaneText(launcher);
    const wchar_t prefix[] = L"Producer started (pid ";
    const size_t at = pane.find(prefix);
    if (at == std::wstring::npos) {
        return nullptr;
    }
    const DWORD pid = std::wcstoul(pane.c_str() + at + std::size(prefix) - 1, nullptr, 10);
    return pid != 0 ? OpenProcess(SYNCHRONIZE, FALSE, pid) : nullptr;
}

void MeasureLauncherMemory(const wchar_t* mode, const char* label) {
    const std::wstring folder = driver::JoinPath(driver::ScratchFolder(L"pump-bench"), L"launcher");
    const std::wstring exe = driver::PrepareLauncherFolder(folder, true, true);
    driver::Launcher launcher;
    if (exe.empty() ||
        !driver::Start(launcher, exe,
                       {{L"VQTEST_PRODUCER_MODE", mode}, {L"VQTEST_PRODUCER_THEN", L"exit"}})) {
        Invalid("memory: the launcher did not start");
        return;
    }
    driver::Settle(launcher);
    const SIZE_T baseline = driver::PrivateBytes(launcher);
    const LONGLONG start = Ticks();
    if (!driver::Click(launcher, START_BUTTON)) {
        Invalid("memory: Start producer was not handled");
        driver::Close(launcher, 2000);
        return;
    }
    // The producer ends once the pump has taken all its output, which tells the pump's share of the
    // time from the window's.
    HANDLE producer = OpenProducer(launcher);
    double producerSeconds = -1;
    SIZE_T peak = baseline;
    size_t samples = 0;
    bool stoppedLine = false;
    bool buttonsSayStopped = false;
    ULONGLONG buttonsSince = 0;
    const ULONGLONG deadline = GetTickCount64() + LAUNCHER_DEADLINE_MS;
    while (GetTickCount64() < deadline && driver::ProcessAlive(launcher.pid)) {
        peak = std::max(peak, driver::PrivateBytes(launcher));
        ++samples;
        if (producer != nullptr && producerSeconds < 0 && WaitForSingleObject(producer, 0) == WAIT_OBJECT_0) {
            producerSeconds = Seconds(start, Ticks());
        }
        if (PaneHas(launcher, L"Producer stopped.")) {
            stoppedLine = true;
            break;
        }
        // The buttons flip back in the same handler that writes the line; a pane that takes no more
        // text would otherwise keep us waiting until the deadline.
        if (driver::IsEnabled(launcher, START_BUTTON) && !driver::IsEnabled(launcher, STOP_BUTTON)) {
            if (!buttonsSayStopped) {
                buttonsSayStopped = true;
                buttonsSince = GetTickCount64();
            } else if (GetTickCount64() - buttonsSince > 2000) {
                break;
            }
        }
        Sleep(MEMORY_POLL_MS);
    }
    const double seconds = Seconds(start, Ticks());
    if (producer != nullptr) {
        CloseHandle(producer);
    }
    const bool finished = stoppedLine || buttonsSayStopped;
    if (finished) {
        driver::Settle(launcher);
    }
    const SIZE_T after = driver::PrivateBytes(launcher);
    peak = std::max(peak, after);
    const std::wstring pane = driver::PaneText(launcher);
    const bool started = pane.find(L"Producer started (pid") != std::wstring::npos;
    // A launcher still busy with queued lines handles WM_CLOSE only after them.
    driver::Close(launcher, finished ? 15000 : 2000);

    std::printf("memory %s: baseline %.1f MiB, peak %.1f MiB (+%.1f), %s %.1f MiB; %llu samples over %.1f s",
                label, Mebibytes(baseline), Mebibytes(peak), Mebibytes(peak) - Mebibytes(baseline),
                finished ? "after" : "at the deadline", Mebibytes(after),
                static_cast<unsigned long long>(samples), seconds);
    size_t paneLines = 0;
    for (size_t at = pane.find(L"\r\n"); at != std::wstring::npos; at = pane.find(L"\r\n", at + 2)) {
        ++paneLines;
    }
    std::printf("\n    pane then held %llu lines, %llu characters\n",
                static_cast<unsigned long long>(paneLines), static_cast<unsigned long long>(pane.size()));
    if (producerSeconds >= 0) {
        std::printf("    producer done writing after %.1f s (within %lu ms)\n", producerSeconds,
                    MEMORY_POLL_MS);
    } else {
        std::printf("    producer %s\n", producer != nullptr ? "still writing at the end" : "not watched");
    }
    if (!started) {
        Invalid("memory: the producer did not start");
    } else if (!finished) {
        std::printf("    NOT FINISHED: the producer's exit was not handled within %lu s\n",
                    static_cast<unsigned long>(LAUNCHER_DEADLINE_MS / 1000));
    } else if (!stoppedLine) {
        std::printf(
            "    note: exit handled (buttons reset) but \"Producer stopped.\" never appeared in the pane\n");
    }
}

void PrintRuns(const char* name, const std::vector<double>& rates) {
    std::printf(" %s:", name);
    for (double rate : rates) {
        std::printf(" %s", Grouped(rate).c_str());
    }
}

void MeasureThroughput() {
    std::printf("throughput: %llu lines of %llu bytes, %llu-byte writes, %llu-byte reads; median of %d runs "
                "(%d for the pipe alone)\n",
                static_cast<unsigned long long>(THROUGHPUT_LINES),
                static_cast<unsigned long long>(LINE_BYTES), static_cast<unsigned long long>(WRITE_CHUNK),
                static_cast<unsigned long long>(PRODUCER_READ_CHUNK), THROUGHPUT_RUNS, RAW_RUNS);
    std::fflush(stdout);
    const std::string bytes = FloodBytes(THROUGHPUT_LINES);

    std::vector<double> raw, posting, pump;
    for (int run = 0; run < RAW_RUNS; ++run) {
        raw.push_back(RawPipeRun(bytes));
    }
    const double rawRate = Median(raw);
    std::printf("raw pipe: %s lines/s\n", Grouped(rawRate).c_str());
    std::fflush(stdout);

    HWND sink = CreateBenchWindow(HWND_MESSAGE, 0, 0, 0);
    if (sink == nullptr) {
        Invalid("no message window");
        return;
    }
    // Posting and pump runs alternate so that both meet the same load from the rest of the machine.
    size_t retries = 0;
    std::vector<double> pairedRatios;
    for (int run = 0; run < THROUGHPUT_RUNS; ++run) {
        g_launcher.mainWindow = nullptr;
        posting.push_back(PostingRun(sink, &retries));
        g_launcher.mainWindow = sink;
        pump.push_back(PumpRun(bytes));
        if (posting.back() > 0) {
            pairedRatios.push_back(100.0 * pump.back() / posting.back());
        }
    }
    g_launcher.mainWindow = nullptr;
    DestroyWindow(sink);
    const double postingRate = Median(posting);
    std::printf("posting ceiling: %s lines/s (%llu posts refused for a full queue and retried)\n",
                Grouped(postingRate).c_str(), static_cast<unsigned long long>(retries));
    const double pumpRate = Median(pump);
    const double ofPosting = postingRate > 0 ? 100.0 * pumpRate / postingRate : 0;
    const double ofRaw = rawRate > 0 ? 100.0 * pumpRate / rawRate : 0;
    std::printf("pump: %s lines/s (%.0f%% of posting ceiling %s; %.1f%% of raw pipe %s)\n",
                Grouped(pumpRate).c_str(), ofPosting, Grouped(postingRate).c_str(), ofRaw,
                Grouped(rawRate).c_str());
    std::printf("aim pump >= 80%% of posting ceiling: %s\n", ofPosting >= 80.0 ? "met" : "NOT met");
    std::printf("    runs in lines/s:");
    PrintRuns("raw", raw);
    PrintRuns("posting", posting);
    PrintRuns("pump", pump);
    std::printf("; pump/posting per pair:");
    for (double ratio : pairedRatios) {
        std::printf(" %.0f%%", ratio);
    }
    std::printf("\n");
    std::fflush(stdout);
}

void MeasureMemory() {
    driver::InstallSystemStandIn(L"standin_mf.dll", L"mf.dll");
    driver::InstallSystemStandIn(L"standin_mfsensorgroup.dll", L"mfsensorgroup.dll");
    MeasureLauncherMemory(L"flood:1000000", "flood 1,000,000 lines");
    std::fflush(stdout);
    MeasureLauncherMemory(L"longline:100000000", "one 100,000,000-byte line");
    std::printf(
        "    (Wine leaves PrivateUsage at 0; the driver then reads PagefileUsage, the commit charge)\n");
}

} // namespace

// Arguments pick what to measure: throughput, latency, memory. None runs them all.
int main(int argc, char** argv) {
    const auto wanted = [&](const char* part) {
        if (argc < 2) {
            return true;
        }
        for (int i = 1; i < argc; ++i) {
            if (std::strcmp(argv[i], part) == 0) {
                return true;
            }
        }
        return false;
    };
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "throughput") != 0 && std::strcmp(argv[i], "latency") != 0 &&
            std::strcmp(argv[i], "memory") != 0) {
            std::printf("usage: pump_bench [throughput] [latency] [memory]\n");
            return 2;
        }
    }
    if (wanted("throughput")) {
        MeasureThroughput();
    }
    if (wanted("latency")) {
        MeasureLatency();
        std::fflush(stdout);
    }
    if (wanted("memory")) {
        MeasureMemory();
    }
    if (g_invalid) {
        std::printf("some runs were invalid; their figures are not comparable\n");
        return 1;
    }
    return 0;
}

#include "producer/lifecycle.h"

#include <windows.h>

#include <algorithm>
#include <memory>
#include <new>
#include <vector>

#include "diagnostics/failure.h"
#include "launcher/control_ids.h"
#include "launcher/launcher_state.h"
#include "launcher/main_window.h"
#include "launcher/paths.h"
#include "launcher/status_pane.h"
#include "producer/command_line.h"
#include "producer/output_pump.h"

namespace {

// How long closing the window waits for the reader before it stops waiting on a stuck pipe.
constexpr DWORD READER_CLOSE_WAIT_MS = 5000;
// Output shows from this timer while it flows, and while a drag in the pane holds it: the timer's
// message comes after input and painting, so that they have their turn between any two updates however
// fast the producer writes, and a hold ends within a tick however the drag ended, even by a sent message.
constexpr UINT OUTPUT_TIMER_MS = 10;
// What an update of the pane aims to cost the window's thread: its size follows from what the last one
// cost, since a character costs the control from one to hundreds of microseconds by the shape of the
// text around it. Less than the pane's own drawing cadence; less still gave up a tenth of a flood's
// throughput to paints and timer ticks.
constexpr double OUTPUT_UPDATE_MS = 25;
// Output after a quiet spell may cost the control far more than what came before it: its first update is
// this small, and each one after takes at most twice what the last one took.
constexpr size_t OUTPUT_FIRST_UPDATE = 4096;

struct ReaderArguments {
    HANDLE pipeRead;
    HANDLE process;
};

DWORD WINAPI ReaderThreadMain(void* parameter) {
    std::unique_ptr<ReaderArguments> arguments(static_cast<ReaderArguments*>(parameter));
    PumpProducerOutput(arguments->pipeRead, arguments->process);
    return 0;
}

// A job that ends every process in it when its last handle closes, so that nothing the producer
// started outlives it or the launcher. Null if the system refuses; the producer then runs without.
HANDLE CreateProducerJob(HANDLE process) {
    HANDLE job = CreateJobObjectW(nullptr, nullptr);
    if (job == nullptr) {
        return nullptr;
    }
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (!SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof(limits)) ||
        !AssignProcessToJobObject(job, process)) {
        CloseHandle(job);
        return nullptr;
    }
    return job;
}

void TerminateProducerTree() {
    TerminateProcess(g_launcher.producerProcess, 0);
    if (g_launcher.producerJob != nullptr) {
        TerminateJobObject(g_launcher.producerJob, 0);
    }
}

void CloseAndClear(HANDLE& handle) {
    if (handle != nullptr) {
        CloseHandle(handle);
        handle = nullptr;
    }
}

// Left running while output flows, so that an update that took longer than a tick is followed at once.
void RunOutputTimer(bool run) {
    if (run == g_launcher.outputTimerRuns) {
        return;
    }
    if (!run) {
        KillTimer(g_launcher.mainWindow, OUTPUT_TIMER_ID);
        g_launcher.outputTimerRuns = false;
        return;
    }
    g_launcher.outputTimerRuns =
        SetTimer(g_launcher.mainWindow, OUTPUT_TIMER_ID, OUTPUT_TIMER_MS, nullptr) != 0;
    if (!g_launcher.outputTimerRuns) {
        // Without it the output still comes, from a wake: one of our own, or while a drag holds the
        // output, the reader's next. Each update tries the timer again. A wake comes before painting.
        UpdateWindow(g_launcher.statusPane);
        if (IsStatusPaneDragged() || !PostMessageW(g_launcher.mainWindow, WM_APP_PRODUCER_OUTPUT, 0, 0)) {
            g_launcher.producerOutput.wakePending.store(false);
        }
    }
}

double Milliseconds() {
    LARGE_INTEGER now = {}, frequency = {};
    QueryPerformanceCounter(&now);
    QueryPerformanceFrequency(&frequency);
    return 1000.0 * static_cast<double>(now.QuadPart) / static_cast<double>(frequency.QuadPart);
}

// After the producer's last line: back to idle.
void FinishProducer() {
    g_launcher.producerEnding = false;
    g_launcher.producerRunning.exchange(false);
    CleanupProducer();
    SetProducerRunning(false);
    AppendStatusLine(L"Producer stopped.");
}

// The next part of the waiting output into the pane, unless the user drags a selection there while the
// producer runs: then what is owed is drawn, so that the user drags over the text the control hit-tests.
// An update that took as much as it was allowed, or took too long, sets the size of the next one, unless
// the oldest lines went meanwhile: that costs the control about as much as the pane holds, and only once
// in a quarter of it. The timer stops after a tick that found nothing to do.
void UpdateFromOutput() {
    bool busy = true;
    if (IsStatusPaneDragged() && !g_launcher.producerEnding) {
        DrawStatusPane(false);
    } else {
        bool more = false;
        std::wstring text = TakeProducerOutput(g_launcher.outputUpdateSize, &more);
        double start = Milliseconds();
        bool dropped = AppendStatusText(text, true);
        double took = std::max(Milliseconds() - start, 0.1);
        if (!text.empty() && !dropped && (more || took > OUTPUT_UPDATE_MS)) {
            double size = static_cast<double>(OutputCost(text)) * std::min(OUTPUT_UPDATE_MS / took, 2.0);
            g_launcher.outputUpdateSize =
                std::clamp(static_cast<size_t>(size), PRODUCER_LINE_LIMIT + 2, PRODUCER_OUTPUT_UPDATE);
        }
        busy = more || !text.empty() || IsStatusPaneDrawOwed();
        if (!more && g_launcher.producerEnding) {
            FinishProducer();
        }
    }
    RunOutputTimer(busy);
}

} // namespace

void OnStartProducerCommand() {
    if (g_launcher.producerRunning.load()) {
        return;
    }
    const std::wstring& path = g_launcher.producerPath;
    bool exists = false;
    HRESULT hr = PathExists(path, &exists);
    if (FAILED(hr)) {
        AppendStatusLine(L"ERROR: could not check for the producer exe next to launcher: " + path +
                         L" \u2014 " + FormatHresult(hr));
        return;
    }
    if (!exists) {
        AppendStatusLine(L"ERROR: producer exe not found next to launcher: " + path);
        return;
    }

    ProducerSettings settings = ReadProducerSettings();
    SetEnvironmentVariableW(L"VELOQUIN_CAPTURE_D3D_TEXTURE", settings.d3dCapture ? L"1" : L"0");
    std::wstring commandLine = BuildCommandLine(BuildProducerArguments(settings));

    SECURITY_ATTRIBUTES security = {sizeof(security), nullptr, TRUE};
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, &security, 0)) {
        AppendStatusLine(L"ERROR: CreatePipe failed: " + FormatWin32Error(GetLastError()));
        return;
    }
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);

    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = INVALID_HANDLE_VALUE;
    startup.hStdOutput = writeEnd;
    startup.hStdError = writeEnd;
    PROCESS_INFORMATION process = {};
    std::vector<wchar_t> writable(commandLine.c_str(), commandLine.c_str() + commandLine.size() + 1);
    const wchar_t* folder = g_launcher.launcherFolder.empty() ? nullptr : g_launcher.launcherFolder.c_str();
    // Suspended until it is in the job, so that nothing it starts in its first instructions escapes.
    BOOL created = CreateProcessW(nullptr, writable.data(), nullptr, nullptr, TRUE,
                                  CREATE_NO_WINDOW | CREATE_SUSPENDED, nullptr, folder, &startup, &process);
    DWORD createError = created ? ERROR_SUCCESS : GetLastError();
    // From here only the child holds the write end, so the pipe ends when the child has gone.
    CloseHandle(writeEnd);
    HANDLE job = created ? CreateProducerJob(process.hProcess) : nullptr;
    // Without a job it runs all the same; it is never left frozen.
    if (created && ResumeThread(process.hThread) == static_cast<DWORD>(-1)) {
        createError = GetLastError();
        TerminateProcess(process.hProcess, 0);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        CloseAndClear(job);
        created = FALSE;
    }
    if (!created) {
        CloseHandle(readEnd);
        AppendStatusLine(L"ERROR: failed to start producer: " + FormatWin32Error(createError));
        return;
    }
    CloseHandle(process.hThread);
    g_launcher.producerProcess = process.hProcess;
    g_launcher.pipeRead = readEnd;
    g_launcher.producerJob = job;
    PrepareProducerOutput();
    g_launcher.producerRunning.exchange(true);

    AppendStatusLine(L"Producer started (pid " + std::to_wstring(process.dwProcessId) + L"): provider=" +
                     settings.provider + L" width=" + settings.maxWidth + L" camera-index=" +
                     std::to_wstring(settings.cameraIndex) + L" d3d-capture=" +
                     (settings.d3dCapture ? L"on" : L"off"));
    AppendStatusLine(
        L"Open Veloquin in OBS/Zoom/Teams to begin \u2014 timing stats appear once a consumer is active.");
    SetProducerRunning(true);

    ReaderArguments* arguments = new (std::nothrow) ReaderArguments{readEnd, process.hProcess};
    HANDLE thread =
        arguments != nullptr ? CreateThread(nullptr, 0, ReaderThreadMain, arguments, 0, nullptr) : nullptr;
    if (thread == nullptr) {
        // Nobody would read its output or notice its end: a producer without a reader is taken down.
        DWORD error = arguments != nullptr ? GetLastError() : ERROR_NOT_ENOUGH_MEMORY;
        delete arguments;
        TerminateProducerTree();
        WaitForSingleObject(g_launcher.producerProcess, READER_CLOSE_WAIT_MS);
        g_launcher.producerRunning.exchange(false);
        CleanupProducer();
        SetProducerRunning(false);
        AppendStatusLine(L"ERROR: could not start the producer's output reader: " + FormatWin32Error(error) +
                         L" \u2014 producer stopped.");
        return;
    }
    g_launcher.readerThread = thread;
}

void OnStopProducerCommand() {
    if (!g_launcher.producerRunning.load() || g_launcher.producerProcess == nullptr ||
        g_launcher.producerEnding) {
        return;
    }
    AppendStatusLine(L"Stopping producer...");
    TerminateProducerTree();
}

void CleanupProducer() {
    if (g_launcher.readerThread != nullptr) {
        WaitForSingleObject(g_launcher.readerThread, INFINITE);
        CloseAndClear(g_launcher.readerThread);
    }
    CloseAndClear(g_launcher.pipeRead);
    CloseAndClear(g_launcher.producerProcess);
    CloseAndClear(g_launcher.producerJob);
}

void OnProducerWake() {
    // While the timer runs, its next tick takes the output. After a quiet spell the first output shows at
    // once.
    if (!g_launcher.outputTimerRuns) {
        g_launcher.outputUpdateSize = std::min(g_launcher.outputUpdateSize, OUTPUT_FIRST_UPDATE);
        UpdateFromOutput();
    }
}

void OnOutputTick() {
    UpdateFromOutput();
}

void OnProducerExited() {
    // The reader has handed on its last line. What waits shows update by update, as before, and the
    // user's drag can't hold it back.
    g_launcher.producerEnding = true;
    OnProducerWake();
}

void EndProducerBeforeClose() {
    if (!g_launcher.producerRunning.load() || g_launcher.producerProcess == nullptr) {
        return;
    }
    // A reader that waits for room must be woken, or the close would wait for it in vain.
    g_launcher.producerOutput.discard.store(true);
    if (g_launcher.producerOutput.room != nullptr) {
        SetEvent(g_launcher.producerOutput.room);
    }
    TerminateProducerTree();
    HANDLE thread = g_launcher.readerThread;
    if (thread != nullptr && WaitForSingleObject(thread, READER_CLOSE_WAIT_MS) == WAIT_TIMEOUT) {
        // Something outside the job still holds the pipe: break the reader's read instead.
        CancelSynchronousIo(thread);
        if (WaitForSingleObject(thread, READER_CLOSE_WAIT_MS) == WAIT_TIMEOUT) {
            // Still stuck: leave the handles to the process's end rather than hang the window.
            return;
        }
    }
    CleanupProducer();
}

// The one process-wide record. Written by the UI thread alone; the output reader reads mainWindow only.
#pragma once

#include <windows.h>

#include <atomic>
#include <string>
#include <vector>

#include "cameras/camera_picker.h"
#include "producer/output_pump.h"

struct LauncherState {
    HWND mainWindow = nullptr;
    HWND statusPane = nullptr;
    HWND providerCombo = nullptr;
    HWND widthCombo = nullptr;
    HWND cameraCombo = nullptr;
    HWND d3dCheck = nullptr;
    HFONT font = nullptr;
    std::wstring launcherFolder;
    std::wstring producerPath;
    std::wstring mediaSourcePath;
    std::vector<CameraListEntry> cameraList;
    HANDLE producerProcess = nullptr;
    HANDLE pipeRead = nullptr;
    // Job holding the producer and everything it starts, so that none of them outlives a stop.
    HANDLE producerJob = nullptr;
    // Joinable while not null; joining waits for it and closes it.
    HANDLE readerThread = nullptr;
    std::atomic<bool> producerRunning{false};
    ProducerOutput producerOutput;
    // Runs while output waits to be shown.
    bool outputTimerRuns = false;
    // How much the next update takes of the waiting output, from what the last ones cost.
    size_t outputUpdateSize = PRODUCER_OUTPUT_UPDATE;
    // The reader has ended; what waits still shows, and the producer is done after its last line.
    bool producerEnding = false;
    // Lines ended by CR LF in the pane.
    size_t statusPaneLines = 0;
    // When the pane was last drawn afresh, and whether it shows less than it holds.
    ULONGLONG statusPaneDrawn = 0;
    bool statusPaneOwed = false;
    // The child that had the focus when the window was deactivated; null once given back on activation.
    HWND focusBack = nullptr;
};

extern LauncherState g_launcher;

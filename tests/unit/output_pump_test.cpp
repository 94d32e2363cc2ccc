#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "launcher/control_ids.h"
#include "launcher/launcher_state.h"
#include "producer/output_pump.h"

namespace {

// What reached the main window, in the order it arrived.
std::vector<std::wstring> received;
bool exited = false;

LRESULT CALLBACK CollectingProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_APP_STATUS_LINE) {
        std::wstring* line = reinterpret_cast<std::wstring*>(lParam);
        EXPECT_FALSE(exited) << "a line arrived after the exit message";
        received.push_back(*line);
        delete line;
        return 0;
    }
    if (message == WM_APP_PRODUCER_EXITED) {
        exited = true;
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

// A real pipe and a stand-in for the process handle (any waitable object will do), with the pump
// running on its own thread and posting to a window of this thread, as in the launcher.
struct PumpRig {
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    HANDLE processEnded = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<bool> discard{false};
    std::thread reader;

    PumpRig() {
        received.clear();
        exited = false;
        WNDCLASSW windowClass = {};
        windowClass.lpfnWndProc = CollectingProc;
        windowClass.hInstance = GetModuleHandleW(nullptr);
        windowClass.lpszClassName = L"PumpTestWindow";
        RegisterClassW(&windowClass);
        g_launcher.mainWindow = CreateWindowExW(0, L"PumpTestWindow", L"", 0, 0, 0, 0, 0, HWND_MESSAGE,
                                                nullptr, nullptr, nullptr);
        CreatePipe(&readEnd, &writeEnd, nullptr, 0);
        reader = std::thread(PumpProducerOutput, readEnd, processEnded, &discard);
    }
    void Write(const std::string& bytes, DWORD pauseMs = 0) {
        DWORD written = 0;
        ASSERT_TRUE(WriteFile(writeEnd, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
        if (pauseMs != 0) {
            Sleep(pauseMs);
        }
    }
    void EndOutput() {
        CloseHandle(writeEnd);
        writeEnd = nullptr;
    }
    bool PumpUntilExited(DWORD timeoutMs) {
        DWORD start = GetTickCount();
        while (!exited && GetTickCount() - start < timeoutMs) {
            MSG message;
            while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
                DispatchMessageW(&message);
            }
            Sleep(5);
        }
        return exited;
    }
    ~PumpRig() {
        if (writeEnd != nullptr) {
            CloseHandle(writeEnd);
        }
        SetEvent(processEnded);
        reader.join();
        CloseHandle(readEnd);
        CloseHandle(processEnded);
        DestroyWindow(g_launcher.mainWindow);
        g_launcher.mainWindow = nullptr;
    }
};

} // namespace

TEST(OutputPump, CutsLinesAcrossReadsAndEndsWithTheExitMessage) {
    PumpRig rig;
    rig.Write("hel", 60);
    rig.Write("lo wor", 60);
    rig.Write("ld\r\nplain\n\nbare\rcr inside\ntwo cr\r\r\n", 60);
    rig.Write(std::string("nul\0byte\n", 9));
    rig.Write("caf\xc3\xa9 \xff\n");
    rig.Write("rest without lf\r");
    rig.EndOutput();
    Sleep(200);
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        DispatchMessageW(&message);
    }
    EXPECT_FALSE(exited) << "the exit message waits for the process, not just the pipe";
    SetEvent(rig.processEnded);
    ASSERT_TRUE(rig.PumpUntilExited(5000));

    std::vector<std::wstring> expected = {L"hello world",
                                          L"plain",
                                          L"",
                                          L"bare\rcr inside",
                                          L"two cr\r",
                                          std::wstring(L"nul\0byte", 8),
                                          L"caf\u00c3\u00a9 \u00ff",
                                          L"rest without lf\r"};
    EXPECT_EQ(received, expected);
}

TEST(OutputPump, NoOutputGivesTheExitMessageAlone) {
    PumpRig rig;
    rig.EndOutput();
    SetEvent(rig.processEnded);
    ASSERT_TRUE(rig.PumpUntilExited(5000));
    EXPECT_TRUE(received.empty());
}

TEST(OutputPump, DiscardedOutputIsLeftUnreadButTheExitStillComes) {
    PumpRig rig;
    rig.Write("seen\n", 100);
    rig.PumpUntilExited(300);
    rig.discard.store(true);
    rig.Write("not seen\n");
    rig.EndOutput();
    SetEvent(rig.processEnded);
    ASSERT_TRUE(rig.PumpUntilExited(5000));
    EXPECT_EQ(received, std::vector<std::wstring>{L"seen"});
}

TEST(OutputPump, EndlessLineIsCutIntoBoundedPieces) {
    PumpRig rig;
    std::thread writer([&] {
        rig.Write(std::string(2 * PRODUCER_LINE_LIMIT + 1000, 'x') + "\ntail\n");
        rig.EndOutput();
        SetEvent(rig.processEnded);
    });
    bool done = rig.PumpUntilExited(10000);
    writer.join();
    ASSERT_TRUE(done);
    ASSERT_EQ(received.size(), 4u);
    EXPECT_EQ(received[0], std::wstring(PRODUCER_LINE_LIMIT, L'x'));
    EXPECT_EQ(received[1], std::wstring(PRODUCER_LINE_LIMIT, L'x'));
    EXPECT_EQ(received[2], std::wstring(1000, L'x'));
    EXPECT_EQ(received[3], L"tail");
}

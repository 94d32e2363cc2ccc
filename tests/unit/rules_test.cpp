// Rules that are cheap to reach directly and costly to reach through the window.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "diagnostics/failure.h"
#include "launcher/control_ids.h"
#include "launcher/control_panel.h"
#include "launcher/launcher_state.h"
#include "launcher/paths.h"
#include "launcher/status_pane.h"
#include "producer/command_line.h"
#include "producer/output_pump.h"
#include "tests/driver/driver.h"

// A path's parent and a name appended keep the root whole; every argument is quoted, only quotes escaped.
TEST(Rules, PathsKeepTheRootAndArgumentsTheirQuotes) {
    auto append = +[](const std::wstring& left) { return AppendPath(left, L"a.dll"); };
    const std::tuple<std::wstring (*)(const std::wstring&), const wchar_t*, const wchar_t*> cases[] = {
        {ParentPath, L"C:\\tools\\veloquin\\launcher.exe", L"C:\\tools\\veloquin"},
        {ParentPath, L"C:\\launcher.exe", L"C:\\"},
        {ParentPath, L"C:/tools//launcher.exe", L"C:/tools"},
        {ParentPath, L"C:\\tools\\\\", L"C:\\tools"},
        {ParentPath, L"C:\\", L"C:\\"},
        {ParentPath, L"\\\\server\\share\\launcher.exe", L"\\\\server\\share"},
        {ParentPath, L"\\\\?\\C:\\launcher.exe", L"\\\\?\\C:\\"},
        {ParentPath, L"C:launcher.exe", L"C:"},
        {ParentPath, L"launcher.exe", L""},
        {ParentPath, L"", L""},
        {append, L"C:\\tools", L"C:\\tools\\a.dll"},
        {append, L"C:\\", L"C:\\a.dll"},
        {append, L"C:/tools/", L"C:/tools/a.dll"},
        {append, L"C:", L"C:a.dll"},
        {append, L"", L"a.dll"},
        {QuoteArgument, L"say \"hi\"", L"\"say \\\"hi\\\"\""},
        {QuoteArgument, L"C:\\", L"\"C:\\\""},
        {QuoteArgument, L"a\\\"b", L"\"a\\\\\"b\""},
    };
    for (auto [rule, text, expected] : cases) {
        EXPECT_EQ(rule(text), expected) << driver::Utf8(text);
    }
    EXPECT_EQ(BuildCommandLine({}), L"");
    EXPECT_EQ(BuildCommandLine({L"a", L"", L"b c"}), L"\"a\" \"\" \"b c\"");
}

TEST(Rules, CodesReadAsHexOrDecimalWithTheSystemText) {
    EXPECT_EQ(FormatHresult(0x5), driver::Code(0x5)) << "a code that is no failure reads the same";
    EXPECT_EQ(FormatHresult(static_cast<HRESULT>(0x8FFF7A31)), L"0x8FFF7A31") << "no text, no brackets";
    EXPECT_EQ(FormatWin32Error(5), L"5" + driver::Code(5).substr(10));
    EXPECT_EQ(FormatWin32Error(0xFFFFFF70u), L"4294967152");
    const std::pair<DWORD, unsigned long> converted[] = {
        {2, 0x80070002}, {0, 0}, {1722, 0x800706BA}, {0x80070002, 0x80070002}, {0x12345, 0x80072345}};
    for (auto [code, hr] : converted) {
        EXPECT_EQ(HresultFromWin32(code), static_cast<HRESULT>(hr)) << code;
    }
    SetLastError(0);
    EXPECT_EQ(LastErrorAsHresult(ERROR_MOD_NOT_FOUND), static_cast<HRESULT>(0x8007007E))
        << "a failure stays one";
}

TEST(Rules, EveryControlDrawsWithTheOneFont) {
    g_launcher.mainWindow =
        CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 596, 600, nullptr, nullptr, nullptr, nullptr);
    CreateControls();
    LOGFONTW font = {};
    ASSERT_EQ(GetObjectW(g_launcher.font, sizeof(font), &font), static_cast<int>(sizeof(font)));
    EXPECT_EQ(std::make_tuple(std::wstring(font.lfFaceName), font.lfHeight, font.lfWeight, font.lfQuality),
              std::make_tuple(std::wstring(L"Segoe UI"), -14L, 400L, BYTE{CLEARTYPE_QUALITY}));
    for (HWND control = GetWindow(g_launcher.mainWindow, GW_CHILD); control;
         control = GetWindow(control, GW_HWNDNEXT)) {
        EXPECT_EQ(reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0)), g_launcher.font);
    }
    DestroyWindow(g_launcher.mainWindow);
}

// What the pane drops: nothing while both limits hold; else whole oldest lines past a quarter of the
// limit, into the incoming text if need be; only a line longer than that quarter is cut inside.
TEST(Rules, ThePaneDropsWholeOldestLinesInGenerousSlices) {
    const std::wstring LINE = L"0123456\r\n"; // 9 characters
    const std::tuple<std::wstring, std::wstring, size_t, size_t, size_t> cases[] = {
        {LINE + LINE, LINE, 27, 3, 0},
        {LINE + LINE + LINE + LINE, LINE, 40, 100, 18},
        {LINE + LINE + LINE + LINE + LINE + LINE + LINE + LINE, LINE, 100, 8, 18},
        {L"a\r\n" + LINE + LINE + LINE, LINE, 36, 100, 12},
        {L"ab\r\n", L"cdef\r\n" + LINE + LINE, 24, 100, 10},
        {L"a\r\n" + std::wstring(30, L'x') + L"\r\n", L"b\r\n", 36, 100, 9},
        {L"ab\r\r\n" + LINE, LINE, 20, 100, 5},
        {L"ab\r\n", std::wstring(30, L'y'), 20, 100, 14},
    };
    for (const auto& [pane, incoming, capacity, lineCapacity, cut] : cases) {
        EXPECT_EQ(StatusPaneCut(pane, incoming, capacity, lineCapacity), cut)
            << driver::Utf8(pane + L"|" + incoming) << " capacity " << capacity;
    }
    EXPECT_EQ(CountLineEnds(L"a\r\r\n\n\r\nb\r"), 2u);
}

// The reader as the launcher runs it, on a pipe in message mode: there a write of nothing reaches the reader
// as on Windows, where Wine's anonymous pipes drop it; read in message mode too, each read takes one write,
// so the reader meets every write of nothing, whenever it reads. Then what waits goes to the pane in parts.
TEST(Rules, ReaderReadsPastEmptyWritesAndHandsOnWholeLinesInParts) {
    g_launcher.mainWindow =
        CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 9, 9, nullptr, nullptr, nullptr, nullptr);
    PrepareProducerOutput();
    const wchar_t* name = L"\\\\.\\pipe\\veloquin-reader-test";
    HANDLE read = CreateNamedPipeW(name, PIPE_ACCESS_INBOUND, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 1,
                                   4096, 4096, 0, nullptr);
    HANDLE write = CreateFileW(name, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    HANDLE gone = CreateEventW(nullptr, TRUE, TRUE, nullptr); // the producer's process, ended
    std::thread reader(PumpProducerOutput, read, gone);
    for (std::string bytes : {"alpha\n", "", "zero[#]\nend#\n", "", "b\tx"}) {
        std::replace(bytes.begin(), bytes.end(), '#', '\0');
        DWORD written = 0;
        ASSERT_TRUE(WriteFile(write, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
    }
    CloseHandle(write);
    reader.join();
    // Whole lines up to the limit, or a longer line whole; a tab costs the pane 64 characters.
    const std::tuple<size_t, std::wstring, bool> takes[] = {
        {16, L"alpha\r\nzero[ ]\r\n", true}, {70, L"end \r\n", true}, {1, L"b\tx\r\n", false}};
    for (auto [limit, text, more] : takes) {
        bool left = !more;
        EXPECT_EQ(TakeProducerOutput(limit, &left), text);
        EXPECT_EQ(left, more);
    }
    MSG exited = {};
    EXPECT_TRUE(PeekMessageW(&exited, nullptr, WM_APP_PRODUCER_EXITED, WM_APP_PRODUCER_EXITED, PM_REMOVE));
}

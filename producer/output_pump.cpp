#include "producer/output_pump.h"

#include <string>

#include "launcher/control_ids.h"
#include "launcher/launcher_state.h"
#include "launcher/status_pane.h"

// One wide character per byte, read as Latin-1: no decoding, and no byte can end or merge a line.
static void PostBytes(const char* bytes, size_t count) {
    std::wstring line(count, L'\0');
    for (size_t i = 0; i < count; ++i) {
        line[i] = static_cast<wchar_t>(static_cast<unsigned char>(bytes[i]));
    }
    PostStatusLine(std::move(line));
}

void PumpProducerOutput(HANDLE pipeRead, HANDLE process, const std::atomic<bool>* discard) {
    char chunk[PRODUCER_READ_CHUNK];
    std::string pending;
    pending.reserve(PRODUCER_LINE_LIMIT + PRODUCER_READ_CHUNK);
    for (;;) {
        DWORD count = 0;
        if (!ReadFile(pipeRead, chunk, sizeof(chunk), &count, nullptr) || count == 0) {
            break;
        }
        if (discard != nullptr && discard->load()) {
            pending.clear();
            break;
        }
        pending.append(chunk, count);
        size_t start = 0;
        for (size_t feed = pending.find('\n'); feed != std::string::npos; feed = pending.find('\n', start)) {
            size_t end = feed;
            if (end > start && pending[end - 1] == '\r') {
                --end;
            }
            PostBytes(pending.data() + start, end - start);
            start = feed + 1;
        }
        while (pending.size() - start >= PRODUCER_LINE_LIMIT) {
            PostBytes(pending.data() + start, PRODUCER_LINE_LIMIT);
            start += PRODUCER_LINE_LIMIT;
        }
        pending.erase(0, start);
    }
    if (!pending.empty()) {
        PostBytes(pending.data(), pending.size());
    }
    WaitForSingleObject(process, INFINITE);
    // Windows refuses posts to a queue that is full after a flood. Lines may be lost that way, but
    // the exit may not: the launcher would go on showing a producer that is gone.
    while (!PostMessageW(g_launcher.mainWindow, WM_APP_PRODUCER_EXITED, 0, 0) &&
           GetLastError() == ERROR_NOT_ENOUGH_QUOTA && !(discard != nullptr && discard->load())) {
        Sleep(10);
    }
}

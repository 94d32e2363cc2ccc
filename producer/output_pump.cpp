#include "producer/output_pump.h"

#include "launcher/control_ids.h"
#include "launcher/launcher_state.h"
#include "launcher/status_pane.h"

namespace {

struct OutputBatch {
    SLIST_ENTRY entry; // first, and aligned as the list needs
    std::wstring text;
};

void Wake(ProducerOutput& output) {
    if (!output.wakePending.exchange(true) &&
        !PostMessageW(g_launcher.mainWindow, WM_APP_PRODUCER_OUTPUT, 0, 0)) {
        output.wakePending.store(false);
    }
}

void HandOn(ProducerOutput& output, std::wstring&& text) {
    if (text.empty()) {
        return;
    }
    size_t size = text.size();
    OutputBatch* batch = new OutputBatch{{}, std::move(text)};
    InterlockedPushEntrySList(&output.batches, &batch->entry);
    output.waiting += size;
    Wake(output);
    // A wake that a full queue refused is posted again meanwhile: without it no room would come.
    while (output.room != nullptr && output.waiting.load() > PRODUCER_OUTPUT_BACKLOG &&
           !output.discard.load()) {
        WaitForSingleObject(output.room, output.wakePending.load() ? INFINITE : 10);
        Wake(output);
    }
}

} // namespace

void PumpProducerOutput(HANDLE pipeRead, HANDLE process) {
    ProducerOutput& output = g_launcher.producerOutput;
    char chunk[PRODUCER_READ_CHUNK];
    std::string pending;
    pending.reserve(PRODUCER_LINE_LIMIT + PRODUCER_READ_CHUNK);
    for (;;) {
        DWORD count = 0;
        if (!ReadFile(pipeRead, chunk, sizeof(chunk), &count, nullptr) || count == 0 ||
            output.discard.load()) {
            break;
        }
        pending.append(chunk, count);
        std::wstring lines;
        size_t start = 0;
        for (size_t feed = pending.find('\n'); feed != std::string::npos; feed = pending.find('\n', start)) {
            size_t end = feed;
            if (end > start && pending[end - 1] == '\r') {
                --end;
            }
            AddPaneLine(lines, pending.data() + start, end - start);
            start = feed + 1;
        }
        for (; pending.size() - start >= PRODUCER_LINE_LIMIT; start += PRODUCER_LINE_LIMIT) {
            AddPaneLine(lines, pending.data() + start, PRODUCER_LINE_LIMIT);
        }
        pending.erase(0, start);
        HandOn(output, std::move(lines));
    }
    if (output.discard.load()) {
        return; // the window is closing: nobody will see more
    }
    if (!pending.empty()) {
        std::wstring rest;
        AddPaneLine(rest, pending.data(), pending.size());
        HandOn(output, std::move(rest));
    }
    WaitForSingleObject(process, INFINITE);
    // Windows refuses posts to a full queue; lines can wait, but the exit may not be lost: the
    // launcher would go on showing a producer that is gone.
    while (!PostMessageW(g_launcher.mainWindow, WM_APP_PRODUCER_EXITED, 0, 0) &&
           GetLastError() == ERROR_NOT_ENOUGH_QUOTA && !output.discard.load()) {
        Sleep(10);
    }
}

std::wstring TakeProducerOutput() {
    ProducerOutput& output = g_launcher.producerOutput;
    output.wakePending.store(false);
    SLIST_ENTRY* oldest = nullptr;
    for (SLIST_ENTRY* entry = InterlockedFlushSList(&output.batches); entry != nullptr;) {
        SLIST_ENTRY* older = entry->Next;
        entry->Next = oldest;
        oldest = entry;
        entry = older;
    }
    std::wstring text;
    while (oldest != nullptr) {
        OutputBatch* batch = CONTAINING_RECORD(oldest, OutputBatch, entry);
        oldest = oldest->Next;
        if (text.empty()) {
            text = std::move(batch->text);
        } else {
            text += batch->text;
        }
        delete batch;
    }
    output.waiting -= text.size();
    if (output.room != nullptr) {
        SetEvent(output.room);
    }
    return text;
}

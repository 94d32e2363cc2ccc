#include "producer/output_pump.h"

#include <algorithm>
#include <string_view>

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

// The line as consecutive pane lines of at most PRODUCER_LINE_LIMIT characters.
void AddPieces(std::wstring& lines, const char* line, size_t count) {
    do {
        size_t piece = std::min(count, PRODUCER_LINE_LIMIT);
        AddPaneLine(lines, line, piece);
        line += piece;
        count -= piece;
    } while (count > 0);
}

// The CR of a CR LF ends a line, and costs what a printable character does.
size_t CharacterCost(std::wstring_view text, size_t at) {
    wchar_t c = text[at];
    bool lineEnd = c == L'\n' || (c == L'\r' && at + 1 < text.size() && text[at + 1] == L'\n');
    return c < L' ' && !lineEnd ? PRODUCER_CONTROL_CHARACTER_COST : 1;
}

// Where an update that costs the control at most `limit` ends: after its last whole line, or after the
// first line if that alone costs more.
size_t UpdateEnd(std::wstring_view text, size_t limit) {
    size_t cost = 0, end = 0;
    for (size_t at = 0; at < text.size(); ++at) {
        cost += CharacterCost(text, at);
        if (cost > limit && end > 0) {
            return end;
        }
        if (text[at] == L'\n') {
            end = at + 1;
        }
    }
    return text.size();
}

} // namespace

void PumpProducerOutput(HANDLE pipeRead, HANDLE process) {
    ProducerOutput& output = g_launcher.producerOutput;
    char chunk[PRODUCER_READ_CHUNK];
    std::string pending;
    pending.reserve(PRODUCER_LINE_LIMIT + PRODUCER_READ_CHUNK);
    for (;;) {
        // Only a failed read ends the stream: a read of no bytes is a write of nothing, which some
        // runtimes make when they flush an empty buffer.
        DWORD count = 0;
        if (!ReadFile(pipeRead, chunk, sizeof(chunk), &count, nullptr) || output.discard.load()) {
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
            AddPieces(lines, pending.data() + start, end - start);
            start = feed + 1;
        }
        // A line of the limit waits for its CR LF, rather than end in a blank line.
        for (; pending.size() - start > PRODUCER_LINE_LIMIT + 1; start += PRODUCER_LINE_LIMIT) {
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
        AddPieces(rest, pending.data(), pending.size());
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

void PrepareProducerOutput() {
    ProducerOutput& output = g_launcher.producerOutput;
    if (output.room == nullptr) {
        InitializeSListHead(&output.batches);
        // Kept for the launcher's life. Without it the reader never waits for room, as before.
        output.room = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    }
    output.discard.store(false);
}

size_t OutputCost(std::wstring_view text) {
    size_t cost = 0;
    for (size_t at = 0; at < text.size(); ++at) {
        cost += CharacterCost(text, at);
    }
    return cost;
}

std::wstring TakeProducerOutput(size_t limit, bool* more) {
    ProducerOutput& output = g_launcher.producerOutput;
    SLIST_ENTRY* oldest = nullptr;
    for (SLIST_ENTRY* entry = InterlockedFlushSList(&output.batches); entry != nullptr;) {
        SLIST_ENTRY* older = entry->Next;
        entry->Next = oldest;
        oldest = entry;
        entry = older;
    }
    while (oldest != nullptr) {
        OutputBatch* batch = CONTAINING_RECORD(oldest, OutputBatch, entry);
        oldest = oldest->Next;
        output.taken += batch->text;
        delete batch;
    }
    size_t end = UpdateEnd(output.taken, limit);
    std::wstring text = output.taken.substr(0, end);
    output.taken.erase(0, end);
    output.waiting -= text.size();
    if (output.room != nullptr) {
        SetEvent(output.room);
    }
    *more = !output.taken.empty();
    if (!*more) {
        output.taken.shrink_to_fit(); // a flood's backlog is not kept for good
        output.wakePending.store(false);
        // A batch pushed before that line found a wake pending, and posted none.
        *more = QueryDepthSList(&output.batches) > 0;
    }
    return text;
}

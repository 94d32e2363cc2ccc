// The reader thread's body: the producer's output pipe cut into lines for the status pane, handed to
// the UI thread in batches.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>

inline constexpr size_t PRODUCER_READ_CHUNK = 4096;
// A longer line goes on as the next line of the pane, and so does a line that is still going on once
// it is this long. The control wraps a line at a cost that grows with the square of its length: past
// this length a character of text without blanks costs the control twice what it costs in a short line.
inline constexpr size_t PRODUCER_LINE_LIMIT = 256;
// Past this many characters waiting to be shown the reader stops reading, and the producer waits on
// its full pipe as it would on a terminal: nothing is dropped, memory stays bounded, and little is
// left to show once the producer has gone.
inline constexpr size_t PRODUCER_OUTPUT_BACKLOG = 128 * 1024;
// One update of the pane shows output that costs at most this much, so that the window answers between
// updates however much waits: adding text costs the control time for every line it wraps.
inline constexpr size_t PRODUCER_OUTPUT_UPDATE = 64 * 1024;
// What a control character within a line (a lone CR, a tab) costs the control, in printable characters:
// in runs Wine's took 40 to 80 us for each, against 2 to 3 for printable text. Counted so, every shape of
// text measured costs within a factor of four per unit (a line of tabs alone, eleven), and an update
// sized by what the last one cost holds when the output turns from text to carriage returns.
inline constexpr size_t PRODUCER_CONTROL_CHARACTER_COST = 64;

// Text on its way from the reader to the UI thread, without a lock: the reader pushes one batch per
// read and wakes the UI thread with WM_APP_PRODUCER_OUTPUT unless a wake is pending. The wake counts
// as pending while the UI thread still has output to show, which its own timer then brings.
struct ProducerOutput {
    SLIST_HEADER batches = {}; // newest first
    std::atomic<size_t> waiting{0};
    std::atomic<bool> wakePending{false};
    // Set once the window closes: the reader then stops reading and posts nothing more.
    std::atomic<bool> discard{false};
    // Auto-reset; set when the UI thread has shown text, or when the reader must stop waiting.
    HANDLE room = nullptr;
    // UI thread only: taken off the list and not shown yet, oldest first.
    std::wstring taken;
};

// UI thread, before the first reader starts.
void PrepareProducerOutput();
// Hands on one batch of pane text per read (each LF-terminated line with one trailing CR removed;
// the unterminated rest at the end) until a read fails, then waits for the process and posts
// WM_APP_PRODUCER_EXITED. Closes neither handle.
void PumpProducerOutput(HANDLE pipeRead, HANDLE process);
size_t OutputCost(std::wstring_view text);
// UI thread: what waits, oldest first, in whole lines that cost up to `limit` (or one line that costs more),
// and room for the reader. `more` tells whether output still waits; while none does, the reader's next batch
// posts a wake.
std::wstring TakeProducerOutput(size_t limit, bool* more);

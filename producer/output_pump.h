// The reader thread's body: the producer's output pipe cut into status lines.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstddef>

inline constexpr size_t PRODUCER_READ_CHUNK = 4096;
// A producer that never ends a line must not make the launcher grow without end: past this many
// bytes the pending text goes out as a line of its own.
inline constexpr size_t PRODUCER_LINE_LIMIT = 65536;

// Posts one status line per LF-terminated line (one trailing CR removed), then the unterminated rest,
// then waits for the process and posts WM_APP_PRODUCER_EXITED. Closes neither handle. Once `discard`
// is set, what is still in the pipe is left unread: nobody will see it.
void PumpProducerOutput(HANDLE pipeRead, HANDLE process, const std::atomic<bool>* discard = nullptr);

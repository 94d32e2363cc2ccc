// Starting, stopping and cleaning up after the producer process. UI thread only.
#pragma once

#include <windows.h>

inline constexpr UINT_PTR OUTPUT_TIMER_ID = 1;

void OnStartProducerCommand();
void OnStopProducerCommand();
// Joins the reader, then closes the pipe, the process and the job.
void CleanupProducer();
// The reader's wake, and the timer that brings the output while it flows.
void OnProducerWake();
void OnOutputTick();
// The exit message from the reader: the last output, then back to idle.
void OnProducerExited();
// Before the window goes: ends a running producer with everything it started, and joins the reader.
void EndProducerBeforeClose();

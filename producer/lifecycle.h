// Starting, stopping and cleaning up after the producer process. UI thread only.
#pragma once

void OnStartProducerCommand();
void OnStopProducerCommand();
// Joins the reader, then closes the pipe, the process and the job.
void CleanupProducer();
// The reader's wake: the waiting output into the pane, unless the user drags a selection there.
void OnProducerOutput();
// The exit message from the reader: the last output, then back to idle.
void OnProducerExited();
// Before the window goes: ends a running producer with everything it started, and joins the reader.
void EndProducerBeforeClose();

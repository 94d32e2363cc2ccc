// The main window's procedure: builds the window's content, routes commands, takes in what the
// output reader posts, and ends the window.
#pragma once

#include <windows.h>

LRESULT CALLBACK MainWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// Start disabled and Stop enabled while running; the other way round when idle.
void SetProducerRunning(bool running);
bool IsElevated();

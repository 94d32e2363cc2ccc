// Failure codes as text, and the name of the stage that failed last on this thread.
#pragma once

#include <windows.h>

#include <string>

// "0x" and eight upper-case hex digits, then " (system text)" when the system has one.
std::wstring FormatHresult(HRESULT hr);
// The code in decimal, then " (system text)" when the system has one.
std::wstring FormatWin32Error(DWORD code);
// The system's message for the code, trailing CR, LF and blanks removed; empty when there is none.
std::wstring SystemMessageText(DWORD source, DWORD code);

// Keeps the stage for this thread, logs "<stage> failed: <code text>" and hands hr back.
HRESULT RecordFailure(const std::wstring& stage, HRESULT hr);
std::wstring GetFailureDetail();
void ClearFailureDetail();

// HRESULT_FROM_WIN32: a positive code becomes a failure of FACILITY_WIN32; 0 and negatives pass through.
HRESULT HresultFromWin32(DWORD code);
// The calling thread's last error as an HRESULT; `fallback` stands in when a failed call left it at 0,
// so that a failure can never read as success.
HRESULT LastErrorAsHresult(DWORD fallback);

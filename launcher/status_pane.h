// The status pane: one line per outcome and per line the producer prints.
#pragma once

#include <string>

// UI thread only. Lost silently while the pane does not exist.
void AppendStatusLine(const std::wstring& text);
// Any thread: the line travels through the main window's queue. Lost if the post fails.
void PostStatusLine(const std::wstring& text);
// The same, taking over the caller's string instead of copying it.
void PostStatusLine(std::wstring&& text);

// The status pane: one line per outcome and per line the producer prints, kept as a scrollback of the
// newest lines.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

// The pane keeps at most this many characters and lines: about an hour and three quarters of one
// 80-character line a second. The line bound keeps the control's wrapped lines well under the 65,536
// that a 16-bit scroll thumb can reach, however short the lines are.
inline constexpr size_t STATUS_PANE_CAPACITY = 512 * 1024;
inline constexpr size_t STATUS_PANE_LINE_CAPACITY = 16 * 1024;
inline constexpr unsigned STATUS_PANE_DRAW_MS = 40;

// UI thread only. Lost silently while the pane does not exist.
void AppendStatusLine(const std::wstring& text);
// Any thread: the line travels through the main window's queue. Lost if the post fails.
void PostStatusLine(const std::wstring& text);

// Adds `line` to `text` as the pane shows it, with its line end. One wide character per character,
// bytes read as Latin-1. Every text bound for the pane passes here: a zero character would end what the
// control takes, line end and all, so it becomes a blank, as a console shows it.
template <typename Char> void AddPaneLine(std::wstring& text, const Char* line, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        text += line[i] == 0 ? L' ' : static_cast<wchar_t>(static_cast<std::make_unsigned_t<Char>>(line[i]));
    }
    text += L"\r\n";
}

// UI thread: adds text made by AddPaneLine at the end, dropping the oldest lines past the capacity.
// Follows the output while the end is in view, unless a selection holds it in the pane that has, or will
// get back, the focus; otherwise the view stays on its text. A selection always stays on its text.
// Drawn at once, or with `steady` (the producer's output as it flows) at most every STATUS_PANE_DRAW_MS:
// the drawing then owed is left to DrawStatusPane. True when the oldest lines went.
bool AppendStatusText(const std::wstring& text, bool steady = false);
// Draws what is owed: at once, or with `steady` once STATUS_PANE_DRAW_MS has passed since the last time.
void DrawStatusPane(bool steady);
bool IsStatusPaneDrawOwed();
// UI thread: scrolls the end into view, leaving a selection where it is.
void ShowStatusPaneEnd();
// While the user drags a selection in the pane, new text would turn its anchor.
bool IsStatusPaneDragged();

// How many characters to take off the front of `pane` followed by `incoming` so that both limits
// hold: 0 while they do, else whole lines (ended by CR LF), a quarter of a limit at least, so that
// removal is rare. Only a line longer than that quarter is cut inside.
size_t StatusPaneCut(std::wstring_view pane, std::wstring_view incoming, size_t capacity,
                     size_t lineCapacity);
size_t CountLineEnds(std::wstring_view text);

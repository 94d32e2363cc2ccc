#include "launcher/status_pane.h"

#include <algorithm>

#include "launcher/control_ids.h"
#include "launcher/launcher_state.h"

namespace {

LRESULT Send(HWND pane, UINT message, WPARAM wParam = 0, LPARAM lParam = 0) {
    return SendMessageW(pane, message, wParam, lParam);
}

// The control's own rows that fit in its view; the rows are counted as the control wraps them.
LRESULT VisibleRows(HWND pane) {
    RECT rect = {};
    Send(pane, EM_GETRECT, 0, reinterpret_cast<LPARAM>(&rect));
    TEXTMETRICW metrics = {};
    HDC dc = GetDC(pane);
    HGDIOBJ font = SelectObject(dc, reinterpret_cast<HGDIOBJ>(Send(pane, WM_GETFONT)));
    GetTextMetricsW(dc, &metrics);
    SelectObject(dc, font);
    ReleaseDC(pane, dc);
    return metrics.tmHeight > 0 ? (rect.bottom - rect.top) / metrics.tmHeight : 0;
}

bool IsEndInView(HWND pane, LRESULT firstVisible) {
    return firstVisible + VisibleRows(pane) >= Send(pane, EM_GETLINECOUNT);
}

// With the last row at the bottom; the control stops at the last row by itself.
void ScrollToEnd(HWND pane) {
    LRESULT first = std::max<LRESULT>(Send(pane, EM_GETLINECOUNT) - VisibleRows(pane), 0);
    Send(pane, EM_LINESCROLL, 0, first - Send(pane, EM_GETFIRSTVISIBLELINE));
}

std::wstring PaneText(HWND pane, size_t length) {
    std::wstring text(length + 1, L'\0');
    text.resize(
        static_cast<size_t>(Send(pane, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()))));
    return text;
}

DWORD Shifted(DWORD position, size_t removed) {
    return position > removed ? static_cast<DWORD>(position - removed) : 0;
}

} // namespace

size_t CountLineEnds(std::wstring_view text) {
    size_t ends = 0;
    for (size_t at = text.find(L"\r\n"); at != std::wstring_view::npos; at = text.find(L"\r\n", at + 2)) {
        ++ends;
    }
    return ends;
}

size_t StatusPaneCut(std::wstring_view pane, std::wstring_view incoming, size_t capacity,
                     size_t lineCapacity) {
    size_t total = pane.size() + incoming.size(), lines = CountLineEnds(pane) + CountLineEnds(incoming);
    if (total <= capacity && lines <= lineCapacity) {
        return 0;
    }
    size_t slice = capacity / 4;
    size_t chars = total > capacity ? std::max(total - capacity, slice) : 0;
    size_t ends = lines > lineCapacity ? std::max(lines - lineCapacity, lineCapacity / 4) : 0;
    auto at = [&](size_t i) { return i < pane.size() ? pane[i] : incoming[i - pane.size()]; };
    size_t passed = 0, lineStart = 0;
    for (size_t i = 0; i + 1 < total; ++i) {
        if (at(i) != L'\r' || at(i + 1) != L'\n') {
            continue;
        }
        size_t end = i + 2;
        if (++passed >= ends && end >= chars) {
            return lineStart < chars && end - lineStart > slice ? chars : end;
        }
        lineStart = end;
        ++i;
    }
    return chars; // the rest is one unended line
}

void AppendStatusLine(const std::wstring& text) {
    std::wstring line;
    AddPaneLine(line, text.data(), text.size());
    AppendStatusText(line);
}

bool AppendStatusText(const std::wstring& text, bool steady) {
    HWND pane = g_launcher.statusPane;
    if (pane == nullptr || text.empty()) {
        DrawStatusPane(steady);
        return false;
    }
    size_t length = static_cast<size_t>(GetWindowTextLengthW(pane)), lines = CountLineEnds(text);
    // 32-bit positions through the pointers; the packed result holds only 16 bits of each.
    DWORD selStart = 0, selEnd = 0;
    Send(pane, EM_GETSEL, reinterpret_cast<WPARAM>(&selStart), reinterpret_cast<LPARAM>(&selEnd));
    LRESULT first = Send(pane, EM_GETFIRSTVISIBLELINE);
    bool selected = selStart != selEnd;
    // In the background the thread has no focus, and the one kept stands in; once the window is active
    // again, only its own counts.
    HWND focus = GetFocus() != nullptr ? GetFocus() : g_launcher.focusBack;
    bool follow = IsEndInView(pane, first) && !(selected && focus == pane);
    size_t cut = 0;
    if (length + text.size() > STATUS_PANE_CAPACITY ||
        g_launcher.statusPaneLines + lines > STATUS_PANE_LINE_CAPACITY) {
        std::wstring held = PaneText(pane, length);
        cut = StatusPaneCut(held, text, STATUS_PANE_CAPACITY, STATUS_PANE_LINE_CAPACITY);
        length = held.size();
        g_launcher.statusPaneLines = CountLineEnds(std::wstring_view(held).substr(std::min(cut, length)));
    }
    size_t removed = std::min(cut, length), skipped = cut - removed;
    g_launcher.statusPaneLines += CountLineEnds(std::wstring_view(text).substr(skipped));
    // Following with nothing selected, the caret goes to the end, as in a terminal. Otherwise the
    // selection comes back, and the view goes to the end or back to where it was.
    bool restore = !follow || selected;
    // No step of the update is drawn: the default procedure's WM_SETREDRAW takes WS_VISIBLE away while
    // the pane stays on the screen. Called directly, since Wine's edit control swallows the message, and
    // there drawing every step cost more than the update itself. It also validates the pane: a paint
    // still waiting (a scroll of the user's, an uncovered part) is owed from here on.
    g_launcher.statusPaneOwed = true;
    DefWindowProcW(pane, WM_SETREDRAW, FALSE, 0);
    if (removed > 0) {
        LRESULT firstChar = Send(pane, EM_LINEINDEX, static_cast<WPARAM>(first));
        Send(pane, EM_SETSEL, 0, static_cast<LPARAM>(removed));
        Send(pane, EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(L""));
        length -= removed;
        selStart = Shifted(selStart, removed);
        selEnd = Shifted(selEnd, removed);
        first = Send(pane, EM_LINEFROMCHAR, Shifted(static_cast<DWORD>(firstChar), removed));
    }
    Send(pane, EM_SETSEL, static_cast<WPARAM>(length), static_cast<LPARAM>(length));
    Send(pane, EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(text.c_str() + skipped));
    if (!restore) {
        Send(pane, EM_SCROLLCARET);
    } else {
        // The view first, before the selection comes back, which would show a jump otherwise; then
        // again, since selecting may scroll to the caret.
        auto view = [&] {
            if (follow) {
                ScrollToEnd(pane);
            } else {
                Send(pane, EM_LINESCROLL, 0, first - Send(pane, EM_GETFIRSTVISIBLELINE));
            }
        };
        view();
        Send(pane, EM_SETSEL, selStart, selEnd);
        view();
    }
    DefWindowProcW(pane, WM_SETREDRAW, TRUE, 0);
    DrawStatusPane(steady);
    return removed > 0;
}

// Output as it flows only asks for a paint: the paint comes before the timer that brings the next update,
// and after the user's input. Anything else is painted before returning, where a paint only asked for might
// wait behind an update, whose WM_SETREDRAW would throw it away; a drag then starts over the text that
// the control hit-tests.
void DrawStatusPane(bool steady) {
    ULONGLONG now = GetTickCount64();
    if (g_launcher.statusPane == nullptr || !g_launcher.statusPaneOwed ||
        (steady && now - g_launcher.statusPaneDrawn < STATUS_PANE_DRAW_MS)) {
        return;
    }
    RedrawWindow(g_launcher.statusPane, nullptr, nullptr,
                 RDW_ERASE | RDW_FRAME | RDW_INVALIDATE | (steady ? 0 : RDW_UPDATENOW));
    g_launcher.statusPaneDrawn = now;
    g_launcher.statusPaneOwed = false;
}

bool IsStatusPaneDrawOwed() {
    return g_launcher.statusPaneOwed;
}

void ShowStatusPaneEnd() {
    if (g_launcher.statusPane != nullptr) {
        ScrollToEnd(g_launcher.statusPane);
    }
}

bool IsStatusPaneDragged() {
    return g_launcher.statusPane != nullptr && GetCapture() == g_launcher.statusPane;
}

void PostStatusLine(const std::wstring& text) {
    std::wstring* line = new std::wstring(text);
    if (!PostMessageW(g_launcher.mainWindow, WM_APP_STATUS_LINE, 0, reinterpret_cast<LPARAM>(line))) {
        delete line;
    }
}

#include "tests/doubles/standin_common.h"

#include <objbase.h>

#include <cstdio>
#include <cstdlib>

namespace standin {

std::optional<std::wstring> EnvironmentVariable(const wchar_t* name) {
    std::wstring value(64, L'\0');
    for (;;) {
        SetLastError(ERROR_SUCCESS);
        const DWORD length = GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
        if (length == 0) {
            // An existing but empty variable also returns 0, with no error set.
            if (GetLastError() == ERROR_ENVVAR_NOT_FOUND) {
                return std::nullopt;
            }
            return std::wstring();
        }
        if (length < value.size()) {
            value.resize(length);
            return value;
        }
        value.resize(length);
    }
}

std::string Utf8(std::wstring_view text) {
    if (text.empty()) {
        return {};
    }
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                         nullptr, nullptr);
    std::string result(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), result.data(), size, nullptr,
                        nullptr);
    return result;
}

std::string Utf8OrNull(const wchar_t* text) {
    return text == nullptr ? std::string("(null)") : Utf8(text);
}

std::wstring Utf16(std::string_view text) {
    if (text.empty()) {
        return {};
    }
    const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring result(static_cast<size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), result.data(), size);
    return result;
}

std::string HresultText(HRESULT hr) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(hr));
    return text;
}

std::string GuidText(REFGUID guid) {
    wchar_t text[40] = {};
    StringFromGUID2(guid, text, 40);
    return Utf8(text);
}

void Journal(const std::string& line) {
    const std::optional<std::wstring> path = EnvironmentVariable(L"VQTEST_JOURNAL");
    if (!path || path->empty()) {
        return;
    }
    // Append-only access makes each line one atomic append, even with several writers.
    const HANDLE file =
        CreateFileW(path->c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return;
    }
    const std::string bytes = line + "\n";
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
}

std::optional<std::string> ReadWholeFile(const std::wstring& path) {
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return std::nullopt;
    }
    std::string content;
    char buffer[4096];
    DWORD got = 0;
    while (ReadFile(file, buffer, sizeof buffer, &got, nullptr) && got > 0) {
        content.append(buffer, got);
    }
    CloseHandle(file);
    return content;
}

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

} // namespace

std::optional<std::vector<Directive>> ReadScript(const wchar_t* variable) {
    const std::optional<std::wstring> path = EnvironmentVariable(variable);
    if (!path || path->empty()) {
        return std::nullopt;
    }
    const std::optional<std::string> content = ReadWholeFile(*path);
    if (!content) {
        return std::nullopt;
    }
    std::vector<Directive> directives;
    // Editors may put a byte order mark in front of UTF-8.
    size_t start = content->starts_with("\xEF\xBB\xBF") ? 3 : 0;
    while (start < content->size()) {
        size_t end = content->find('\n', start);
        if (end == std::string::npos) {
            end = content->size();
        }
        std::string line;
        for (size_t i = start; i < end; ++i) {
            if ((*content)[i] != '\r') {
                line += (*content)[i];
            }
        }
        start = end + 1;
        if (line.empty() || line[0] == '#') {
            continue;
        }
        Directive directive;
        size_t blank = 0;
        while (blank < line.size() && !IsBlank(line[blank])) {
            ++blank;
        }
        directive.keyword = line.substr(0, blank);
        if (blank < line.size()) {
            directive.argument = line.substr(blank + 1);
        }
        directive.line = std::move(line);
        directives.push_back(std::move(directive));
    }
    return directives;
}

bool ParseHresults(std::string_view text, std::vector<HRESULT>& results) {
    size_t i = 0;
    for (;;) {
        while (i < text.size() && IsBlank(text[i])) {
            ++i;
        }
        if (i == text.size()) {
            return true;
        }
        size_t end = i;
        while (end < text.size() && !IsBlank(text[end])) {
            ++end;
        }
        const std::string token(text.substr(i, end - i));
        i = end;
        char* stop = nullptr;
        const bool negative = token[0] == '-';
        // Hex as the journal prints it, or decimal as a debugger does (negative included).
        const unsigned long long value = std::strtoull(token.c_str() + (negative ? 1 : 0), &stop, 0);
        if (stop == token.c_str() + (negative ? 1 : 0) || *stop != '\0' || value > 0xFFFFFFFFull ||
            (negative && value > 0x80000000ull)) {
            return false;
        }
        const auto bits = static_cast<unsigned long>(negative ? 0x100000000ull - value : value);
        results.push_back(static_cast<HRESULT>(bits));
    }
}

void JournalScriptError(const Directive& directive) {
    Journal("script error: " + directive.line);
}

} // namespace standin

#include "diagnostics/failure.h"

#include <cwchar>

#include "diagnostics/service_log.h"

static thread_local std::wstring FailureDetail;

std::wstring SystemMessageText(DWORD source, DWORD code) {
    wchar_t* buffer = nullptr;
    DWORD length = FormatMessageW(source | FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS,
                                  nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                                  reinterpret_cast<LPWSTR>(&buffer), 0, nullptr);
    std::wstring text;
    if (length != 0 && buffer != nullptr) {
        text.assign(buffer, length);
    }
    if (buffer != nullptr) {
        LocalFree(buffer);
    }
    while (!text.empty() && (text.back() == L'\r' || text.back() == L'\n' || text.back() == L' ')) {
        text.pop_back();
    }
    return text;
}

static std::wstring WithSystemText(std::wstring number, DWORD code) {
    std::wstring text = SystemMessageText(FORMAT_MESSAGE_FROM_SYSTEM, code);
    if (!text.empty()) {
        number += L" (" + text + L")";
    }
    return number;
}

std::wstring FormatHresult(HRESULT hr) {
    wchar_t number[16];
    swprintf(number, 16, L"0x%08X", static_cast<unsigned int>(hr));
    return WithSystemText(number, static_cast<DWORD>(hr));
}

std::wstring FormatWin32Error(DWORD code) {
    return WithSystemText(std::to_wstring(code), code);
}

HRESULT RecordFailure(const std::wstring& stage, HRESULT hr) {
    FailureDetail = stage;
    AppendServiceLog(stage + L" failed: " + FormatHresult(hr));
    return hr;
}

std::wstring GetFailureDetail() {
    return FailureDetail;
}

void ClearFailureDetail() {
    FailureDetail.clear();
}

HRESULT HresultFromWin32(DWORD code) {
    LONG value = static_cast<LONG>(code);
    if (value <= 0) {
        return static_cast<HRESULT>(value);
    }
    return static_cast<HRESULT>((code & 0x0000FFFF) | 0x80070000);
}

HRESULT LastErrorAsHresult(DWORD fallback) {
    DWORD error = GetLastError();
    return HresultFromWin32(error != 0 ? error : fallback);
}

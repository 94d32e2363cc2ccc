#include <gtest/gtest.h>

#include <regex>
#include <thread>

#include "diagnostics/failure.h"
#include "diagnostics/service_log.h"
#include "tests/driver/launcher_driver.h"

namespace {

// The system's own text, read without the code under test.
std::wstring RawSystemText(DWORD code) {
    wchar_t buffer[2048] = {};
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                                  MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), buffer, 2048, nullptr);
    return std::wstring(buffer, length);
}

std::string Narrow(const std::wstring& text) {
    return driver::WideToUtf8(text);
}

} // namespace

TEST(FailureText, HresultIsEightUpperCaseDigitsAndTheSystemText) {
    std::wstring raw = RawSystemText(0x80070002);
    ASSERT_FALSE(raw.empty()) << "the system has a text for file-not-found";
    std::wstring text = FormatHresult(static_cast<HRESULT>(0x80070002));
    EXPECT_EQ(text.rfind(L"0x80070002 (", 0), 0u) << Narrow(text);
    EXPECT_EQ(text.back(), L')');
    std::wstring inner = text.substr(12, text.size() - 13);
    EXPECT_EQ(raw.rfind(inner, 0), 0u) << "the bracket holds the system text, trimmed";
    for (wchar_t c : raw.substr(inner.size())) {
        EXPECT_TRUE(c == L'\r' || c == L'\n' || c == L' ') << "only CR, LF and blanks are trimmed";
    }
    EXPECT_TRUE(inner.back() != L'\r' && inner.back() != L'\n' && inner.back() != L' ');

    EXPECT_EQ(FormatHresult(5).rfind(L"0x00000005 (", 0), 0u) << Narrow(FormatHresult(5));
    EXPECT_EQ(FormatHresult(0).rfind(L"0x00000000 (", 0), 0u) << "success is not treated apart";
    EXPECT_TRUE(std::regex_match(Narrow(FormatHresult(static_cast<HRESULT>(0xABCDEF12))),
                                 std::regex("0xABCDEF12( \\(.+\\))?")));
    EXPECT_EQ(FormatHresult(static_cast<HRESULT>(0x8FFF7A31)), L"0x8FFF7A31") << "no text, no brackets";
}

TEST(FailureText, Win32CodeIsPlainDecimal) {
    std::wstring text = FormatWin32Error(5);
    EXPECT_EQ(text.rfind(L"5 (", 0), 0u) << Narrow(text);
    EXPECT_EQ(FormatWin32Error(2).rfind(L"2 (", 0), 0u);
    EXPECT_EQ(FormatWin32Error(0xFFFFFF70u), L"4294967152") << "unsigned, no text";
}

TEST(FailureText, SystemTextKeepsInnerBreaksAndFullStop) {
    std::wstring text = SystemMessageText(FORMAT_MESSAGE_FROM_SYSTEM, ERROR_ACCESS_DENIED);
    std::wstring raw = RawSystemText(ERROR_ACCESS_DENIED);
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(raw.rfind(text, 0), 0u);
    EXPECT_NE(text.back(), L'\n');
    EXPECT_EQ(SystemMessageText(FORMAT_MESSAGE_FROM_SYSTEM, 0x8FFF7A31), L"");
}

TEST(FailureText, Win32ResultsBecomeHresults) {
    EXPECT_EQ(HresultFromWin32(2), static_cast<HRESULT>(0x80070002));
    EXPECT_EQ(HresultFromWin32(0), S_OK);
    EXPECT_EQ(HresultFromWin32(1722), static_cast<HRESULT>(0x800706BA));
    EXPECT_EQ(HresultFromWin32(0x80070002), static_cast<HRESULT>(0x80070002)) << "already negative passes";
    EXPECT_EQ(HresultFromWin32(0x00012345), static_cast<HRESULT>(0x80072345)) << "low 16 bits only";
    SetLastError(0);
    EXPECT_EQ(LastErrorAsHresult(ERROR_MOD_NOT_FOUND), static_cast<HRESULT>(0x8007007E))
        << "a failure with no last error must still be a failure";
}

TEST(FailureText, RecordFailureKeepsTheStagePerThreadAndLogsIt) {
    std::wstring log = ServiceLogPath();
    DeleteFileW(log.c_str());
    ClearFailureDetail();
    HRESULT hr = RecordFailure(L"IMFVirtualCamera::Start", static_cast<HRESULT>(0x80070002));
    EXPECT_EQ(hr, static_cast<HRESULT>(0x80070002));
    EXPECT_EQ(GetFailureDetail(), L"IMFVirtualCamera::Start");

    std::wstring seenElsewhere = L"unset";
    std::thread([&] { seenElsewhere = GetFailureDetail(); }).join();
    EXPECT_EQ(seenElsewhere, L"") << "another thread has its own detail";

    std::vector<std::wstring> lines = driver::ReadUtf8Lines(log);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].substr(20),
              L"IMFVirtualCamera::Start failed: " + FormatHresult(static_cast<HRESULT>(0x80070002)));
    ClearFailureDetail();
    EXPECT_EQ(GetFailureDetail(), L"");
}

#include <gtest/gtest.h>

#include <regex>

#include "diagnostics/service_log.h"
#include "tests/driver/driver.h"

namespace fs = std::filesystem;

TEST(ServiceLog, StampedUtf8LinesAndLostOnesDisturbNothing) {
    const fs::path log = L"C:\\ProgramData\\Veloquin\\Logs\\vcam-service.log";
    fs::remove_all(L"C:\\ProgramData\\Veloquin");
    fs::create_directories(L"C:\\ProgramData\\Veloquin");
    driver::Write(log.parent_path(), "a file where the folder belongs");
    AppendServiceLog(L"lost");
    fs::remove(log.parent_path());
    AppendServiceLog(L"first \u2014 \u30ab\u30e1\u30e9");
    HANDLE locked =
        CreateFileW(log.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    AppendServiceLog(L"locked out");
    CloseHandle(locked);
    AppendServiceLog(L"");
    AppendServiceLog(L"two\nlines");
    std::regex stamp("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d ");
    EXPECT_EQ(std::regex_replace(driver::Read(log), stamp, "<stamp> "),
              "<stamp> first \xE2\x80\x94 \xE3\x82\xAB\xE3\x83\xA1\xE3\x83\xA9\r\n<stamp> \r\n<stamp> "
              "two\r\nlines\r\n");
}

TEST(ServiceLog, FallsBackToTheVariableThenTheTempFolder) {
    const fs::path scratch = driver::Scenario(L"service-log");
    // Without its folder the system can't name the program-data folder.
    ASSERT_TRUE(MoveFileW(L"C:\\ProgramData", L"C:\\ProgramData.away"));
    SetEnvironmentVariableW(L"ProgramData", (scratch / L"data").c_str());
    AppendServiceLog(L"under the variable");
    SetEnvironmentVariableW(L"ProgramData", nullptr);
    SetEnvironmentVariableW(L"TMP", scratch.c_str());
    SetEnvironmentVariableW(L"TEMP", scratch.c_str());
    AppendServiceLog(L"under temp");
    MoveFileW(L"C:\\ProgramData.away", L"C:\\ProgramData");
    SetEnvironmentVariableW(L"ProgramData", L"C:\\ProgramData");
    for (auto [folder, text] :
         {std::pair{scratch / L"data", L"under the variable"}, {scratch, L"under temp"}}) {
        auto lines = driver::FileLines(folder / L"Veloquin\\Logs\\vcam-service.log");
        ASSERT_EQ(lines.size(), 1u) << folder;
        EXPECT_EQ(lines[0].substr(20), text);
    }
}

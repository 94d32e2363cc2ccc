#include <gtest/gtest.h>

#include <regex>

#include "diagnostics/service_log.h"
#include "tests/driver/launcher_driver.h"

namespace {

const wchar_t PROGRAM_DATA[] = L"C:\\ProgramData";
const wchar_t PROGRAM_DATA_AWAY[] = L"C:\\ProgramData.away";

std::wstring GetVariable(const wchar_t* name, bool* present) {
    wchar_t buffer[32768] = {};
    DWORD length = GetEnvironmentVariableW(name, buffer, 32768);
    *present = length != 0 || GetLastError() != ERROR_ENVVAR_NOT_FOUND;
    return buffer;
}

// Sets or removes environment variables for one test and puts them back afterwards.
struct VariableScope {
    std::vector<std::tuple<std::wstring, std::wstring, bool>> saved;
    void Set(const wchar_t* name, const wchar_t* value) {
        bool present = false;
        std::wstring old = GetVariable(name, &present);
        saved.emplace_back(name, old, present);
        SetEnvironmentVariableW(name, value);
    }
    ~VariableScope() {
        for (auto it = saved.rbegin(); it != saved.rend(); ++it) {
            SetEnvironmentVariableW(std::get<0>(*it).c_str(),
                                    std::get<2>(*it) ? std::get<1>(*it).c_str() : nullptr);
        }
    }
};

// Takes the known program-data folder away, so that the system can't answer for it.
struct KnownFolderAway {
    bool moved = MoveFileW(PROGRAM_DATA, PROGRAM_DATA_AWAY) != 0;
    ~KnownFolderAway() {
        if (moved) {
            MoveFileW(PROGRAM_DATA_AWAY, PROGRAM_DATA);
        }
    }
};

std::string Utf8(const std::wstring& text) {
    return driver::WideToUtf8(text);
}

} // namespace

TEST(ServiceLog, LinesAreStampedUtf8WithCrLfAndAppend) {
    std::wstring log = ServiceLogPath();
    EXPECT_EQ(log, L"C:\\ProgramData\\Veloquin\\Logs\\vcam-service.log");
    driver::DeleteTree(L"C:\\ProgramData\\Veloquin");

    AppendServiceLog(L"first");
    const std::wstring wide =
        L"retrying in 1000 ms \u2014 C:\\\u0412\u0438\u0434\u0435\u043e\\\u30ab\u30e1\u30e9 \U0001F4F7";
    AppendServiceLog(wide);
    AppendServiceLog(L"");
    AppendServiceLog(L"two\nlines");

    std::string bytes = driver::ReadBytes(log);
    std::regex stamp("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d ");
    std::string expected = "S first\r\nS " + Utf8(wide) + "\r\nS \r\nS two\r\nlines\r\n";
    std::string masked = std::regex_replace(bytes, stamp, "S ");
    EXPECT_EQ(masked, expected) << "folder created, every character kept, CR LF ends";

    AppendServiceLog(L"after");
    std::string grown = driver::ReadBytes(log);
    EXPECT_EQ(grown.substr(0, bytes.size()), bytes) << "the file is never shortened";
    EXPECT_EQ(std::regex_replace(grown.substr(bytes.size()), stamp, "S "), "S after\r\n");
}

TEST(ServiceLog, LostLinesDisturbNothing) {
    std::wstring log = ServiceLogPath();
    driver::DeleteTree(L"C:\\ProgramData\\Veloquin");
    ASSERT_TRUE(driver::CreateFolders(L"C:\\ProgramData\\Veloquin"));
    ASSERT_TRUE(driver::WriteBytes(L"C:\\ProgramData\\Veloquin\\Logs", "a file where the folder belongs"));
    AppendServiceLog(L"lost");
    EXPECT_FALSE(driver::FileExists(log));

    ASSERT_TRUE(DeleteFileW(L"C:\\ProgramData\\Veloquin\\Logs"));
    AppendServiceLog(L"kept");
    HANDLE locked =
        CreateFileW(log.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(locked, INVALID_HANDLE_VALUE);
    AppendServiceLog(L"locked out");
    CloseHandle(locked);
    AppendServiceLog(L"kept again");

    std::vector<std::wstring> lines = driver::ReadUtf8Lines(log);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].substr(20), L"kept");
    EXPECT_EQ(lines[1].substr(20), L"kept again");
}

TEST(ServiceLog, FallsBackToTheVariableThenTheTempFolder) {
    std::wstring scratch = driver::ScratchFolder(L"service-log-fallback");
    std::wstring variableFolder = driver::JoinPath(scratch, L"program data");
    std::wstring tempFolder = driver::JoinPath(scratch, L"temp");
    ASSERT_TRUE(driver::CreateFolders(variableFolder));
    ASSERT_TRUE(driver::CreateFolders(tempFolder));

    VariableScope variables;
    KnownFolderAway away;
    ASSERT_TRUE(away.moved);

    variables.Set(L"ProgramData", variableFolder.c_str());
    EXPECT_EQ(ProgramDataFolder(), variableFolder);
    AppendServiceLog(L"under the variable");
    EXPECT_EQ(driver::ReadUtf8Lines(variableFolder + L"\\Veloquin\\Logs\\vcam-service.log").size(), 1u);

    std::wstring longFolder = variableFolder;
    while (longFolder.size() < 300) {
        longFolder += L"\\a-long-program-data-folder";
    }
    variables.Set(L"ProgramData", longFolder.c_str());
    EXPECT_EQ(ProgramDataFolder(), longFolder) << "a value past 260 characters is read whole";

    variables.Set(L"ProgramData", nullptr);
    variables.Set(L"TMP", tempFolder.c_str());
    variables.Set(L"TEMP", tempFolder.c_str());
    EXPECT_EQ(ProgramDataFolder(), tempFolder + L"\\");
    AppendServiceLog(L"under temp");
    std::vector<std::wstring> lines =
        driver::ReadUtf8Lines(tempFolder + L"\\Veloquin\\Logs\\vcam-service.log");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].substr(20), L"under temp");

    std::wstring nowhere = driver::JoinPath(scratch, L"no-such-temp");
    variables.Set(L"TMP", nowhere.c_str());
    variables.Set(L"TEMP", nowhere.c_str());
    variables.Set(L"USERPROFILE", nowhere.c_str());
    EXPECT_EQ(ServiceLogPath(), L"");
    AppendServiceLog(L"nowhere to go");
    EXPECT_FALSE(driver::FileExists(nowhere)) << "the line is lost, and nothing is made in its place";
}

#include <gtest/gtest.h>

#include <aclapi.h>
#include <sddl.h>

#include <regex>

#include "diagnostics/plain_files.h"
#include "diagnostics/service_log.h"
#include "tests/driver/driver.h"

namespace fs = std::filesystem;

// Whether anyone but SYSTEM, the administrators and the owner may write in the folder.
static bool OthersMayWrite(const fs::path& folder) {
    void *owner = nullptr, *descriptor = nullptr; // a SID and a security descriptor
    PACL dacl = nullptr;
    GetNamedSecurityInfoW(folder.c_str(), SE_FILE_OBJECT,
                          OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &owner, nullptr, &dacl,
                          nullptr, &descriptor);
    bool others = dacl == nullptr; // a null DACL lets everyone in
    ACCESS_ALLOWED_ACE* ace = nullptr;
    for (DWORD i = 0; dacl != nullptr && GetAce(dacl, i, reinterpret_cast<void**>(&ace)); ++i) {
        PSID sid = &ace->SidStart;
        others |=
            (ace->Mask & (FILE_ADD_FILE | FILE_ADD_SUBDIRECTORY | WRITE_DAC | GENERIC_WRITE | GENERIC_ALL)) &&
            !EqualSid(sid, owner) && !IsWellKnownSid(sid, WinLocalSystemSid) &&
            !IsWellKnownSid(sid, WinBuiltinAdministratorsSid);
    }
    LocalFree(descriptor);
    return others;
}

// Runs "Z:\bin\<command>" on the paths, as Unix names them, and waits for its effect: its end can't be
// waited for.
static bool RunUnix(std::wstring command, std::initializer_list<fs::path> paths, std::function<bool()> done) {
    auto unixName = reinterpret_cast<char*(CDECL*)(const wchar_t*)>(reinterpret_cast<void (*)()>(
        GetProcAddress(GetModuleHandleW(L"kernel32"), "wine_get_unix_file_name")));
    command = L"Z:\\bin\\" + command;
    for (const fs::path& path : paths) {
        char* name = unixName(path.c_str());
        command += L" \"" + driver::Wide(name) + L"\"";
        HeapFree(GetProcessHeap(), 0, name);
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    BOOL started = CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                  &startup, &process);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return started && driver::WaitFor(done);
}

TEST(ServiceLog, StampedUtf8LinesInAFolderOfItsOwnNeverThroughAPlant) {
    const fs::path own = L"C:\\ProgramData\\Veloquin", log = own / L"Logs\\vcam-service.log",
                   inherited = L"C:\\ProgramData\\inherited";
    fs::remove_all(own);
    driver::Write(own, "a file where the folder belongs");
    AppendServiceLog(L"lost");
    fs::remove(own);
    AppendServiceLog(L"first \u2014 \u30ab\u30e1\u30e9");
    fs::create_directory(inherited);
    EXPECT_TRUE(OthersMayWrite(inherited))
        << "start the wineserver under umask 0, or rights can't be told apart";
    EXPECT_FALSE(OthersMayWrite(own));
    fs::remove(inherited);
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

    // What a standard user could plant where the log goes, a link to another folder or file or a second name
    // of another file: no line goes through it, and once it is gone lines are written again. Unix makes and
    // removes the links: Wine can't make them, and it deletes what a link leads to.
    const fs::path root = driver::Scenario(L"plants"), elsewhere = root / L"elsewhere",
                   victim = root / L"victim.txt";
    auto there = [](const fs::path& at) { return GetFileAttributesW(at.c_str()) != INVALID_FILE_ATTRIBUTES; };
    fs::create_directory(elsewhere);
    driver::Write(victim, "not the log\n");
    for (const fs::path& at : {own, log.parent_path(), log}) {
        fs::remove_all(at);
        ASSERT_TRUE(RunUnix(L"ln -s", {at == log ? victim : elsewhere, at}, [&] { return there(at); }));
        AppendServiceLog(L"lost");
        ASSERT_TRUE(RunUnix(L"rm", {at}, [&] { return !there(at); }));
        AppendServiceLog(L"written");
        EXPECT_EQ(std::regex_replace(driver::Read(log), stamp, "<stamp> "), "<stamp> written\r\n") << at;
    }
    fs::remove(log);
    ASSERT_TRUE(CreateHardLinkW(log.c_str(), victim.c_str(), nullptr));
    AppendServiceLog(L"lost");
    EXPECT_TRUE(fs::is_empty(elsewhere)) << "written through a folder link";
    EXPECT_EQ(driver::Read(victim), "not the log\n") << "written through a link or a second name";
}

// Owners whom a standard user can't stand in for, the launcher's own user among them, and near misses.
TEST(ServiceLog, TrustsOnlyOwnersAStandardUserCantBe) {
    const std::wstring INSTALLER = L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
    const std::vector<std::wstring> trusted = {L"SY", L"BA", INSTALLER, L"S-1-5-21-1-2-3-1001"},
                                    untrusted = {L"S-1-5-21-1-2-3-1002", L"BU", L"WD", INSTALLER + L"0"};
    PSID user = nullptr, owner = nullptr;
    ConvertStringSidToSidW(trusted[3].c_str(), &user);
    for (bool expected : {true, false}) {
        for (const std::wstring& text : expected ? trusted : untrusted) {
            ASSERT_TRUE(ConvertStringSidToSidW(text.c_str(), &owner));
            EXPECT_EQ(IsTrustedOwner(owner, user), expected) << driver::Utf8(text);
            LocalFree(owner);
        }
    }
    EXPECT_FALSE(IsTrustedOwner(user, nullptr)) << "a user no longer the launcher's";
    LocalFree(user);
}

// A folder held for a log line can be neither renamed nor removed meanwhile: share modes bind only
// opens that ask for data access or deletion, so the handle has to ask to list the folder.
TEST(ServiceLog, AHeldFolderStaysWhereItIs) {
    const fs::path folder = L"C:\\ProgramData\\held", moved = L"C:\\ProgramData\\moved";
    fs::remove_all(moved);
    fs::create_directories(folder);
    ScopedHandle held(OpenPlainFolder(folder));
    ASSERT_NE(held.Get(), nullptr);
    auto refusal = [](BOOL done) { return done ? DWORD{0} : GetLastError(); };
    EXPECT_EQ(refusal(MoveFileW(folder.c_str(), moved.c_str())), DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_EQ(refusal(RemoveDirectoryW(folder.c_str())), DWORD{ERROR_SHARING_VIOLATION});
}

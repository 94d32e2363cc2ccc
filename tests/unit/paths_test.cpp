#include <gtest/gtest.h>

#include "launcher/paths.h"
#include "tests/driver/launcher_driver.h"

TEST(Paths, ParentKeepsTheRootAndDropsSeparators) {
    struct Case {
        const wchar_t* path;
        const wchar_t* parent;
    };
    const Case cases[] = {
        {L"C:\\tools\\veloquin\\launcher.exe", L"C:\\tools\\veloquin"},
        {L"C:\\launcher.exe", L"C:\\"},
        {L"C:/tools//launcher.exe", L"C:/tools"},
        {L"C:\\tools\\\\", L"C:\\tools"},
        {L"C:\\", L"C:\\"},
        {L"C:launcher.exe", L"C:"},
        {L"\\\\server\\share\\launcher.exe", L"\\\\server\\share"},
        {L"\\\\?\\C:\\launcher.exe", L"\\\\?\\C:\\"},
        {L"launcher.exe", L""},
        {L"", L""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(ParentPath(c.path), c.parent) << "path: " << driver::WideToUtf8(c.path);
    }
}

TEST(Paths, AppendPutsOneSeparatorBetween) {
    EXPECT_EQ(AppendPath(L"C:\\tools", L"a.dll"), L"C:\\tools\\a.dll");
    EXPECT_EQ(AppendPath(L"C:\\", L"a.dll"), L"C:\\a.dll");
    EXPECT_EQ(AppendPath(L"C:/tools/", L"a.dll"), L"C:/tools/a.dll");
    EXPECT_EQ(AppendPath(L"C:", L"a.dll"), L"C:a.dll");
    EXPECT_EQ(AppendPath(L"", L"a.dll"), L"a.dll");
}

TEST(Paths, ExistenceFollowsWhatIsThere) {
    std::wstring folder = driver::ScratchFolder(L"paths-exist");
    std::wstring file = driver::JoinPath(folder, L"file.dll");
    ASSERT_TRUE(driver::WriteBytes(file, "x"));
    bool exists = false;
    EXPECT_EQ(PathExists(file, &exists), S_OK);
    EXPECT_TRUE(exists);
    EXPECT_EQ(PathExists(folder, &exists), S_OK);
    EXPECT_TRUE(exists) << "a folder counts as something at the path";
    EXPECT_EQ(PathExists(driver::JoinPath(folder, L"missing.dll"), &exists), S_OK);
    EXPECT_FALSE(exists);
    EXPECT_EQ(PathExists(driver::JoinPath(folder, L"no\\such\\folder\\x.dll"), &exists), S_OK);
    EXPECT_FALSE(exists);

    std::wstring absolute;
    ASSERT_TRUE(SetCurrentDirectoryW(folder.c_str()));
    EXPECT_EQ(AbsolutePath(L"file.dll", &absolute), S_OK);
    EXPECT_EQ(absolute, file);
}

TEST(Paths, FolderTreeIsMadeDeepAndLong) {
    std::wstring folder = driver::ScratchFolder(L"paths-tree");
    std::wstring deep = folder;
    while (deep.size() < 300) {
        deep = AppendPath(deep, L"level-of-a-deep-tree");
    }
    EXPECT_EQ(CreateFolderTree(deep), S_OK);
    bool exists = false;
    EXPECT_EQ(PathExists(deep, &exists), S_OK);
    EXPECT_TRUE(exists);
    EXPECT_EQ(CreateFolderTree(deep), S_OK) << "a folder that is there already is no failure";

    std::wstring blocker = driver::JoinPath(folder, L"file");
    ASSERT_TRUE(driver::WriteBytes(blocker, "x"));
    EXPECT_LT(CreateFolderTree(AppendPath(blocker, L"below")), 0) << "a file in the way";
}

// The resource section of the built launcher: what Explorer, the taskbar and the UAC prompt read.

#include "tests/driver/launcher_driver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

namespace {

constexpr WORD ENGLISH_US = MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);
constexpr int ICON_SIZES[] = {16, 20, 24, 32, 40, 48, 64, 96, 128, 256};
constexpr int ICON_COUNT = sizeof ICON_SIZES / sizeof ICON_SIZES[0];

// A resource type or name as text: "#24" for a number, the string itself for a name.
std::wstring Label(LPCWSTR id) {
    if (IS_INTRESOURCE(id)) {
        return L"#" + std::to_wstring(reinterpret_cast<ULONG_PTR>(id));
    }
    return id;
}

using Entry = std::tuple<std::wstring, std::wstring, WORD>; // type, name, language

BOOL CALLBACK AddLanguage(HMODULE, LPCWSTR type, LPCWSTR name, WORD language, LONG_PTR param) {
    reinterpret_cast<std::vector<Entry>*>(param)->emplace_back(Label(type), Label(name), language);
    return TRUE;
}

BOOL CALLBACK AddName(HMODULE module, LPCWSTR type, LPWSTR name, LONG_PTR param) {
    return EnumResourceLanguagesW(module, type, name, AddLanguage, param);
}

BOOL CALLBACK AddType(HMODULE module, LPWSTR type, LONG_PTR param) {
    return EnumResourceNamesW(module, type, AddName, param);
}

unsigned Word(const std::string& bytes, size_t at) {
    return static_cast<std::uint8_t>(bytes[at]) | static_cast<std::uint8_t>(bytes[at + 1]) << 8;
}

std::uint32_t Dword(const std::string& bytes, size_t at) {
    return Word(bytes, at) | static_cast<std::uint32_t>(Word(bytes, at + 2)) << 16;
}

class Resources : public ::testing::Test {
  protected:
    void SetUp() override {
        const std::wstring path = driver::JoinPath(driver::BinFolder(), driver::LAUNCHER_EXE);
        module_ =
            LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE);
        ASSERT_NE(module_, nullptr) << "cannot load " << driver::WideToUtf8(path) << ", error "
                                    << GetLastError();
    }
    void TearDown() override {
        if (module_) {
            FreeLibrary(module_);
        }
    }

    // The resource's bytes, or empty when there is none of that type, name and language.
    std::string Bytes(LPCWSTR type, LPCWSTR name) const {
        HRSRC found = FindResourceExW(module_, type, name, ENGLISH_US);
        HGLOBAL loaded = found ? LoadResource(module_, found) : nullptr;
        const void* data = loaded ? LockResource(loaded) : nullptr;
        if (!data) {
            return std::string();
        }
        return std::string(static_cast<const char*>(data), SizeofResource(module_, found));
    }

    HMODULE module_ = nullptr;
};

TEST_F(Resources, HoldOnlyTheIconGroupItsImagesAndTheManifestInUsEnglish) {
    std::vector<Entry> found;
    EnumResourceTypesW(module_, AddType, reinterpret_cast<LONG_PTR>(&found));

    std::vector<Entry> expected;
    expected.emplace_back(L"#14", L"IDI_APP_ICON", ENGLISH_US);
    for (int id = 1; id <= ICON_COUNT; ++id) {
        expected.emplace_back(L"#3", L"#" + std::to_wstring(id), ENGLISH_US);
    }
    expected.emplace_back(L"#24", L"#1", ENGLISH_US);

    std::sort(found.begin(), found.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(found, expected);
}

TEST_F(Resources, IconGroupListsTenTrueColourSizesInOrder) {
    const std::string group = Bytes(RT_GROUP_ICON, L"IDI_APP_ICON");
    ASSERT_GE(group.size(), 6u);
    EXPECT_EQ(Word(group, 0), 0u);
    EXPECT_EQ(Word(group, 2), 1u); // icons, not cursors
    ASSERT_EQ(Word(group, 4), static_cast<unsigned>(ICON_COUNT));
    // GRPICONDIRENTRY is 14 bytes, packed.
    ASSERT_EQ(group.size(), 6u + 14u * ICON_COUNT);

    for (int i = 0; i < ICON_COUNT; ++i) {
        SCOPED_TRACE("entry " + std::to_string(i));
        const size_t at = 6 + 14 * static_cast<size_t>(i);
        const unsigned width = static_cast<std::uint8_t>(group[at]);
        const unsigned height = static_cast<std::uint8_t>(group[at + 1]);
        // A size byte of 0 means 256.
        EXPECT_EQ(width == 0 ? 256u : width, static_cast<unsigned>(ICON_SIZES[i]));
        EXPECT_EQ(height == 0 ? 256u : height, static_cast<unsigned>(ICON_SIZES[i]));
        EXPECT_EQ(static_cast<std::uint8_t>(group[at + 2]), 0u); // colours: no palette
        EXPECT_EQ(Word(group, at + 4), 1u);                      // planes
        EXPECT_EQ(Word(group, at + 6), 32u);                     // bits per pixel
        const unsigned id = Word(group, at + 12);
        EXPECT_EQ(id, static_cast<unsigned>(i + 1));
        EXPECT_EQ(Dword(group, at + 8), Bytes(RT_ICON, MAKEINTRESOURCEW(id)).size());
    }
}

TEST_F(Resources, EachIconImageIsA32BitDibOfItsSizeWithAlpha) {
    for (int i = 0; i < ICON_COUNT; ++i) {
        const int size = ICON_SIZES[i];
        SCOPED_TRACE("icon " + std::to_string(i + 1) + ", " + std::to_string(size) + " px");
        const std::string image = Bytes(RT_ICON, MAKEINTRESOURCEW(i + 1));
        ASSERT_GE(image.size(), sizeof(BITMAPINFOHEADER));
        BITMAPINFOHEADER header;
        std::copy(image.begin(), image.begin() + sizeof header, reinterpret_cast<char*>(&header));
        ASSERT_EQ(header.biSize, sizeof(BITMAPINFOHEADER)); // a DIB, not PNG
        EXPECT_EQ(header.biWidth, size);
        EXPECT_EQ(header.biHeight, size * 2); // colour rows and mask rows
        EXPECT_EQ(header.biPlanes, 1);
        EXPECT_EQ(header.biBitCount, 32);
        EXPECT_EQ(header.biCompression, static_cast<DWORD>(BI_RGB));

        const size_t pixels = static_cast<size_t>(size) * size;
        const size_t maskBytes = static_cast<size_t>((size + 31) / 32 * 4) * size;
        ASSERT_EQ(image.size(), sizeof header + pixels * 4 + maskBytes);
        // The glyph leaves the corners clear and covers the middle.
        auto alpha = [&](int x, int y) {
            const size_t row = static_cast<size_t>(size - 1 - y); // rows are stored bottom-up
            return static_cast<std::uint8_t>(image[sizeof header + (row * size + x) * 4 + 3]);
        };
        EXPECT_EQ(alpha(0, 0), 0);
        EXPECT_EQ(alpha(size - 1, size - 1), 0);
        EXPECT_EQ(alpha(size / 2, size / 2), 255);
    }
}

TEST_F(Resources, ManifestAsksForAdministratorAndNothingElse) {
    const std::string manifest = Bytes(RT_MANIFEST, MAKEINTRESOURCEW(1));
    ASSERT_FALSE(manifest.empty());
    EXPECT_NE(manifest.find("level=\"requireAdministrator\""), std::string::npos) << manifest;
    EXPECT_NE(manifest.find("uiAccess=\"false\""), std::string::npos) << manifest;
    EXPECT_NE(manifest.find("urn:schemas-microsoft-com:asm.v3"), std::string::npos) << manifest;
    for (const char* absent : {"dependency", "dpiAware", "supportedOS"}) {
        EXPECT_EQ(manifest.find(absent), std::string::npos) << absent << " in\n" << manifest;
    }
}

} // namespace

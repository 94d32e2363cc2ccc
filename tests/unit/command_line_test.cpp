#include <gtest/gtest.h>

#include "launcher/launcher_state.h"
#include "producer/command_line.h"

TEST(CommandLine, QuotingTouchesOnlyDoubleQuotes) {
    EXPECT_EQ(QuoteArgument(L"cpu"), L"\"cpu\"");
    EXPECT_EQ(QuoteArgument(L""), L"\"\"");
    EXPECT_EQ(QuoteArgument(L"C:\\My Tools"), L"\"C:\\My Tools\"");
    EXPECT_EQ(QuoteArgument(L"say \"hi\""), L"\"say \\\"hi\\\"\"");
    EXPECT_EQ(QuoteArgument(L"C:\\"), L"\"C:\\\"") << "a trailing backslash stays as it is";
    EXPECT_EQ(QuoteArgument(L"a\\\"b"), L"\"a\\\\\"b\"") << "backslashes before a quote are not doubled";
}

TEST(CommandLine, JoinsQuotedArgumentsWithOneBlank) {
    EXPECT_EQ(BuildCommandLine({}), L"");
    EXPECT_EQ(BuildCommandLine({L"a"}), L"\"a\"");
    EXPECT_EQ(BuildCommandLine({L"a", L"", L"b c"}), L"\"a\" \"\" \"b c\"");
}

TEST(CommandLine, ElevenArgumentsInTheirOrder) {
    g_launcher.launcherFolder = L"C:\\Program Files\\Veloquin";
    g_launcher.producerPath = L"C:\\Program Files\\Veloquin\\veloquin_windows_retouch_vcam_producer.exe";
    ProducerSettings settings;
    settings.provider = L"cpu";
    settings.maxWidth = L"1920";
    settings.cameraIndex = -3;
    std::vector<std::wstring> arguments = BuildProducerArguments(settings);
    std::vector<std::wstring> expected = {g_launcher.producerPath,
                                          L"--camera",
                                          L"--no-mirror",
                                          L"--provider",
                                          L"cpu",
                                          L"--max-width",
                                          L"1920",
                                          L"--camera-index",
                                          L"-3",
                                          L"--repo-root",
                                          L"C:\\Program Files\\Veloquin"};
    EXPECT_EQ(arguments, expected);
    g_launcher.launcherFolder.clear();
    g_launcher.producerPath.clear();
}

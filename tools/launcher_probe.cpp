// Opens the launcher for scripts/run: starts it, starts the producer, prints the status pane once the
// producer has printed a few lines, and keeps the window open until the script has taken its screenshot.
#include <cstdio>

#include "tests/driver/driver.h"

int wmain(int argc, wchar_t** argv) {
    if (argc != 3) {
        std::fputs("usage: launcher_probe LAUNCHER_FOLDER HOLD_UNTIL_FILE\n", stderr);
        return 2;
    }
    driver::Launcher launcher;
    if (!launcher.Start(argv[1])) {
        std::fputs("launcher_probe: the launcher's window did not appear\n", stderr);
        return 1;
    }
    launcher.Press(driver::StartProducer);
    driver::WaitFor([&] { return launcher.Lines().size() >= 7; });
    std::string pane = driver::Utf8(driver::Text(launcher.Item(driver::StatusLog)));
    std::fwrite(pane.data(), 1, pane.size(), stdout);
    std::fflush(stdout);
    driver::WaitFor([&] { return driver::fs::exists(argv[2]); });
    DWORD exitCode = 1;
    return launcher.Close(&exitCode) ? static_cast<int>(exitCode) : 1;
}

// Opens the launcher for scripts/run: starts it, optionally starts the producer, prints what the
// status pane shows, and keeps the window open until the script has taken its screenshot.
#include <cstdio>
#include <string>

#include "tests/driver/launcher_driver.h"

namespace {

int Usage() {
    std::fputs("usage: launcher_probe LAUNCHER_EXE [--start-producer] [--wait-ms N] [--hold-until FILE]\n",
               stderr);
    return 2;
}

} // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 2) {
        return Usage();
    }
    std::wstring exe = argv[1];
    bool startProducer = false;
    DWORD waitMs = 1500;
    std::wstring holdUntil;
    for (int i = 2; i < argc; ++i) {
        std::wstring option = argv[i];
        if (option == L"--start-producer") {
            startProducer = true;
        } else if (option == L"--wait-ms" && i + 1 < argc) {
            waitMs = static_cast<DWORD>(std::wcstoul(argv[++i], nullptr, 10));
        } else if (option == L"--hold-until" && i + 1 < argc) {
            holdUntil = argv[++i];
        } else {
            return Usage();
        }
    }

    driver::Launcher launcher;
    if (!driver::Start(launcher, exe)) {
        std::fputs("launcher_probe: the launcher's window did not appear\n", stderr);
        return 1;
    }
    Sleep(500);
    if (startProducer && !driver::Click(launcher, 1008)) {
        std::fputs("launcher_probe: Start producer was not handled\n", stderr);
    }
    Sleep(waitMs);
    driver::Settle(launcher);
    std::string pane = driver::WideToUtf8(driver::PaneText(launcher));
    std::fwrite(pane.data(), 1, pane.size(), stdout);
    std::fflush(stdout);

    if (!holdUntil.empty()) {
        for (int i = 0; i < 600 && !driver::FileExists(holdUntil); ++i) {
            Sleep(100);
        }
    }
    DWORD exitCode = 1;
    if (!driver::Close(launcher, 15000, &exitCode)) {
        std::fputs("launcher_probe: the launcher did not close\n", stderr);
        return 1;
    }
    return static_cast<int>(exitCode);
}

#include "producer/command_line.h"

#include <windows.h>

#include "launcher/launcher_state.h"

ProducerSettings ReadProducerSettings() {
    ProducerSettings settings;
    LRESULT provider = SendMessageW(g_launcher.providerCombo, CB_GETCURSEL, 0, 0);
    settings.provider = provider == 1 ? L"cpu" : L"directml";

    LRESULT width = SendMessageW(g_launcher.widthCombo, CB_GETCURSEL, 0, 0);
    if (width >= 0) {
        LRESULT length = SendMessageW(g_launcher.widthCombo, CB_GETLBTEXTLEN, static_cast<WPARAM>(width), 0);
        if (length > 0) {
            std::wstring text(static_cast<size_t>(length) + 1, L'\0');
            SendMessageW(g_launcher.widthCombo, CB_GETLBTEXT, static_cast<WPARAM>(width),
                         reinterpret_cast<LPARAM>(text.data()));
            settings.maxWidth.assign(text.c_str());
        }
    }
    if (settings.maxWidth.empty()) {
        settings.maxWidth = L"1280";
    }

    // The combo box and the list stand in the same order, but the producer wants the device's index.
    int camera = static_cast<int>(SendMessageW(g_launcher.cameraCombo, CB_GETCURSEL, 0, 0));
    if (camera >= 0 && static_cast<size_t>(camera) < g_launcher.cameraList.size()) {
        settings.cameraIndex = g_launcher.cameraList[static_cast<size_t>(camera)].deviceIndex;
    }

    settings.d3dCapture = SendMessageW(g_launcher.d3dCheck, BM_GETCHECK, 0, 0) == BST_CHECKED;
    return settings;
}

std::vector<std::wstring> BuildProducerArguments(const ProducerSettings& settings) {
    return {g_launcher.producerPath,
            L"--camera",
            L"--no-mirror",
            L"--provider",
            settings.provider,
            L"--max-width",
            settings.maxWidth,
            L"--camera-index",
            std::to_wstring(settings.cameraIndex),
            L"--repo-root",
            g_launcher.launcherFolder};
}

std::wstring QuoteArgument(const std::wstring& argument) {
    std::wstring quoted = L"\"";
    for (wchar_t c : argument) {
        if (c == L'"') {
            quoted += L'\\';
        }
        quoted += c;
    }
    quoted += L'"';
    return quoted;
}

std::wstring BuildCommandLine(const std::vector<std::wstring>& arguments) {
    std::wstring commandLine;
    for (const std::wstring& argument : arguments) {
        if (!commandLine.empty()) {
            commandLine += L' ';
        }
        commandLine += QuoteArgument(argument);
    }
    return commandLine;
}

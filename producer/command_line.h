// The producer's settings as the panel shows them, and the command line they become.
#pragma once

#include <string>
#include <vector>

struct ProducerSettings {
    std::wstring provider;
    std::wstring maxWidth;
    int cameraIndex = 0;
    bool d3dCapture = false;
};

// Reads the panel's controls; anything unusable falls back to "directml", "1280" or camera 0.
ProducerSettings ReadProducerSettings();
// The executable, then the options with their values: 11 strings.
std::vector<std::wstring> BuildProducerArguments(const ProducerSettings& settings);
// Double quotes around the argument; a double quote inside becomes \" and nothing else changes.
std::wstring QuoteArgument(const std::wstring& argument);
// Every argument quoted, one blank between them.
std::wstring BuildCommandLine(const std::vector<std::wstring>& arguments);

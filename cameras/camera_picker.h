// The camera combo box: every video capture device, the product's own camera marked.
#pragma once

#include <string>
#include <vector>

struct CameraListEntry {
    int deviceIndex = 0;
    std::wstring name;
    bool isOwnCamera = false;
};

// All devices in enumeration order; an empty list on any failure.
std::vector<CameraListEntry> EnumerateCameraList();
// Rebuilds the list and the combo box, selects the first camera that is not our own and posts the
// count line. UI thread only.
void RefreshCameraList();

// The real camera that backs the virtual one while it is registered.
#pragma once

#include <string>
#include <vector>

struct PhysicalCamera {
    std::wstring friendlyName;
    std::wstring symbolicLink;
};

// Devices with a symbolic link that are not virtual cameras, in enumeration order; empty on failure.
std::vector<PhysicalCamera> EnumeratePhysicalCameras();
// Case-insensitive substring test, folding each UTF-16 unit with towlower.
bool ContainsNoCase(const std::wstring& haystack, const std::wstring& needle);
bool IsOwnCamera(const PhysicalCamera& camera);
// First device whose name holds "front", "integrated" or "facetime"; `end` when none does.
std::vector<PhysicalCamera>::const_iterator
FindPreferredCamera(std::vector<PhysicalCamera>::const_iterator first,
                    std::vector<PhysicalCamera>::const_iterator end);

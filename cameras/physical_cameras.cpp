#include "cameras/physical_cameras.h"

#include <cwctype>

#include "cameras/media_foundation.h"

static std::wstring Folded(const std::wstring& text) {
    std::wstring folded = text;
    for (wchar_t& unit : folded) {
        unit = static_cast<wchar_t>(towlower(unit));
    }
    return folded;
}

bool ContainsNoCase(const std::wstring& haystack, const std::wstring& needle) {
    if (needle.size() > haystack.size()) {
        return false;
    }
    return Folded(haystack).find(Folded(needle)) != std::wstring::npos;
}

std::vector<PhysicalCamera> EnumeratePhysicalCameras() {
    std::vector<PhysicalCamera> list;
    ComScope com;
    MfStartupScope mf(MFSTARTUP_FULL);
    if (FAILED(mf.Result())) {
        return list;
    }
    ComPtr<IMFAttributes> attributes;
    if (FAILED(MfCreateAttributes(attributes.Put(), 1)) ||
        FAILED(attributes->SetGUID(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE,
                                   MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID))) {
        return list;
    }
    IMFActivate** devices = nullptr;
    UINT32 count = 0;
    if (FAILED(MfEnumDeviceSources(attributes.Get(), &devices, &count))) {
        return list;
    }
    list.reserve(count);
    for (UINT32 i = 0; i < count; ++i) {
        PhysicalCamera camera;
        camera.friendlyName = GetAttributeString(devices[i], MF_DEVSOURCE_ATTRIBUTE_FRIENDLY_NAME);
        camera.symbolicLink =
            GetAttributeString(devices[i], MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK);
        if (!camera.symbolicLink.empty() && !IsOwnCamera(camera)) {
            list.push_back(camera);
        }
        if (devices[i] != nullptr) {
            devices[i]->Release();
        }
    }
    CoTaskMemFree(devices);
    return list;
}

bool IsOwnCamera(const PhysicalCamera& camera) {
    return ContainsNoCase(camera.friendlyName, L"veloquin") ||
           ContainsNoCase(camera.symbolicLink, L"veloquin") ||
           ContainsNoCase(camera.friendlyName, L"windows virtual camera");
}

std::vector<PhysicalCamera>::const_iterator
FindPreferredCamera(std::vector<PhysicalCamera>::const_iterator first,
                    std::vector<PhysicalCamera>::const_iterator end) {
    for (auto it = first; it != end; ++it) {
        if (ContainsNoCase(it->friendlyName, L"front") || ContainsNoCase(it->friendlyName, L"integrated") ||
            ContainsNoCase(it->friendlyName, L"facetime")) {
            return it;
        }
    }
    return end;
}

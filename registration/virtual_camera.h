// Creating, starting and removing the virtual camera through the Camera Frame Server.
#pragma once

#include <windows.h>

#include <string>

#include "registration/media_source_registration.h"

struct RegisterResult {
    std::wstring symbolicLink;
};

inline constexpr int REGISTRATION_ATTEMPT_LIMIT = 5;
// The wait after failed attempt n is entry n - 1; the Frame Server can take seconds to come up.
inline constexpr DWORD REGISTRATION_RETRY_DELAYS_MS[REGISTRATION_ATTEMPT_LIMIT - 1] = {1000, 2000, 3000,
                                                                                       5000};

bool IsTransientRegistrationError(HRESULT hr);
// Registers the COM server if asked, then creates, ties and starts the camera, retrying transient
// failures. `result` may be null.
HRESULT RegisterVirtualCamera(const RegisterOptions& options, RegisterResult* result);
// One attempt, nothing logged.
HRESULT RemoveVirtualCamera(int access);

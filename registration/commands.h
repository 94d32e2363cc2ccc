// What the "Register vcam" and "Unregister vcam" buttons do.
#pragma once

void OnRegisterCommand();
void OnUnregisterCommand();

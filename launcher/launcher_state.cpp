#include "launcher/launcher_state.h"

LauncherState g_launcher;

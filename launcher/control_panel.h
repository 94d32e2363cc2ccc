// The whole face of the main window, at fixed pixel positions.
#pragma once

// Creates the font and the 16 controls as children of the main window. Failures leave null handles
// and stop nothing.
void CreateControls();

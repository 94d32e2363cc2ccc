// The service log: time-stamped lines under the program-data folder that outlive the window.
#pragma once

#include <windows.h>

#include <string>

// Writes "<YYYY-MM-DD hh:mm:ss> <text>" and CR LF, as UTF-8. Never reports a failure: a line that
// can't be written is lost, and so is one that would go through a link or into a folder that a
// standard user could have prepared. The launcher's own folder is created locked.
void AppendServiceLog(const std::wstring& text);
// <program data>\Veloquin\Logs\vcam-service.log; empty when no program-data folder can be found.
std::wstring ServiceLogPath();
// The known folder, else the "ProgramData" variable, else the temp folder; empty when none answers.
std::wstring ProgramDataFolder();

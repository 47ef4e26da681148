#pragma once

namespace tarvik {

// Gives the process a console and prints the banner, unless it already has one.
void OpenDebugConsole();

}  // namespace tarvik

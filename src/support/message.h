#pragma once

// Messages to the user in a box that the user closes. If nobody can see it, they go to the debug
// log and the debugger output instead, and the caller continues. Needs no heap.
namespace tarvik {

void ShowError(const char* text, const char* caption);
void ShowWarning(const char* text, const char* caption);

}  // namespace tarvik

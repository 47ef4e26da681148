#pragma once

#include <cstddef>

// Standard output, on which a user may pause the console for hours. A pipe or socket that has no
// room on Linux never waits: the line is dropped and counted. From StartConsoleOutput to
// StopConsoleOutput one thread prints what may have to wait, so that no other thread of the
// library ever blocks there, whatever locks it holds.
namespace tarvik {

// Starts the printing thread. If the system refuses it, every thread prints for itself.
void StartConsoleOutput();
// Waits at most a second for what is not yet printed. If the console is paused longer, the printing
// thread is left to itself and keeps the library loaded.
void StopConsoleOutput();
// From now on every thread prints for itself: the library is being unloaded.
void EndConsoleOutput();
// Somebody has waited for printing in vain, and nothing was printed since. Takes no lock.
bool ConsoleIsPaused();

// Returns when the text is printed, or at most a second later if the console is paused. It is then
// printed as soon as the console goes on, unless it does not fit into the 64 KiB that wait there.
void WriteConsoleText(const char* text, std::size_t length);

}  // namespace tarvik

#pragma once

namespace tarvik {

// What the platform's loader notifications run: once each per process.
void OnLibraryLoad();
void OnLibraryUnload();
// Instead of OnLibraryUnload, if all other threads of the process have been ended where they were.
// Takes no lock, which one of them may have held, and releases nothing.
void OnProcessEnd();

}  // namespace tarvik

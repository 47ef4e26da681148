#pragma once

namespace tarvik {

// What the platform's loader notifications run: once each per process.
void OnLibraryLoad();
void OnLibraryUnload();

}  // namespace tarvik

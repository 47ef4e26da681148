#pragma once

namespace tarvik {

// What the platform's loader notifications run: once each per process.
void OnLibraryLoad();
void OnLibraryUnload();

inline constexpr char kDetachLine[] = "[DLL] Detaching the Tarvik D-PDU DLL\n";

}  // namespace tarvik

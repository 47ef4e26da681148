#pragma once

namespace tarvik::test {

// How often OsKeepLibraryLoaded was called. In a program with this fault it only counts.
int KeepLoadedCalls();

// How many references of OsHoldLibrary have not been released. In a program with this fault they
// are only counted.
int LibraryReferences();

}  // namespace tarvik::test

#pragma once

namespace tarvik::test {

// How often OsKeepLibraryLoaded was called. In a program with this fault it only counts.
int KeepLoadedCalls();

}  // namespace tarvik::test

// Sets who may read a file; one implementation per operating system.

#ifndef TESTS_DPDU_FILE_ACCESS_H
#define TESTS_DPDU_FILE_ACCESS_H

#include <string>

enum class Readers { kOwner, kEveryone };

// False if the system refuses.
bool SetReaders(const std::string& path, Readers readers);

#endif  // TESTS_DPDU_FILE_ACCESS_H

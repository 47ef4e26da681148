// Sets the time of a file; one implementation per operating system, since the standard library's
// has whole seconds on Windows.

#ifndef TESTS_DPDU_FILE_TIME_H
#define TESTS_DPDU_FILE_TIME_H

#include <cstdint>
#include <string>

// When the file was last changed, in microseconds since 1970.
void SetChangedUs(const std::string& path, std::uint64_t changed_us);

#endif  // TESTS_DPDU_FILE_TIME_H

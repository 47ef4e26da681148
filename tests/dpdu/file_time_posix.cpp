#include "file_time.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

void SetChangedUs(const std::string& path, std::uint64_t changed_us) {
    const timespec time = {static_cast<time_t>(changed_us / 1'000'000),
                           static_cast<long>(changed_us % 1'000'000 * 1000)};
    const timespec times[] = {time, time};
    EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

// Standard input, output and error are closed while it lives. Linux only.
class ClosedStreams {
public:
    static constexpr int kCount = 3;

    ClosedStreams() {
        std::fflush(nullptr);
        for (int stream = 0; stream < kCount; ++stream) {
            saved_[stream] = ::fcntl(stream, F_DUPFD_CLOEXEC, kCount);
            ::close(stream);
        }
    }
    ~ClosedStreams() {
        for (int stream = 0; stream < kCount; ++stream) {
            ::dup2(saved_[stream], stream);
            ::close(saved_[stream]);
        }
    }
    ClosedStreams(const ClosedStreams&) = delete;
    ClosedStreams& operator=(const ClosedStreams&) = delete;

private:
    int saved_[kCount];
};

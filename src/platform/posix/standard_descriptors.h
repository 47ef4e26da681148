#pragma once

namespace tarvik {

// While one exists, nothing that is opened becomes standard input, output or error. An application
// may have closed these, and whoever prints would then write into our files and connections. Their
// numbers are taken by descriptors that can be neither read nor written. Around everything that
// opens a descriptor, for ever or for a moment, also where the C library or another does so. Not
// where these may read a file at any time: those of time zones, and certificates of issuers during
// a handshake. errno is kept.
class StandardDescriptorsTaken {
public:
    StandardDescriptorsTaken();
    ~StandardDescriptorsTaken();
    StandardDescriptorsTaken(const StandardDescriptorsTaken&) = delete;
    StandardDescriptorsTaken& operator=(const StandardDescriptorsTaken&) = delete;
};

}  // namespace tarvik

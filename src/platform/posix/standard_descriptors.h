#pragma once

namespace tarvik {

// While one exists, nothing that is opened becomes standard input, output or error. An application
// may have closed these, and whoever prints would then write into our files and connections. Their
// numbers are taken by descriptors that can be neither read nor written. Around everything that
// opens what is written to. errno is kept.
class StandardDescriptorsTaken {
public:
    StandardDescriptorsTaken();
    ~StandardDescriptorsTaken();
    StandardDescriptorsTaken(const StandardDescriptorsTaken&) = delete;
    StandardDescriptorsTaken& operator=(const StandardDescriptorsTaken&) = delete;
};

}  // namespace tarvik

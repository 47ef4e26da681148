// Who may use a file, and where the user's files are; one implementation per operating system.

#ifndef TESTS_DPDU_FILE_ACCESS_H
#define TESTS_DPDU_FILE_ACCESS_H

#include <cstdint>
#include <string>

enum class Readers { kOwner, kEveryone };

// False if the system refuses.
bool SetReaders(const std::string& path, Readers readers);

// While it lives, programs that are started find the user's configuration in this folder. On
// Windows the registry has it, for all programs.
class UserFolder {
public:
    explicit UserFolder(const std::string& folder);
    ~UserFolder();
    UserFolder(const UserFolder&) = delete;
    UserFolder& operator=(const UserFolder&) = delete;

private:
    std::string before_;
};

// While it lives, the file exists and cannot be read, not even by root.
class UnreadableFile {
public:
    explicit UnreadableFile(const std::string& path);
    ~UnreadableFile();
    UnreadableFile(const UnreadableFile&) = delete;
    UnreadableFile& operator=(const UnreadableFile&) = delete;

private:
    std::string path_;
    std::intptr_t handle_ = -1;
};

// A port that this program has opened as applications do.
class PortInUse {
public:
    explicit PortInUse(const std::string& path);
    ~PortInUse();
    PortInUse(const PortInUse&) = delete;
    PortInUse& operator=(const PortInUse&) = delete;
    bool IsOpen() const { return handle_ != -1; }

private:
    std::intptr_t handle_ = -1;
};

#endif  // TESTS_DPDU_FILE_ACCESS_H

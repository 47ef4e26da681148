// Who may read a file, and where the user's files are; one implementation per operating system.

#ifndef TESTS_DPDU_FILE_ACCESS_H
#define TESTS_DPDU_FILE_ACCESS_H

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

#endif  // TESTS_DPDU_FILE_ACCESS_H

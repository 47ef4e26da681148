#include "relay/key_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "relay/http_head.h"

namespace brennix {

namespace {

// The file is complete or absent, since two relays may start at the same time.
void WriteKey(const std::string& path, const KeyPair& pair) {
    const std::string temporary = path + "." + std::to_string(::getpid());
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const std::string text = ToLowerHex(pair.secret) + "\n";
    const bool written =
        fd >= 0 && ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(fd);
    if (!written) throw std::runtime_error(temporary + ": cannot be written");
    const int linked = ::link(temporary.c_str(), path.c_str());  // keeps an existing file
    ::unlink(temporary.c_str());
    if (linked != 0 && ::access(path.c_str(), R_OK) != 0) {
        throw std::runtime_error(path + ": cannot be written");
    }
}

}  // namespace

std::string KeyFile(const std::string& folder) { return folder + "/relay_key"; }

std::string ToLowerHex(ByteSpan bytes) { return LowerCase(ToHex(bytes)); }

KeyPair ReadKey(const std::string& text, const std::string& name) {
    const std::optional<Bytes> bytes = ParseHex(text);
    if (bytes && bytes->size() == sizeof(Key)) {
        if (const std::optional<KeyPair> pair = KeyPairOf(Take<Key>(*bytes))) return *pair;
    }
    throw std::runtime_error(name + ": no private key of 64 hex digits");
}

KeyPair LoadOrMakeKey(const std::string& folder) {
    const std::string path = KeyFile(folder);
    if (::access(path.c_str(), F_OK) != 0) {
        std::filesystem::create_directories(folder);
        WriteKey(path, MakeKeyPair());
    }
    std::ifstream file(path);
    std::string text;
    if (!std::getline(file, text)) throw std::runtime_error(path + ": cannot be read");
    return ReadKey(text, path);
}

}  // namespace brennix

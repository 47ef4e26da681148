#include "process/ready_file.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace brennix {

std::string PlacesText(const std::map<std::string, std::string>& places) {
    std::string text;
    for (const auto& [name, value] : places)
        text += name + "=" + value + "\n";
    return text;
}

void WriteReadyFile(const std::string& path, const std::string& text) {
    // No file of somebody else has this name.
    const std::string temporary = path + "." + std::to_string(::getpid()) + ".new";
    if (std::filesystem::exists(path) && !std::filesystem::is_regular_file(path)) {
        throw std::runtime_error(path + ": is no ordinary file, so it is kept");
    }
    std::ofstream file(temporary);
    file << text;
    file.close();
    if (!file) throw std::runtime_error(path + ": cannot be written");
    std::filesystem::rename(temporary, path);
}

}  // namespace brennix

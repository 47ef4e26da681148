#include "process/ready_file.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace brennix {

void WriteReadyFile(const std::string& path, const std::map<std::string, std::string>& places) {
    const std::string temporary = path + ".new";
    std::ofstream file(temporary);
    for (const auto& [name, value] : places)
        file << name << "=" << value << "\n";
    file.close();
    if (!file) throw std::runtime_error(path + ": cannot be written");
    std::filesystem::rename(temporary, path);
}

}  // namespace brennix

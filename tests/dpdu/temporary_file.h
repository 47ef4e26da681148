#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace dpdu {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
// For std::tmpfile(); the file is removed with this object.
using File = std::unique_ptr<std::FILE, CloseFile>;

inline std::string Content(std::FILE* file) {
    std::string text;
    std::rewind(file);
    for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file))
        text += static_cast<char>(c);
    return text;
}

}  // namespace dpdu

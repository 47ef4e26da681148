// tarvik_descriptions FOLDER: writes the module and the cable description file, and a new
// config.json.

#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>

#include "comparam/comparams.h"
#include "description_files.h"
#include "support/config.h"

namespace {

using namespace tarvik;

void Write(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) throw std::runtime_error(path + " cannot be written");
}

void WriteAll(const std::string& folder) {
    if (!AllocParamItems()) throw std::runtime_error("out of memory");
    Write(folder + "/tarvik_mdf.xml", descriptions::ModuleDescription());
    Write(folder + "/tarvik_cdf.xml", descriptions::CableDescription());
    FreeParamItems();
    const std::string config = folder + "/config.json";
    if (!CreateDefaultConfig(config.c_str())) {
        throw std::runtime_error(config + " cannot be written");
    }
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::fputs("usage: tarvik_descriptions FOLDER\n", stderr);
        return 2;
    }
    try {
        WriteAll(arguments[1]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tarvik_descriptions: %s\n", error.what());
        return 1;
    }
}

#pragma once

#include <cstddef>

#include "platform/files.h"
#include "support/config_record.h"

namespace tarvik {

// The process's configuration. Every PDUConstruct loads it while no transport runs; afterwards only
// devicePrivateKey changes.
extern Config config;

bool ResolveConfigPath(char (&path)[kMaxPath]);
bool CreateDefaultConfig(const char* path);
bool LoadConfig(Config* record);
bool WriteConfig(const Config* record);

// Reads the text of a file into `record`. If it is not JSON, every key counts as missing.
void ParseConfig(const char* text, Config* record);
// The size of the file that WriteConfig would write.
std::size_t WrittenConfigSize(const Config& record);

}  // namespace tarvik

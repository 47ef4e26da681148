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
// A failed load leaves the record unchanged, a failed write the file.
bool LoadConfig(Config* record);
bool WriteConfig(const Config* record);

// The text of a file without the byte order mark that some editors put before UTF-8.
const char* WithoutByteOrderMark(const char* text);
// Reads the text of a file into `record`. If it is not JSON, every key counts as missing. False:
// memory is out, and `record` is unchanged.
bool ParseConfig(const char* text, Config* record);
// The size of the file that WriteConfig would write.
std::size_t WrittenConfigSize(const Config& record);

}  // namespace tarvik

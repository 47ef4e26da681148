#pragma once

#include <cstddef>

#include "platform/files.h"
#include "support/config_record.h"

namespace tarvik {

// The one record of the process. Refilled by every PDUConstruct while no transport runs; only
// devicePrivateKey changes in between.
extern Config config;

bool ResolveConfigPath(char (&path)[kMaxPath]);
bool CreateDefaultConfig(const char* path);
bool LoadConfig(Config* record);
bool WriteConfig(const Config* record);

// What LoadConfig makes of a file's text. Text that is no JSON has no key, so each counts as
// missing.
void ParseConfig(const char* text, Config* record);
// The bytes of the file that WriteConfig would write.
std::size_t WrittenConfigSize(const Config& record);

}  // namespace tarvik

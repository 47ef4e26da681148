// The server that all Windows programs of a Wine prefix share.

#pragma once

#include <map>
#include <string>

namespace brennix {

// Starts the server so that no port can become its controlling terminal; returns once programs can
// reach it. A server started by a program leads its own session: the first pseudo-terminal that it
// opens becomes its terminal. Each unplugging of that port then sends it SIGHUP, on which it prints
// all its objects and sometimes crashes. If the prefix already has a server, that one stays.
//
// The server ends half a minute after the prefix's last program. Throws std::runtime_error if it
// cannot be started.
void StartWineServer(const std::map<std::string, std::string>& environment);

}  // namespace brennix

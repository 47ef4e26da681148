// The server that all Windows programs of a Wine prefix share.

#pragma once

#include <map>
#include <string>

namespace brennix {

// Starts the server so that no port can become its controlling terminal, and returns when programs
// can reach it. One that a program starts leads a session of its own: the first pseudo-terminal
// that it opens becomes its terminal, each unplugging of that port then sends it SIGHUP, upon which
// it prints all its objects, and sometimes crashes while it does. Where the prefix has a server
// already, that one stays.
//
// It ends half a minute after the last program of the prefix. Throws std::runtime_error when it
// cannot be started.
void StartWineServer(const std::map<std::string, std::string>& environment);

}  // namespace brennix

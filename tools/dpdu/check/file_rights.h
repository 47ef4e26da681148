// Who can change or replace an installed file; one implementation per operating system.

#ifndef TOOLS_DPDU_CHECK_FILE_RIGHTS_H
#define TOOLS_DPDU_CHECK_FILE_RIGHTS_H

#include <optional>
#include <string>

namespace dpdu::check {

struct Writer {
    std::string path;  // the file, or a folder that leads to it
    std::string who;   // "every user", "the user anna"
};

// The first of the file and its folders that somebody besides administrators can change. Empty also
// if the system does not say.
std::optional<Writer> OtherWriter(const std::string& path);

}  // namespace dpdu::check

#endif  // TOOLS_DPDU_CHECK_FILE_RIGHTS_H

#include "pdu/functions.h"

#include <string>
#include <vector>

#include "console/failure.h"
#include "pdu/library_path.h"

namespace dpdu {
namespace {

constexpr char kAdvice[] = "; name a D-PDU library with --library, --vendor or DPDU_LIBRARY";

}  // namespace

pdu::Functions LoadPduFunctions(const std::string& path) {
    const std::string used = path.empty() ? DefaultLibraryPath() : path;
    const pdu::LibraryFile file(PathToLoad(used));
    if (!file) {
        throw Failure("cannot load the library '" + used + "': " + file.Reason() + kAdvice,
                      ExitCode::kNoLibrary);
    }
    const std::vector<std::string>& missing = file.Missing();
    if (!missing.empty()) {
        const std::size_t others = missing.size() - 1;
        throw Failure(
            "'" + used + "' is not a complete D-PDU library, it lacks " + missing.front() +
                (others > 0 ? " and " + std::to_string(others) + " more functions" : "") + kAdvice,
            ExitCode::kNoLibrary);
    }
    return file.F();
}

}  // namespace dpdu

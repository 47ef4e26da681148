// What a library answers to the calls that need no vehicle. It is loaded and called in a child
// process: whatever it does there, this process goes on.

#ifndef TOOLS_DPDU_CHECK_LIBRARY_ANSWERS_H
#define TOOLS_DPDU_CHECK_LIBRARY_ANSWERS_H

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "dpdu_types.h"

namespace dpdu::check {

using ObjectKey = std::pair<T_PDU_OBJT, std::string>;

// Names of the bus type and protocol of a link.
struct LinkNames {
    std::string bus_type;
    std::string protocol;
};

struct LibraryQuestions {
    std::string path;
    std::vector<ObjectKey> objects;
    std::vector<LinkNames> links;  // where to ask for ComParams, if the library wants a link
    std::chrono::milliseconds wait{3000};  // how long to look for a module
    bool is_verbose = false;               // show what the library prints
};

struct ComParamKind {
    T_PDU_PT type = 0;
    T_PDU_PC param_class = 0;
};

struct LibraryVersions {
    UNUM32 library = 0;
    UNUM32 standard = 0;  // ISO 22900-2
};

// Calls that were not made have no answer.
struct LibraryAnswers {
    std::string load_error;  // empty: the library was loaded
    std::vector<std::string> missing_functions;
    std::string construct_error;                       // empty: PDUConstruct succeeded
    std::map<ObjectKey, std::optional<UNUM32>> ids;    // nothing: the library does not know it
    std::map<UNUM32, ComParamKind> com_params;         // by id
    std::map<UNUM32, std::string> refused_com_params;  // those without a kind: why
    std::optional<std::vector<UNUM32>> module_types;   // of the modules that were found
    std::string module_error;                          // why none could be used
    std::optional<LibraryVersions> versions;
    std::string fault;  // how the library ended or blocked the process; empty: it did not
};

// Each call of the library may take this long. Throws Failure if the user interrupts, or if the
// system starts no process.
LibraryAnswers AskLibrary(const LibraryQuestions& questions, std::chrono::milliseconds limit);

// The child process: the program's only argument, and what it does then. Returns its exit code.
extern const char kAnswerArgument[];
int AnswerQuestions();

}  // namespace dpdu::check

#endif  // TOOLS_DPDU_CHECK_LIBRARY_ANSWERS_H

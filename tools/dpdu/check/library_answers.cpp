// The questions are one JSON document on the child's standard input, the answers documents on its
// standard output, one per line. {"call": ...} precedes each call of the library, so that the last
// one says where the library ended or blocked the process.

#include "check/library_answers.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <thread>

#include "check/child_process.h"
#include "console/failure.h"
#include "console/interruption.h"
#include "console/output.h"
#include "console/terminal.h"
#include "links/bare_link.h"
#include "params/known_objects.h"
#include "pdu/library_path.h"
#include "pdu/modules.h"
#include "pdu/session.h"
#include "pdu/status_text.h"

namespace dpdu::check {

const char kAnswerArgument[] = "--answer-for-library";

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kScanPause{50};
constexpr milliseconds kStartLimit{30000};  // until this program runs a second time
constexpr char kRawProtocol[] = "ISO_11898_RAW";

std::string ElementOf(T_PDU_OBJT type) {
    for (const ObjectType& row : ObjectTypes()) {
        if (row.type == type) return row.element;
    }
    return std::to_string(type);
}

// ---------------------------------------------------------------- the child

Json JsonOf(const LibraryQuestions& questions) {
    Json objects = Json::array();
    for (const auto& [type, name] : questions.objects)
        objects.push_back({{"type", type}, {"name", name}});
    Json links = Json::array();
    for (const LinkNames& link : questions.links)
        links.push_back({{"busType", link.bus_type}, {"protocol", link.protocol}});
    return {{"library", questions.path},
            {"objects", objects},
            {"links", links},
            {"waitMs", questions.wait.count()},
            {"verbose", questions.is_verbose}};
}

LibraryQuestions QuestionsIn(const Json& document) {
    LibraryQuestions questions;
    questions.path = document.at("library");
    for (const Json& object : document.at("objects"))
        questions.objects.emplace_back(object.at("type"), object.at("name"));
    for (const Json& link : document.at("links"))
        questions.links.push_back({link.at("busType"), link.at("protocol")});
    questions.wait = milliseconds(document.at("waitMs").get<std::int64_t>());
    questions.is_verbose = document.at("verbose");
    return questions;
}

// Asks the library, and writes each answer before the next call.
class Interview {
public:
    Interview(LibraryQuestions questions, Output* answers)
        : questions_(std::move(questions)), answers_(answers) {}

    void Run() {
        Call("while it was loaded");
        const pdu::LibraryFile library(PathToLoad(questions_.path));
        if (!library) return Say({{"loadError", library.Reason()}});
        if (!library.Missing().empty()) return Say({{"missing", library.Missing()}});
        functions_ = library.F();
        Call("in PDUConstruct");
        try {
            Session session(functions_, "");
            AskIds();
            AskAbout(&session);
            Call("in PDUDestruct");
        } catch (const Failure& failure) {
            Say({{"constructError", failure.what()}});
            AskIds();
        }
    }

    void End() { Say({{"end", true}}); }

private:
    void Say(const Json& line) {
        answers_->JsonLine(line);
        answers_->Flush();
    }
    void Call(const std::string& text) { Say({{"call", text}}); }

    void AskIds() {
        for (const auto& [type, name] : questions_.objects) {
            Call("in PDUGetObjectId of the " + ElementOf(type) + " " + name);
            const std::optional<UNUM32> id = pdu::FindId(functions_, type, name);
            Say({{"type", type}, {"name", name}, {"id", id ? Json(*id) : Json()}});
            if (id && type == PDU_OBJT_COMPARAM) Remember(*id);
        }
    }
    void Remember(UNUM32 id) {
        if (std::ranges::find(waiting_, id) == waiting_.end()) waiting_.push_back(id);
    }

    // No failure of a module is one of the library's names and ids.
    void AskAbout(Session* session) {
        AskForComParams(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF);
        try {
            AskModules(session);
        } catch (const Failure& failure) {
            Say({{"moduleError", failure.what()}});
        }
        for (const auto& [id, status] : refused_)
            Say({{"refused", id}, {"status", StatusText(status)}});
    }

    // Libraries with values per link answer only there.
    void AskForComParams(UNUM32 module, UNUM32 link) {
        std::erase_if(waiting_, [&](UNUM32 id) {
            Call("in PDUGetComParam of the id " + std::to_string(id));
            pdu::Item<PDU_PARAM_ITEM> item(functions_);
            const T_PDU_ERROR status = functions_.GetComParam(module, link, id, item.Out());
            if (status != PDU_STATUS_NOERROR || !item) {
                refused_[id] = status;
                return false;
            }
            refused_.erase(id);
            Say({{"comParam", id},
                 {"dataType", item->ComParamDataType},
                 {"class", item->ComParamClass}});
            return true;
        });
    }

    void AskModules(Session* session) {
        const std::vector<ModuleInfo> modules = FindModules(session);
        Json types = Json::array();
        for (const ModuleInfo& module : modules)
            types.push_back(module.type);
        Say({{"moduleTypes", types}});
        if (modules.empty()) return;
        Call("in PDUModuleConnect");
        const ConnectedModule module(session, modules.front().handle);
        AskVersions(module);
        for (const LinkNames& link : questions_.links) {
            if (!waiting_.empty()) AskOnLink(module, link);
        }
        Call("in PDUModuleDisconnect");
    }

    std::vector<ModuleInfo> FindModules(Session* session) {
        const auto deadline = Clock::now() + questions_.wait;
        for (;;) {
            Call("in PDUGetModuleIds");
            std::vector<ModuleInfo> modules = ListModules(session);
            session->DiscardQueue(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF);
            std::erase_if(modules, [](const ModuleInfo& module) {
                return module.state == PDU_MODST_NOT_AVAIL;
            });
            if (!modules.empty() || Clock::now() >= deadline) return modules;
            session->PauseForEvent(kScanPause);
        }
    }

    void AskVersions(const ConnectedModule& module) {
        Call("in PDUGetVersion");
        PDU_VERSION_DATA data = {};
        Check(functions_.GetVersion(module.Handle(), &data), "PDUGetVersion");
        Say({{"libraryVersion", data.PDUApiSwVersion},
             {"standardVersion", data.MVCI_Part2StandardVersion}});
    }

    void AskOnLink(const ConnectedModule& module, const LinkNames& names) {
        Call("in PDUCreateComLogicalLink");
        try {
            const BareLink link(module,
                                {names.protocol, names.bus_type, names.protocol == kRawProtocol});
            AskForComParams(link.Handles().module, link.Handles().link);
            Call("in PDUDestroyComLogicalLink");
        } catch (const Failure& failure) {
            Say({{"moduleError", failure.what()}});
        }
    }

    LibraryQuestions questions_;
    Output* answers_;
    pdu::Functions functions_;
    std::vector<UNUM32> waiting_;            // ComParams whose kind is not known yet
    std::map<UNUM32, T_PDU_ERROR> refused_;  // with the last status
};

std::string StandardInput() {
    std::string text;
    std::array<char, 65536> block;
    while (const std::size_t count = std::fread(block.data(), 1, block.size(), stdin))
        text.append(block.data(), count);
    return text;
}

// ---------------------------------------------------------------- this process

// Takes the answers in, one document at a time.
class Listener {
public:
    // Returns false after the last line of a child that has answered everything.
    bool Take(const std::string& line) {
        const Json document = Json::parse(line, nullptr, false);
        if (!document.is_object()) return true;
        if (document.contains("end")) return false;
        if (document.contains("call")) call_ = document["call"];
        TakeLoading(document);
        TakeObject(document);
        TakeModule(document);
        return true;
    }

    const std::string& LastCall() const { return call_; }
    LibraryAnswers& Answers() { return answers_; }

private:
    void TakeLoading(const Json& document) {
        if (document.contains("loadError")) answers_.load_error = document["loadError"];
        if (document.contains("missing")) {
            answers_.missing_functions = document["missing"].get<std::vector<std::string>>();
        }
        if (document.contains("constructError"))
            answers_.construct_error = document["constructError"];
    }
    void TakeObject(const Json& document) {
        if (document.contains("id")) {
            const ObjectKey key = {document["type"], document["name"]};
            answers_.ids[key] = document["id"].is_null()
                                    ? std::nullopt
                                    : std::optional<UNUM32>(document["id"].get<UNUM32>());
        }
        if (document.contains("comParam")) {
            answers_.com_params[document["comParam"]] = {document["dataType"], document["class"]};
        }
        if (document.contains("refused")) {
            answers_.refused_com_params[document["refused"]] = document["status"];
        }
    }
    void TakeModule(const Json& document) {
        if (document.contains("moduleError")) answers_.module_error = document["moduleError"];
        if (document.contains("moduleTypes")) {
            answers_.module_types = document["moduleTypes"].get<std::vector<UNUM32>>();
        }
        if (document.contains("libraryVersion")) {
            answers_.versions = {document["libraryVersion"], document["standardVersion"]};
        }
    }

    LibraryAnswers answers_;
    std::string call_ = "before it was loaded";
};

std::string Seconds(milliseconds limit) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g s", static_cast<double>(limit.count()) / 1000);
    return text.data();
}

// Reads the child's lines until it has answered everything. Otherwise the reason why not.
std::string Listen(ChildProcess* child, milliseconds limit, Listener* listener) {
    std::string output;
    auto deadline = Clock::now() + std::max(kStartLimit, limit);
    for (;;) {
        ThrowIfInterrupted();
        const ChildProcess::Read read = child->ReadSome(kInterruptionPoll, &output);
        for (std::size_t end; (end = output.find('\n')) != output.npos; output.erase(0, end + 1)) {
            if (!listener->Take(output.substr(0, end))) return "";
            deadline = Clock::now() + limit;
        }
        if (read == ChildProcess::Read::kEnd) {
            const std::optional<std::string> how = child->WaitForEnd(limit);
            const std::string detail = how ? (how->empty() ? "exit code 0" : *how) : "no exit code";
            return "the library ended the process " + listener->LastCall() + " (" + detail + ")";
        }
        if (Clock::now() >= deadline) {
            return "the library did not answer for " + Seconds(limit) + " " + listener->LastCall();
        }
    }
}

// Threads and exit handlers of the library end with the process.
std::string WatchEnd(ChildProcess* child, milliseconds limit) {
    const std::optional<std::string> how = child->WaitForEnd(limit);
    if (!how) return "the library kept the process from ending for " + Seconds(limit);
    return how->empty() ? "" : "the process did not end as it should: " + *how;
}

}  // namespace

LibraryAnswers AskLibrary(const LibraryQuestions& questions, milliseconds limit) {
    ChildProcess child(kAnswerArgument, JsonOf(questions).dump());
    Listener listener;
    std::string fault = Listen(&child, limit, &listener);
    if (fault.empty()) fault = WatchEnd(&child, limit);
    listener.Answers().fault = fault;
    return std::move(listener.Answers());
}

int AnswerQuestions() {
    BecomeChild();
    const LibraryQuestions questions = QuestionsIn(Json::parse(StandardInput()));
    std::FILE* stream = TakeStandardOutput(questions.is_verbose ? LibraryLines::kToStandardError
                                                                : LibraryLines::kDiscarded);
    if (!stream) return static_cast<int>(ExitCode::kFailure);
    Output output(stream, true);
    Interview interview(questions, &output);
    interview.Run();
    interview.End();
    return static_cast<int>(ExitCode::kOk);
}

}  // namespace dpdu::check

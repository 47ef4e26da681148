// Sends one request to several control units and collects their replies.

#ifndef TOOLS_DPDU_LINKS_ECU_REQUEST_H
#define TOOLS_DPDU_LINKS_ECU_REQUEST_H

#include <optional>
#include <string>
#include <vector>

#include "console/failure.h"
#include "console/output.h"
#include "links/link.h"

namespace dpdu {

struct EcuReply {
    EcuAddress ecu;
    std::vector<Answer> answers;
    std::string error;                    // why there are no answers; empty if there are any
    ExitCode code = ExitCode::kNoAnswer;  // what that reason amounts to
    // Functional requests: the library delivered all answers at once, this long after the request
    // began, so that the answers have no times of their own.
    std::optional<UNUM32> all_after_us;
};

// The positive and the negative response to a request, identified by their service bytes.
std::vector<ExpectedResponse> ResponsesTo(const Bytes& request);

// Asks one control unit after the other with physical requests, each on its own link. A failure
// with one of them does not affect the others.
std::vector<EcuReply> AskEach(const ConnectedModule& module, const LinkOptions& options,
                              const std::vector<EcuAddress>& ecus, const Bytes& request,
                              const std::vector<ExpectedResponse>& expected);

// Asks all at once with one functional request on the identifier. The answers' times are unset if
// the library does not know them.
std::vector<EcuReply> AskTogether(const ConnectedModule& module, const LinkOptions& options,
                                  const std::vector<EcuAddress>& ecus, std::uint32_t functional_id,
                                  const Bytes& request,
                                  const std::vector<ExpectedResponse>& expected);

// The text of the negative response if the first answer is one, else empty.
std::string NegativeText(const EcuReply& reply);

// Identifiers, answers and error. The answers are also decoded, as those to the request.
Json ReplyJson(const EcuReply& reply, const Bytes& request);

// kOk for a positive first answer, else why there is none.
ExitCode Outcome(const EcuReply& reply);
std::vector<ExitCode> Outcomes(const std::vector<EcuReply>& replies);

// The most serious one; kOk for none.
ExitCode MostSerious(const std::vector<ExitCode>& outcomes);

// Prints "1 of 3 control units ..." on standard error if any failed; returns the most serious.
ExitCode ReportFailures(const std::vector<ExitCode>& outcomes);

}  // namespace dpdu

#endif  // TOOLS_DPDU_LINKS_ECU_REQUEST_H

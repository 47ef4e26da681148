// Putting one request to several control units, and what each of them had to say.

#ifndef TOOLS_DPDU_LINKS_ECU_REQUEST_H
#define TOOLS_DPDU_LINKS_ECU_REQUEST_H

#include <string>
#include <vector>

#include "console/output.h"
#include "links/link.h"

namespace dpdu {

struct EcuReply {
    EcuAddress ecu;
    std::vector<Answer> answers;
    std::string error;  // why there is none; set exactly when there are no answers
};

// The positive and the negative response to a request, by their service bytes.
std::vector<ExpectedResponse> ResponsesTo(const Bytes& request);

// One link and one physical request after the other. What goes wrong with one control unit does
// not keep the others from being asked.
std::vector<EcuReply> AskEach(const ConnectedModule& module, const LinkOptions& options,
                              const std::vector<EcuAddress>& ecus, const Bytes& request,
                              const std::vector<ExpectedResponse>& expected);

// All at once with one functional request on the identifier.
std::vector<EcuReply> AskTogether(const ConnectedModule& module, const LinkOptions& options,
                                  const std::vector<EcuAddress>& ecus, std::uint32_t functional_id,
                                  const Bytes& request,
                                  const std::vector<ExpectedResponse>& expected);

// The text of the negative response when the first answer is one.
std::string NegativeText(const EcuReply& reply);

// Identifiers, answers and error.
Json ReplyJson(const EcuReply& reply);

// How many gave no answer, or a negative one.
std::size_t CountFailures(const std::vector<EcuReply>& replies);

// "1 of 3 control units ..." on standard error when not all of them did as asked; true when they
// did.
bool ReportFailures(std::size_t failed, std::size_t asked);

}  // namespace dpdu

#endif  // TOOLS_DPDU_LINKS_ECU_REQUEST_H

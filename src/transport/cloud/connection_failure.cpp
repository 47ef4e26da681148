#include "transport/cloud/connection_failure.h"

#include "platform/files.h"
#include "platform/process.h"
#include "support/config.h"
#include "support/log.h"
#include "support/message.h"
#include "transport/cloud/cloud_limits.h"
#include "transport/cloud/websocket_client.h"

namespace tarvik {
namespace {

constexpr char kTitle[] = "Tarvik PDU DLL - Connection failure";

std::int64_t lastFailureBoxTime = 0;  // only the connection thread uses it

// Deliberate: an unresolved name is shown alone, a failed connection with the whole URL.
bool FormatFailure(char* text, std::size_t size, std::uint32_t error, const char* server,
                   const char* file) {
    const char* const proxy = config.proxyAddress;
    const char* const url = config.websocketAddress;
    switch (error) {
        case kErrorNameNotResolved:
            if (config.useProxy) {
                FormatText(text, size,
                           "Failed to resolve '%s' using Proxy '%s'.\n"
                           "Are you sure the Proxy settings are correct?\n"
                           "Check config file '%s'.",
                           server, proxy, file);
            } else {
                FormatText(text, size,
                           "Failed to resolve '%s'.\n"
                           "Are you sure the settings are correct?\n"
                           "Maybe you need to set the proxy first?\n"
                           "Check config file '%s'.",
                           server, file);
            }
            return true;
        case kErrorCannotConnect:
            if (config.useProxy) {
                FormatText(text, size,
                           "Failed to connect to '%s' using Proxy '%s'.\n"
                           "Are you sure the Proxy settings are correct?\n"
                           "Check config file '%s'.",
                           url, proxy, file);
            } else {
                FormatText(text, size,
                           "Failed to connect to '%s'.\n"
                           "Are you sure the settings are correct?\n"
                           "Check config file '%s'.",
                           url, file);
            }
            return true;
        default:
            return false;
    }
}

}  // namespace

void ShowConnectionFailure(std::uint32_t error, const char* server, std::int64_t attempt_second) {
    if (attempt_second - lastFailureBoxTime < GetCloudLimits().failure_box_quiet_s) return;
    char file[kMaxPath];
    if (!ResolveConfigPath(file)) FormatText(file, sizeof file, "<unknown>");
    char text[2048];
    if (!FormatFailure(text, sizeof text, error, server, file)) return;
    ShowWarning(text, kTitle);
    lastFailureBoxTime = OsCalendarSecond();
}

}  // namespace tarvik

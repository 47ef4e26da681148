#include "simulator_control.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace tarvik::bench {
namespace {

[[noreturn]] void FailControl(const std::string& what) {
    std::fprintf(stderr, "bench: the simulator's control channel: %s\n", what.c_str());
    std::_Exit(1);
}

int Connect() {
    const char* variable = std::getenv("BRENNIX_SIM_CONTROL");  // "127.0.0.1:PORT"
    const std::string address = variable == nullptr ? "" : variable;
    const std::size_t colon = address.rfind(':');
    if (colon == std::string::npos) FailControl("no address");
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(static_cast<std::uint16_t>(std::stoul(address.substr(colon + 1))));
    const int connection = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (::connect(connection, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
        FailControl("cannot connect");
    }
    return connection;
}

}  // namespace

std::string CommandSimulator(const std::string& line) {
    static const int connection = Connect();
    const std::string command = line + "\n";
    if (::write(connection, command.data(), command.size()) !=
        static_cast<ssize_t>(command.size())) {
        FailControl("cannot write");
    }
    std::string answer;
    while (!answer.ends_with('\n')) {
        char bytes[4096];
        const ssize_t got = ::read(connection, bytes, sizeof bytes);
        if (got <= 0) FailControl("has ended");
        answer.append(bytes, static_cast<std::size_t>(got));
    }
    answer.pop_back();
    if (!answer.starts_with("ok")) FailControl("'" + line + "': " + answer);
    return answer.size() > 3 ? answer.substr(3) : "";
}

}  // namespace tarvik::bench

// A second program that does what this one cannot do in its own process: lines to it, and one
// answer line each, "ok …" or "error: …".

#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace brennix {

class HelperProcess {
public:
    // `name` is for messages. Throws std::runtime_error when it cannot be started.
    HelperProcess(std::string name, const std::vector<std::string>& command,
                  const std::map<std::string, std::string>& environment);
    // The end of its input ends the helper.
    ~HelperProcess();
    HelperProcess(const HelperProcess&) = delete;
    HelperProcess& operator=(const HelperProcess&) = delete;

    // Returns what stands after "ok ". Blocks: the helpers answer within milliseconds. Throws
    // std::runtime_error for an error and when no answer comes in time.
    std::string Ask(const std::string& line, int limit_ms = 10'000);

private:
    std::string ReadLine(int limit_ms);

    std::string name_;
    pid_t process_ = -1;
    int to_ = -1;
    int from_ = -1;
};

}  // namespace brennix

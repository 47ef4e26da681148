// A second program for work that this one cannot do in its own process. It answers each line with
// one line, "ok …" or "error: …".

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
    // Ends the helper by ending its input.
    ~HelperProcess();
    HelperProcess(const HelperProcess&) = delete;
    HelperProcess& operator=(const HelperProcess&) = delete;

    // Returns the text after "ok ". Blocks, since the helpers answer within milliseconds. Throws
    // std::runtime_error for an error and if no answer comes in time.
    std::string Ask(const std::string& line, int limit_ms = 10'000);

private:
    std::string ReadLine(int limit_ms);

    std::string name_;
    pid_t process_ = -1;
    int to_ = -1;
    int from_ = -1;
};

}  // namespace brennix

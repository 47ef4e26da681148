#include "radio/central.h"

namespace brennix {

Central::Central(EventLoop* loop, std::size_t number, int fd, Handlers handlers)
    : number_(number),
      handlers_(std::move(handlers)),
      socket_(loop, fd, nullptr,
              {.received = [this](ByteSpan bytes) { OnBytes(bytes); },
               .ended = [this](const std::string&) { handlers_.left(); }}) {}

void Central::Send(const std::string& line) {
    const std::string bytes = line + "\n";
    socket_.Send({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

void Central::OnBytes(ByteSpan bytes) {
    received_.append(bytes.begin(), bytes.end());
    std::size_t begin = 0;
    for (std::size_t end; (end = received_.find('\n', begin)) != std::string::npos; begin = end + 1)
        handlers_.received(std::string_view(received_).substr(begin, end - begin));
    received_.erase(0, begin);
}

}  // namespace brennix

#include "bluez/bus.h"

#include <poll.h>
#include <sys/epoll.h>

#include <algorithm>

namespace brennix {

namespace {

constexpr const char* kOwnerChanges =
    "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
    "member='NameOwnerChanged'";

std::uint32_t EpollEvents(short events) {
    return ((events & POLLIN) != 0 ? EPOLLIN : 0u) |
           ((events & POLLOUT) != 0 ? static_cast<unsigned>(EPOLLOUT) : 0u);
}

}  // namespace

Bus::Bus(EventLoop* loop, const std::string& address)
    : loop_(loop), connection_(sdbus::createSessionBusConnectionWithAddress(address)) {
    connection_->addMatch(
        kOwnerChanges, [this](sdbus::Message& message) { OnOwnerChanged(message); },
        sdbus::floating_slot);
    const auto wanted = connection_->getEventLoopPollData();
    fd_ = wanted.fd;
    loop_->Watch(fd_, EpollEvents(wanted.events), [this](std::uint32_t) { Pump(); });
}

Bus::~Bus() {
    loop_->Cancel(timer_);
    loop_->Unwatch(fd_);
}

void Bus::OnOwnerChanged(sdbus::Message& message) {
    std::string name;
    std::string before;
    std::string after;
    message >> name >> before >> after;
    if (after.empty() && left_) left_(name);
}

void Bus::SetMute(bool mute) {
    is_mute_ = mute;
    if (!mute) return Pump();
    loop_->Cancel(timer_);
    loop_->Change(fd_, 0);
}

void Bus::Pump() {
    if (is_mute_) return;
    while (connection_->processPendingRequest()) {
    }
    const auto wanted = connection_->getEventLoopPollData();
    loop_->Change(fd_, EpollEvents(wanted.events));
    loop_->Cancel(timer_);
    if (wanted.timeout_usec == UINT64_MAX) return;
    const auto due = std::chrono::microseconds(wanted.timeout_usec);
    const auto left = due - Clock::now().time_since_epoch();
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(left);
    timer_ = loop_->After(std::max(wait, std::chrono::milliseconds(0)), [this] { Pump(); });
}

}  // namespace brennix

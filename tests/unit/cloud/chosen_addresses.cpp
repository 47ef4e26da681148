// The library's source, with two functions under other names. This object then defines all that the
// source does, so the linker takes nothing of it from the library.
#define SystemResolve ResolveBySystem
#define SystemFreeAddresses FreeAddressesOfSystem
#include "transport/cloud/tcp_system_posix.cpp"
#undef SystemResolve
#undef SystemFreeAddresses

#include "unit/cloud/chosen_addresses.h"

namespace tarvik {
namespace {

test::ChosenAddresses* chosen = nullptr;

}  // namespace

int SystemResolve(const char* host, const char* port, addrinfo** first);
int SystemResolve(const char* host, const char* port, addrinfo** first) {
    if (chosen == nullptr) return ResolveBySystem(host, port, first);
    *first = chosen->First();
    return 0;
}

void SystemFreeAddresses(addrinfo* first);
void SystemFreeAddresses(addrinfo* first) {
    if (chosen == nullptr) FreeAddressesOfSystem(first);
}

namespace test {

ChosenAddresses::ChosenAddresses() { chosen = this; }
ChosenAddresses::~ChosenAddresses() { chosen = nullptr; }

void ChosenAddresses::Add(const sockaddr_in& address) {
    addrinfo* const before = entries_.empty() ? nullptr : &entries_.back().info;
    Entry& entry = entries_.emplace_back(Entry{address, {}});
    entry.info.ai_family = AF_INET;
    entry.info.ai_socktype = SOCK_STREAM;
    entry.info.ai_protocol = IPPROTO_TCP;
    entry.info.ai_addr = reinterpret_cast<sockaddr*>(&entry.address);
    entry.info.ai_addrlen = sizeof entry.address;
    if (before != nullptr) before->ai_next = &entry.info;
}

}  // namespace test
}  // namespace tarvik

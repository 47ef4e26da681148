// The library's source, with two functions under other names. This object then defines all that the
// source does, so the linker takes nothing of it from the library.
#define SystemResolve ResolveBySystem
#define SystemFreeAddresses FreeAddressesOfSystem
#include "transport/cloud/tcp_system_posix.cpp"
#undef SystemResolve
#undef SystemFreeAddresses

#include "unit/cloud/chosen_addresses.h"

#include <mutex>
#include <vector>

#include "platform/immortal.h"

namespace tarvik {
namespace {

struct Chosen {
    std::mutex lock;
    std::vector<sockaddr_in> addresses;
};

// Threads that look up may run until the process ends.
Chosen& TheChosen() {
    static Immortal<Chosen> chosen;
    return *chosen;
}

struct Entry {
    addrinfo info;  // at the beginning: freeing gets no more than this
    sockaddr_in address;
};

addrinfo* NewEntry(const sockaddr_in& address, addrinfo* next) {
    auto* entry = new Entry{{}, address};
    entry->info.ai_family = AF_INET;
    entry->info.ai_socktype = SOCK_STREAM;
    entry->info.ai_protocol = IPPROTO_TCP;
    entry->info.ai_addr = reinterpret_cast<sockaddr*>(&entry->address);
    entry->info.ai_addrlen = sizeof entry->address;
    entry->info.ai_next = next;
    return &entry->info;
}

}  // namespace

int SystemResolve(const char* host, const char* port, addrinfo** first);
int SystemResolve(const char*, const char*, addrinfo** first) {
    const std::lock_guard hold(TheChosen().lock);
    *first = nullptr;
    const std::vector<sockaddr_in>& addresses = TheChosen().addresses;
    for (auto at = addresses.rbegin(); at != addresses.rend(); ++at)
        *first = NewEntry(*at, *first);
    return *first != nullptr ? 0 : EAI_NONAME;
}

void SystemFreeAddresses(addrinfo* first);
void SystemFreeAddresses(addrinfo* first) {
    while (first != nullptr) {
        addrinfo* const next = first->ai_next;
        delete reinterpret_cast<Entry*>(first);
        first = next;
    }
}

namespace test {

ChosenAddresses::~ChosenAddresses() {
    const std::lock_guard hold(TheChosen().lock);
    TheChosen().addresses.clear();
}

void ChosenAddresses::Add(const sockaddr_in& address) {
    const std::lock_guard hold(TheChosen().lock);
    TheChosen().addresses.push_back(address);
}

}  // namespace test
}  // namespace tarvik

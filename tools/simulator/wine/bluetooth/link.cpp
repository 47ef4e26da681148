#include "wine/bluetooth/link.h"

#include <map>
#include <memory>
#include <optional>

#include "wine/bluetooth/radio_client.h"
#include "wine/bluetooth/rules.h"

namespace brennix {

Link& Link::To(std::uint64_t address) {
    static Lock lock;
    static auto* const links = new std::map<std::uint64_t, std::unique_ptr<Link>>;
    const std::lock_guard hold(lock);
    std::unique_ptr<Link>& link = (*links)[address];
    if (link == nullptr) link.reset(new Link(address));
    return *link;
}

void Link::SetKnown() {
    const std::lock_guard hold(lock_);
    is_known_ = true;
}

bool Link::IsKnown() const {
    const std::lock_guard hold(lock_);
    return is_known_;
}

bool Link::IsConnected() const {
    const std::lock_guard hold(lock_);
    return state_ == State::kConnected;
}

std::uint16_t Link::Mtu() const {
    const std::lock_guard hold(lock_);
    return mtu_;
}

std::uint64_t Link::Number() const {
    const std::lock_guard hold(lock_);
    return state_ == State::kConnected ? number_ : 0;
}

void Link::Connect(std::function<void(bool)> done) {
    {
        const std::lock_guard hold(lock_);
        if (state_ != State::kConnected) waiting_.push_back(std::exchange(done, {}));
        if (state_ == State::kIdle) AskToConnect();
    }
    if (done) done(true);
}

void Link::AskToConnect() {
    state_ = State::kConnecting;
    RadioClient::Get()->Ask(
        "connect " + AddressText(address_), "connected",
        [this](const std::optional<std::string>& mtu) { OnAnswer(mtu.value_or("")); });
}

// An empty text: refused.
void Link::OnAnswer(const std::string& mtu) {
    std::vector<std::function<void(bool)>> waiting;
    {
        const std::lock_guard hold(lock_);
        if (state_ != State::kConnecting) return;  // aborted meanwhile
        state_ = mtu.empty() ? State::kIdle : State::kConnected;
        if (!mtu.empty()) mtu_ = static_cast<std::uint16_t>(std::stoul(mtu));
        ++number_;
        subscribed_ = false;
        waiting.swap(waiting_);
        TellAll();
    }
    for (const auto& done : waiting)
        done(!mtu.empty());
}

void Link::SetSubscribed(bool subscribed) {
    const std::lock_guard hold(lock_);
    subscribed_ = subscribed;
}

void Link::Hold() {
    const std::lock_guard hold(lock_);
    ++held_;
}

void Link::LetGo() {
    std::vector<std::function<void(bool)>> waiting;
    {
        const std::lock_guard hold(lock_);
        if (--held_ > 0 || state_ == State::kIdle || state_ == State::kEnding) return;
        if (state_ == State::kConnected && subscribed_) {
            Violation("a connection ended with notifications switched on");
        }
        state_ = State::kEnding;
        waiting.swap(waiting_);
        RadioClient::Get()->Ask("disconnect " + AddressText(address_), "disconnected",
                                [this](const std::optional<std::string>&) { OnDisconnected(); });
    }
    for (const auto& done : waiting)
        done(false);
}

void Link::OnDisconnected() {
    const std::lock_guard hold(lock_);
    state_ = State::kIdle;
    if (!waiting_.empty()) AskToConnect();
}

void Link::Add(LinkListener* listener) {
    const std::lock_guard hold(lock_);
    listeners_.insert(listener);
}

void Link::Remove(LinkListener* listener) {
    const std::lock_guard hold(lock_);
    listeners_.erase(listener);
}

void Link::Notified(const std::string& value) {
    const std::lock_guard hold(lock_);
    ForEachListener([&](LinkListener* listener) { listener->OnNotified(value); });
}

void Link::Lost() {
    const std::lock_guard hold(lock_);
    if (state_ != State::kConnected) return;
    state_ = State::kIdle;
    TellAll();
}

void Link::TellAll() {
    ForEachListener([](LinkListener* listener) { listener->OnConnectionChanged(); });
}

// The call may release the listener, since its program may have dropped it meanwhile.
void Link::ForEachListener(const std::function<void(LinkListener*)>& tell) {
    const std::set<LinkListener*> listeners = listeners_;
    for (LinkListener* listener : listeners) {
        if (listeners_.contains(listener)) tell(listener);
    }
}

}  // namespace brennix

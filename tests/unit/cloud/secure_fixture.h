#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/config.h"
#include "transport/cloud/secure_channel.h"
#include "transport/cloud/secure_channel_random.h"
#include "transport/cloud/secure_channel_state.h"
#include "unit/cloud/crypto_hooks.h"
#include "unit/faults/files_fault.h"
#include "unit/faults/heap_fault.h"
#include "unit/link/link_support.h"
#include "vectors/secure_vectors.h"

namespace tarvik::test {

// Makes time advance in leaps, so that a wait without an answer ends at once.
class LeapingTick {
public:
    LeapingTick() {
        previous_ = SetTickSource([] { return now_ms_.fetch_add(5000); });
    }
    ~LeapingTick() { SetTickSource(previous_); }
    LeapingTick(const LeapingTick&) = delete;
    LeapingTick& operator=(const LeapingTick&) = delete;

private:
    static inline std::atomic<std::uint64_t> now_ms_{0};
    TickSource previous_;
};

// A channel without identity and session, a configuration without keys, queues to the relay, and
// folders of the test's own. The console output is held back.
class SecureChannel : public testing::Test {
protected:
    void SetUp() override {
        config = {};
        ASSERT_TRUE(CloudSecInitRng());
        Forget();
    }
    void TearDown() override {
        Forget();
        config = {};
        // Shows what the library printed.
        if (HasFailure()) std::fputs(console_.Text().c_str(), stderr);
    }

    static void Forget() {
        CloudSecClearSession();
        cloud_identity.devicePrivateKey.Wipe();
        cloud_identity.devicePublicKey = {};
        cloud_identity.serverPublicKey = {};
        cloud_identity.identityLoaded = false;
    }

    static void SetText(char* field, const std::string& text) {
        std::memcpy(field, text.c_str(), text.size() + 1);
    }
    static void Configure(const SecureVector& vector) {
        SetText(config.devicePrivateKey, HexOf(vector.device_private_key));
        SetText(config.serverPublicKey, HexOf(vector.server_public_key));
    }
    static bool Load(const SecureVector& vector) {
        Configure(vector);
        return CloudSecLoadIdentity();
    }

    static PacketPtr PacketFrom(const Bytes& bytes) {
        PacketPtr packet(static_cast<Packet*>(AllocateMem(bytes.size())));
        std::memcpy(packet->Bytes(), bytes.data(), bytes.size());
        return packet;
    }
    void Answer(const Bytes& packet) { Append(&relay_.rx, PacketFrom(packet)); }

    // The device's side of the handshake of a vector, with this message in place of its NHS2.
    bool Handshake(const SecureVector& vector, const Bytes& nhs2) {
        const FixedEphemeral ephemeral(vector.device_ephemeral_private_key,
                                       vector.device_ephemeral_public_key);
        Answer(nhs2);
        return CloudSecHandshake(&relay_);
    }
    bool Handshake(const SecureVector& vector) { return Handshake(vector, vector.nhs2); }
    bool Establish(const SecureVector& vector) {
        const bool established = Load(vector) && Handshake(vector);
        Sent();  // NHS1
        return established;
    }
    Bytes Sent() { return BytesOf(TakePacket(&relay_.tx, 0)); }

    // The channel's lines, in order.
    static std::vector<std::string> Lines(const LogCapture& log) {
        std::vector<std::string> lines;
        for (const std::string& line : log.Lines()) {
            if (line.starts_with("[Cloud")) lines.push_back(line);
        }
        return lines;
    }

    static bool IsZero(const std::uint8_t* bytes, std::size_t size) {
        return std::all_of(bytes, bytes + size, [](std::uint8_t byte) { return byte == 0; });
    }
    static bool SessionIsClear() {
        const CloudSecSession& session = cloud_session;
        return IsZero(session.txKey.data(), session.txKey.size()) &&
               IsZero(session.rxKey.data(), session.rxKey.size()) &&
               IsZero(session.nonceSalt.data(), session.nonceSalt.size()) &&
               session.txCounter == 0 && session.rxCounter == 0 && !session.established;
    }

    const SecureVector& vector_ = SecureVectors().front();
    const std::filesystem::path& log_ = DebugLogPath();  // outside the folders that come and go
    TestFolders folders_;
    Dongle relay_;
    StdoutCapture console_;
};

template <typename Array>
Bytes BytesOfArray(const Array& array) {
    return {array.begin(), array.end()};
}

using Texts = std::vector<std::string>;

}  // namespace tarvik::test

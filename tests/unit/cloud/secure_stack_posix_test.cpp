// What a handshake leaves on its stack. To look at it, the test runs a thread on a stack of its
// own, which only POSIX threads allow.
#include <pthread.h>

#include <algorithm>

#include "unit/cloud/secure_fixture.h"

namespace tarvik::test {
namespace {

constexpr std::size_t kStackSize = 1 << 20;

class SecureStack : public SecureChannel {
protected:
    struct Call {
        SecureStack* test;
        Bytes nhs2;
        bool done;
    };
    // Far below what the end of a thread overwrites.
    [[gnu::noinline]] static bool HandshakeFurtherDown(SecureStack* test, const Bytes& nhs2) {
        volatile std::uint8_t room[1 << 16];
        room[0] = 0;
        return test->Handshake(test->vector_, nhs2) && room[0] == 0;
    }
    // Runs the handshake on the stack.
    bool HandshakeOn(Bytes* stack, const Bytes& nhs2) {
        Call call = {this, nhs2, false};
        pthread_attr_t attributes;
        pthread_t thread;
        EXPECT_EQ(pthread_attr_init(&attributes), 0);
        EXPECT_EQ(pthread_attr_setstack(&attributes, stack->data(), stack->size()), 0);
        const auto body = [](void* argument) -> void* {
            auto* self = static_cast<Call*>(argument);
            self->done = HandshakeFurtherDown(self->test, self->nhs2);
            return nullptr;
        };
        EXPECT_EQ(pthread_create(&thread, &attributes, body, &call), 0);
        EXPECT_EQ(pthread_join(thread, nullptr), 0);
        EXPECT_EQ(pthread_attr_destroy(&attributes), 0);
        return call.done;
    }
    // In the order of its bytes, or reversed.
    static bool Holds(const Bytes& stack, const Bytes& secret) {
        return std::search(stack.begin(), stack.end(), secret.begin(), secret.end()) !=
                   stack.end() ||
               std::search(stack.begin(), stack.end(), secret.rbegin(), secret.rend()) !=
                   stack.end();
    }
    void ExpectNoSecretOn(const Bytes& stack) const {
        EXPECT_FALSE(Holds(stack, vector_.device_private_key));
        EXPECT_FALSE(Holds(stack, vector_.device_ephemeral_private_key));
        EXPECT_FALSE(Holds(stack, vector_.shared_secret_1));
        EXPECT_FALSE(Holds(stack, vector_.shared_secret_2));
        EXPECT_FALSE(Holds(stack, vector_.nhs1_key));
        EXPECT_FALSE(Holds(stack, vector_.session_prk));
        EXPECT_FALSE(Holds(stack, vector_.tx_key));
        EXPECT_FALSE(Holds(stack, vector_.rx_key));
        EXPECT_FALSE(Holds(stack, vector_.nonce_salt));
        // The search works: this passes through the stack too, and is not secret.
        EXPECT_TRUE(Holds(stack, vector_.device_ephemeral_public_key));
    }
};

TEST_F(SecureStack, HandshakeLeavesNoSecretOnIt) {
    ASSERT_TRUE(Load(vector_));
    Bytes stack(kStackSize);
    EXPECT_TRUE(HandshakeOn(&stack, vector_.nhs2));
    ExpectNoSecretOn(stack);
}

TEST_F(SecureStack, RefusedHandshakeLeavesNoSecretOnIt) {
    ASSERT_TRUE(Load(vector_));
    Bytes wrong_tag = vector_.nhs2;
    wrong_tag[8] ^= 1;
    Bytes stack(kStackSize);
    EXPECT_FALSE(HandshakeOn(&stack, wrong_tag));
    ExpectNoSecretOn(stack);
}

}  // namespace
}  // namespace tarvik::test

// Reading a LOGN.

#include "fuzz_support.h"

using namespace tarvik;
using namespace tarvik::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const PacketPtr packet = PacketFrom(kTypeLogn, data, size);
    const LoginRecord login = LoginFromPacket(*packet);
    const std::size_t told = std::min(packet->length, kLoginSize);
    Require(std::memcmp(login.bytes, packet->Bytes(), told) == 0);
    for (std::size_t i = told; i < kLoginSize; ++i)
        Require(login.bytes[i] == 0);

    const DeviceName name = LoginDeviceName(login);
    const std::size_t length = strnlen(name.text, sizeof name.text);
    Require(length < sizeof name.text);
    Require(std::memcmp(name.text, login.bytes + 64, length) == 0);
    Require(length == 32 || login.bytes[64 + length] == 0);
    return 0;
}

#pragma once

// A serial port that the test has opened, with its two directions.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "transport/serial/serial_port.h"
#include "unit/test_support.h"

namespace tarvik::test {

class OpenedPort {
public:
    // Check IsOpen().
    explicit OpenedPort(const std::string& path) : port_(OpenPort(path.c_str())) {
        if (port_ == nullptr) return;
        receive_.reset(CreateTransfer(port_.get(), TransferKind::kReceive));
        transmit_.reset(CreateTransfer(port_.get(), TransferKind::kTransmit));
    }
    bool IsOpen() const { return receive_ != nullptr && transmit_ != nullptr; }

    PortHandle* handle() const { return port_.get(); }
    PortTransfer* receive() const { return receive_.get(); }
    PortTransfer* transmit() const { return transmit_.get(); }

    // Reads as the receive thread does: waits, asks for the number of bytes, reads them. At least
    // `size` bytes, or those that arrived before patience ran out.
    std::vector<std::uint8_t> ReadAtLeast(std::size_t size, std::int32_t wait_ms = 10) const {
        std::vector<std::uint8_t> bytes;
        EXPECT_TRUE(Eventually([&] {
            std::uint32_t queued = 0;
            if (!WaitForData(receive(), wait_ms) || !QueuedBytes(receive(), &queued)) return true;
            std::vector<std::uint8_t> piece(queued);
            if (queued > 0) {
                const TransferOutcome outcome = ReadPort(receive(), piece.data(), queued);
                EXPECT_EQ(outcome.step, TransferStep::kDone);
                EXPECT_EQ(outcome.bytes, queued);
            }
            bytes.insert(bytes.end(), piece.begin(), piece.end());
            return bytes.size() >= size;
        }));
        return bytes;
    }

private:
    struct Closer {
        void operator()(PortHandle* port) const { ClosePort(port); }
        void operator()(PortTransfer* transfer) const { CloseTransfer(transfer); }
    };
    std::unique_ptr<PortHandle, Closer> port_;
    std::unique_ptr<PortTransfer, Closer> receive_;
    std::unique_ptr<PortTransfer, Closer> transmit_;
};

}  // namespace tarvik::test

#pragma once

// Messages of D-Bus as bytes, in little-endian form. Not written with the library's bus library, so
// that messages may be wrong.

#include <cstdint>
#include <string>
#include <vector>

namespace tarvik::test {

using Bytes = std::vector<std::uint8_t>;

class Marshal {
public:
    const Bytes& bytes() const { return bytes_; }

    void Align(std::size_t to) {
        while (bytes_.size() % to != 0)
            bytes_.push_back(0);
    }
    void Byte(std::uint8_t value) { bytes_.push_back(value); }
    void U16(std::uint16_t value) { Number(value, 2); }
    void U32(std::uint32_t value) { Number(value, 4); }
    void Text(const std::string& text) {
        U32(static_cast<std::uint32_t>(text.size()));
        Append(text);
    }
    void Signature(const std::string& text) {
        Byte(static_cast<std::uint8_t>(text.size()));
        Append(text);
    }
    // `write` appends the elements, which are aligned to `alignment`.
    template <typename Write>
    void Array(std::size_t alignment, Write write) {
        U32(0);
        const std::size_t length_at = bytes_.size() - 4;
        Align(alignment);
        const std::size_t begin = bytes_.size();
        write();
        const std::size_t length = bytes_.size() - begin;
        for (std::size_t i = 0; i < 4; ++i)
            bytes_[length_at + i] = static_cast<std::uint8_t>(length >> 8 * i);
    }

private:
    void Number(std::uint32_t value, std::size_t size) {
        Align(size);
        for (std::size_t i = 0; i < size; ++i)
            bytes_.push_back(static_cast<std::uint8_t>(value >> 8 * i));
    }
    void Append(const std::string& text) {
        bytes_.insert(bytes_.end(), text.begin(), text.end());
        bytes_.push_back(0);
    }

    Bytes bytes_;
};

enum class MessageType : std::uint8_t { kCall = 1, kReturn = 2, kError = 3, kSignal = 4 };

// Empty texts and a reply serial of 0 are left out of the header.
struct Message {
    MessageType type = MessageType::kSignal;
    std::string path, interface, member, error, sender, signature;
    std::uint32_t reply_serial = 0;
    Bytes body;
};

inline Bytes BytesOf(const Message& message, std::uint32_t serial) {
    struct TextField {
        std::uint8_t code;
        char type;
        const std::string& text;
    };
    const TextField texts[] = {{1, 'o', message.path},   {2, 's', message.interface},
                               {3, 's', message.member}, {4, 's', message.error},
                               {7, 's', message.sender}, {8, 'g', message.signature}};
    Marshal out;
    out.Byte('l');
    out.Byte(static_cast<std::uint8_t>(message.type));
    out.Byte(1);  // no reply expected
    out.Byte(1);  // version
    out.U32(static_cast<std::uint32_t>(message.body.size()));
    out.U32(serial);
    out.Array(8, [&] {
        for (const TextField& field : texts) {
            if (field.text.empty()) continue;
            out.Align(8);
            out.Byte(field.code);
            out.Signature(std::string(1, field.type));
            if (field.type == 'g') {
                out.Signature(field.text);
            } else {
                out.Text(field.text);
            }
        }
        if (message.reply_serial == 0) return;
        out.Align(8);
        out.Byte(5);
        out.Signature("u");
        out.U32(message.reply_serial);
    });
    out.Align(8);
    Bytes bytes = out.bytes();
    bytes.insert(bytes.end(), message.body.begin(), message.body.end());
    return bytes;
}

}  // namespace tarvik::test

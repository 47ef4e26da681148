#pragma once

// What BlueZ says when all is well: it knows the dongle, which connects at once.

#include <string>

#include "unit/ble/message_bus.h"

namespace tarvik::test {

inline constexpr char kAdapterPath[] = "/org/bluez/hci0";
inline constexpr char kDevicePath[] = "/org/bluez/hci0/dev_02_42_52_4E_58_01";
inline constexpr char kServicePath[] = "/org/bluez/hci0/dev_02_42_52_4E_58_01/service0001";
inline constexpr char kCharacteristicPath[] =
    "/org/bluez/hci0/dev_02_42_52_4E_58_01/service0001/char0002";
inline constexpr char kServiceText[] = "59462f12-9543-9999-12c8-58b459a271ff";
inline constexpr char kCharacteristicText[] = "34a242a7-5bc9-45d3-92e4-af6f9138ff00";

inline constexpr char kTreeSignature[] = "a{oa{sa{sv}}}";
inline constexpr char kAddedSignature[] = "oa{sa{sv}}";
inline constexpr char kRemovedSignature[] = "oas";
inline constexpr char kChangedSignature[] = "sa{sv}as";
inline constexpr char kMapSignature[] = "a{sv}";
inline constexpr char kOwnerSignature[] = "sss";

// ---- entries of dictionaries

inline void PutKey(Marshal* out, const std::string& key) {
    out->Align(8);
    out->Text(key);
}
inline void PutText(Marshal* out, const char* name, const std::string& text, char type = 's') {
    PutKey(out, name);
    out->Signature(std::string(1, type));
    out->Text(text);
}
inline void PutBool(Marshal* out, const char* name, bool value) {
    PutKey(out, name);
    out->Signature("b");
    out->U32(value ? 1 : 0);
}
inline void PutInt16(Marshal* out, const char* name, int value) {
    PutKey(out, name);
    out->Signature("n");
    out->U16(static_cast<std::uint16_t>(value));
}
inline void PutUint16(Marshal* out, const char* name, std::uint16_t value) {
    PutKey(out, name);
    out->Signature("q");
    out->U16(value);
}
inline void PutBytes(Marshal* out, const char* name, const std::string& bytes) {
    PutKey(out, name);
    out->Signature("ay");
    out->Array(1, [&] {
        for (const char byte : bytes)
            out->Byte(static_cast<std::uint8_t>(byte));
    });
}
// `write` puts the properties.
template <typename Write>
void PutInterface(Marshal* out, const std::string& name, Write write) {
    PutKey(out, name);
    out->Array(8, write);
}
template <typename Write>
void PutObject(Marshal* out, const std::string& path, const std::string& interface, Write write) {
    PutKey(out, path);
    out->Array(8, [&] { PutInterface(out, interface, write); });
}

// ---- bodies

inline void PutAdapter(Marshal* out) {
    PutObject(out, kAdapterPath, "org.bluez.Adapter1", [&] { PutBool(out, "Powered", true); });
}
inline void PutDongle(Marshal* out) {
    PutObject(out, kDevicePath, "org.bluez.Device1", [&] {
        PutText(out, "Address", "02:42:52:4E:58:01");
        PutText(out, "Name", "Brennix");
    });
}
inline void PutService(Marshal* out) {
    PutObject(out, kServicePath, "org.bluez.GattService1",
              [&] { PutText(out, "UUID", kServiceText); });
}
inline void PutCharacteristic(Marshal* out) {
    PutObject(out, kCharacteristicPath, "org.bluez.GattCharacteristic1", [&] {
        PutText(out, "UUID", kCharacteristicText);
        PutText(out, "Service", kServicePath, 'o');
    });
}
// `others` puts objects that come before those of the dongle.
template <typename Others>
Bytes Objects(Others others) {
    Marshal out;
    out.Array(8, [&] {
        others(&out);
        PutAdapter(&out);
        PutDongle(&out);
        PutService(&out);
        PutCharacteristic(&out);
    });
    return out.bytes();
}
inline Bytes ConnectedState() {
    Marshal out;
    out.Array(8, [&] {
        PutBool(&out, "Connected", true);
        PutBool(&out, "ServicesResolved", true);
    });
    return out.bytes();
}

// ---- messages

inline Message ReplyTo(const BusCall& call) {
    Message reply{};
    reply.type = MessageType::kReturn;
    reply.sender = "org.bluez";
    reply.reply_serial = call.serial;
    if (call.member == "GetManagedObjects") {
        reply.signature = kTreeSignature;
        reply.body = Objects([](Marshal*) {});
    } else if (call.member == "GetAll") {
        reply.signature = kMapSignature;
        reply.body = ConnectedState();
    }
    return reply;
}
inline Message ErrorReplyTo(const BusCall& call, const std::string& error,
                            const std::string& text) {
    Message reply = ReplyTo(call);
    Marshal body;
    body.Text(text);
    reply.type = MessageType::kError;
    reply.error = error;
    reply.signature = "s";
    reply.body = body.bytes();
    return reply;
}
inline Message Signal(const std::string& path, const std::string& interface,
                      const std::string& member, const std::string& signature,
                      const Marshal& body) {
    Message signal{};
    signal.sender = "org.bluez";
    signal.path = path;
    signal.interface = interface;
    signal.member = member;
    signal.signature = signature;
    signal.body = body.bytes();
    return signal;
}
// `put` gets where to put the properties.
template <typename Put>
Message PropertiesChanged(const std::string& path, const std::string& interface, Put put) {
    Marshal body;
    body.Text(interface);
    body.Array(8, [&] { put(&body); });
    body.Array(4, [] {});  // none invalidated
    return Signal(path, "org.freedesktop.DBus.Properties", "PropertiesChanged", kChangedSignature,
                  body);
}
inline Message InterfacesRemoved(const std::string& path, const std::string& interface) {
    Marshal body;
    body.Text(path);
    body.Array(4, [&] { body.Text(interface); });
    return Signal("/", "org.freedesktop.DBus.ObjectManager", "InterfacesRemoved", kRemovedSignature,
                  body);
}
// Of the name org.bluez. An empty owner: none.
inline Message OwnerChanged(const std::string& from, const std::string& to) {
    Marshal body;
    for (const std::string& text : {std::string("org.bluez"), from, to})
        body.Text(text);
    Message signal = Signal("/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged",
                            kOwnerSignature, body);
    signal.sender = "org.freedesktop.DBus";
    return signal;
}

}  // namespace tarvik::test

#pragma once

namespace tarvik {

// The values of the bus's library (sdbus::Variant) use a connection that the library keeps in a
// static object. exit() destroys it while the threads of a process that has not called PDUDestruct
// go on. So values live within a BusValues only.
class BusValues {
public:
    // For each connection to the bus, before its first value. Throws if memory is out or the
    // process is ending.
    static void Prepare();

    // Throws an sdbus::Error of this name if the process is ending.
    static constexpr char kEnding[] = "org.freedesktop.DBus.Error.Disconnected";
    BusValues();
    ~BusValues();
    BusValues(const BusValues&) = delete;
    BusValues& operator=(const BusValues&) = delete;
};

}  // namespace tarvik

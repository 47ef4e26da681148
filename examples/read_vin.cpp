#include <cstdio>
#include <dpdu.hpp>

int main(int count, char** arguments) {
    const pdu::Library library =
        pdu::Library::At(count > 1 ? arguments[1] : "libtarvik_dpdu_x64.so.0");
    const pdu::Module module = library.Connect();
    pdu::Link engine = module.Open({0x7E0, 0x7E8});
    const pdu::Response vin = engine.Request({0x22, 0xF1, 0x90});
    return std::printf("VIN %s\n", vin.Positive().From(3).Text().c_str()) < 0;
}

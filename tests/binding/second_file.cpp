#include <dpdu.hpp>

std::string ReadVin(const pdu::Library& library);

std::string ReadVin(const pdu::Library& library) {
    const pdu::Module module = library.Connect();
    pdu::Link link = module.Open({0x7E0, 0x7E8});
    return link.Request({0x22, 0xF1, 0x90}).From(3).Text();
}

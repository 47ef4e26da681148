#pragma once

// The control units of the demonstration vehicle at the simulated dongle.

#include <vector>

#include "conformance/framework/link.h"
#include "conformance/framework/params.h"
#include "dpdu_types.h"

namespace conformance {

inline constexpr UNUM32 kEngineRequest = 0x7E0;
inline constexpr UNUM32 kEngineResponse = 0x7E8;
inline constexpr UNUM32 kGearboxRequest = 0x7E1;
inline constexpr UNUM32 kGearboxResponse = 0x7E9;
inline constexpr UNUM32 kAbsRequest = 0x713;
inline constexpr UNUM32 kAbsResponse = 0x77D;
inline constexpr UNUM32 kFunctionalRequest = 0x7DF;

inline std::vector<UNUM8> ReadVin() { return {0x22, 0xF1, 0x90}; }
inline std::vector<UNUM8> ReadPartNumber() { return {0x22, 0xF1, 0x87}; }

// Positive answers to ReadDataByIdentifier.
inline std::vector<Expected> PositiveRead() {
    return {{.type = 0, .acceptance_id = 7, .mask = {0xFF}, .pattern = {0x62}}};
}

// A connected link to the engine control unit.
class EngineLink : public Link {
public:
    explicit EngineLink(UNUM32 module, void* tag = nullptr) : Link(module, tag) {
        Address(kEngineRequest, kEngineResponse);
        SetNumber("CP_P2Max", 1'000'000);
        Connect();
        DropEvents();
    }
};

// A connected link that addresses all three control units at once.
class CarLink : public Link {
public:
    explicit CarLink(UNUM32 module) : Link(module) {
        UniqueTable table;
        table.ControlUnit(101, kEngineRequest, kEngineResponse)
            .ControlUnit(102, kGearboxRequest, kGearboxResponse)
            .ControlUnit(103, kAbsRequest, kAbsResponse);
        Pdu().PDUSetUniqueRespIdTable(hMod(), hCLL(), table.Item());
        SetNumber("CP_CanFuncReqId", kFunctionalRequest);
        SetNumber("CP_P2Max", 1'000'000);
        Connect();
        DropEvents();
    }
};

}  // namespace conformance

#pragma once

// The vehicle with 64 control units at these tests' dongle, and links that address many of them.

#include <algorithm>
#include <string>
#include <vector>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/vehicle.h"

namespace conformance {

inline constexpr UNUM32 kUnits = 64;

constexpr UNUM32 RequestOf(UNUM32 unit) { return 0x600 + unit; }
constexpr UNUM32 ResponseOf(UNUM32 unit) { return 0x680 + unit; }

// The answer of one control unit to ReadPartNumber().
inline std::vector<UNUM8> PartNumberOf(UNUM32 unit) {
    const std::string answer = "\x62\xF1\x87TV-" + std::to_string(unit);
    return {answer.begin(), answer.end()};
}

inline std::vector<UNUM32> FirstUnits(UNUM32 count) {
    std::vector<UNUM32> units;
    for (UNUM32 unit = 0; unit < count; ++unit)
        units.push_back(unit);
    return units;
}

// A connected link whose table has one row for each of these control units, in this order.
class UnitsLink : public Link {
public:
    UnitsLink(UNUM32 module, const std::vector<UNUM32>& units) : Link(module) {
        SetUnits(units);
        SetNumber("CP_CanFuncReqId", kFunctionalRequest);
        SetNumber("CP_P2Max", 4'000'000);
        Connect();
        DropEvents();
    }
    UnitsLink(UNUM32 module, UNUM32 count) : UnitsLink(module, FirstUnits(count)) {}

    void SetUnits(const std::vector<UNUM32>& units) {
        UniqueTable table;
        // The application chooses the identifiers, independently of the rows.
        for (const UNUM32 unit : units)
            table.ControlUnit(1000 + unit, RequestOf(unit), ResponseOf(unit));
        EXPECT_EQ(Pdu().PDUSetUniqueRespIdTable(hMod(), hCLL(), table.Item()), PDU_STATUS_NOERROR);
    }

    UNUM32 StartReading() { return Start(PDU_COPT_SENDRECV, ReadPartNumber(), control_.Data()); }
    Outcome ReadPartNumbers() { return WaitFor(StartReading()); }

private:
    ControlData control_{PositiveRead()};
};

// Exactly these control units have answered, each in its row.
struct RowAnswer {
    UNUM32 row;
    UNUM32 unit;
};
inline void ExpectAnswers(const Outcome& outcome, const std::vector<RowAnswer>& expected) {
    EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
    EXPECT_TRUE(outcome.errors.empty());
    ASSERT_EQ(outcome.results.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(outcome.results[i].unique_id, expected[i].row);
        EXPECT_EQ(outcome.results[i].acceptance_id, 7u);
        EXPECT_EQ(Hex(outcome.results[i].data), Hex(PartNumberOf(expected[i].unit)))
            << "row " << expected[i].row;
    }
}

// Rows 0 to count - 1 with the control units of the same numbers, except the missing ones.
inline std::vector<RowAnswer> AllBut(UNUM32 count, const std::vector<UNUM32>& missing = {}) {
    std::vector<RowAnswer> answers;
    for (const UNUM32 unit : FirstUnits(count)) {
        if (std::find(missing.begin(), missing.end(), unit) == missing.end()) {
            answers.push_back({unit, unit});
        }
    }
    return answers;
}

// The payload of a CRES in multi form; the simulator's `packet` command adds the header.
class HandMadeAnswer {
public:
    HandMadeAnswer& Entry(UNUM32 id, const std::vector<UNUM8>& data) {
        AppendU32(id, &entries_);
        AppendU32(static_cast<UNUM32>(data.size()), &entries_);
        entries_.insert(entries_.end(), data.begin(), data.end());
        entries_.resize((entries_.size() + 7) / 8 * 8);
        ++count_;
        return *this;
    }
    std::string Command(UNUM32 request_id) const {
        std::vector<UNUM8> payload;
        AppendU32(0xFFFFFFFD, &payload);
        AppendU32(count_, &payload);
        AppendU32(request_id, &payload);
        payload.insert(payload.end(), entries_.begin(), entries_.end());
        return "packet CRES " + Hex(payload);
    }

private:
    static void AppendU32(UNUM32 value, std::vector<UNUM8>* bytes) {
        for (int shift = 0; shift < 32; shift += 8)
            bytes->push_back(static_cast<UNUM8>(value >> shift));
    }

    std::vector<UNUM8> entries_;
    UNUM32 count_ = 0;
};

class FunctionalRequests : public SerialDongle {
protected:
    void Unit(UNUM32 unit, const std::string& behaviour) {
        simulator.Command("unit unit" + std::to_string(unit) + " " + behaviour);
    }
};

}  // namespace conformance

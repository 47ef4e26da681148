#include "comparam/comparams.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "comparam/comparam_row.h"
#include "comparam/comparam_table.h"
#include "dpdu_api.h"
#include "unit/faults/heap_fault.h"
#include "unit/test_support.h"

namespace tarvik::test {
namespace {

using Strings = std::vector<std::string>;

constexpr UNUM32 kChangeSpeedMessage = 3;      // byte field
constexpr UNUM32 kSessionTimingOverride = 28;  // struct type 1, 255 entries
constexpr UNUM32 kExtendedTiming = 72;         // struct type 2, 1 entry
constexpr UNUM32 kCanBaudrateRecord = 128;     // long field

// ---- The constant table -------------------------------------------------------------------------

// "1, 6-7" as ids.
std::set<UNUM32> Ids(const std::string& list) {
    std::set<UNUM32> ids;
    const char* at = list.c_str();
    while (*at != '\0') {
        char* end = nullptr;
        const unsigned long first = std::strtoul(at, &end, 10);
        unsigned long last = first;
        if (*end == '-') last = std::strtoul(end + 1, &end, 10);
        for (unsigned long id = first; id <= last; ++id)
            ids.insert(static_cast<UNUM32>(id));
        at = end + std::strspn(end, ", ");
    }
    return ids;
}

TEST(ComParamTable, Has228RowsWhoseIdsAreTheirPositions) {
    ASSERT_EQ(kComParamTable.size(), 228u);
    for (UNUM32 i = 0; i < kComParamCount; ++i)
        EXPECT_EQ(kComParamTable[i].id, i + 1);
    EXPECT_STREQ(kComParamTable[0].name, "CP_CanTransmissionTime");
    EXPECT_STREQ(kComParamTable[227].name, "CP_ECULayerShortName");
}

TEST(ComParamTable, ClassesAreThoseOfTheIdLists) {
    const std::map<UNUM32, std::string> kIdsOfClass = {
        {PDU_PC_TIMING,
         "1, 6-7, 10-17, 28, 44-46, 49-50, 68-69, 72, 83, 95-98, 106-112, 137-147, 156, 168, "
         "172, "
         "175, 182-187, 191, 193-194, 198, 205-209, 211-212, 222, 226-227"},
        {PDU_PC_INIT,
         "43, 82, 86, 89, 103, 114-115, 117-125, 158, 174, 176, 180, 188-189, 195-196, 215, "
         "223-224"},
        {PDU_PC_COM,
         "2-5, 8-9, 29, 31, 40-42, 47-48, 51-58, 71, 73-77, 80-81, 84-85, 87-88, 90, 92-93, "
         "99-100, 104-105, 113, 116, 148-155, 163-165, 169-171, 173, 177-179, 190, 192, 197, "
         "199-200, 203-204, 210, 213-214, 217-218"},
        {PDU_PC_ERRHDL, "18-27, 30, 102, 166-167"},
        {PDU_PC_BUSTYPE, "126-136, 219-221, 225"},
        {PDU_PC_UNIQUE_ID, "59-67, 70, 78-79, 91, 94, 101, 157, 159-162, 181, 201-202, 228"},
        {PDU_PC_TESTER_PRESENT, "32-39, 216"},
    };
    std::size_t total = 0;
    for (const auto& [param_class, list] : kIdsOfClass) {
        std::set<UNUM32> found;
        for (const ComParamDescription& row : kComParamTable) {
            if (row.param_class == param_class) found.insert(row.id);
        }
        EXPECT_EQ(found, Ids(list)) << "class " << param_class;
        total += found.size();
    }
    EXPECT_EQ(total, 228u);
}

TEST(ComParamTable, AllButFourteenRowsAreUnsigned32BitNumbers) {
    const std::map<std::string, UNUM32> kOtherTypes = {
        {"CP_ChangeSpeedMessage", PDU_PT_BYTEFIELD},
        {"CP_SessionTimingOverride", PDU_PT_STRUCTFIELD},
        {"CP_TesterPresentExpPosResp", PDU_PT_BYTEFIELD},
        {"CP_TesterPresentExpNegResp", PDU_PT_BYTEFIELD},
        {"CP_TesterPresentMessage", PDU_PT_BYTEFIELD},
        {"CP_AccessTimingOverride", PDU_PT_STRUCTFIELD},
        {"CP_ExtendedTiming", PDU_PT_STRUCTFIELD},
        {"CP_J1939Name", PDU_PT_BYTEFIELD},
        {"CP_J1939PreferredAddress", PDU_PT_BYTEFIELD},
        {"CP_J1939TargetName", PDU_PT_BYTEFIELD},
        {"CP_CanBaudrateRecord", PDU_PT_LONGFIELD},
        {"CP_AccessTiming_Ecu", PDU_PT_STRUCTFIELD},
        {"CP_SessionTiming_Ecu", PDU_PT_STRUCTFIELD},
        {"CP_ECULayerShortName", PDU_PT_BYTEFIELD},
    };
    std::size_t others = 0;
    for (const ComParamDescription& row : kComParamTable) {
        const auto other = kOtherTypes.find(row.name);
        const UNUM32 expected = other == kOtherTypes.end() ? PDU_PT_UNUM32 : other->second;
        EXPECT_EQ(row.data_type, expected) << row.name;
        if (row.data_type != PDU_PT_UNUM32) ++others;
    }
    EXPECT_EQ(others, kOtherTypes.size());
}

TEST(ComParamTable, EveryNameIsFoundAndNothingElse) {
    for (const ComParamDescription& row : kComParamTable) {
        EXPECT_EQ(FindComParamId(row.name), row.id) << row.name;
        EXPECT_EQ(FindComParamId(std::string(row.name) + "x"), 0u);
    }
    for (const char* name : {"", "CP_", "cp_P2Max", "CP_P2MAX", "ZZZ", "AAA"}) {
        EXPECT_EQ(FindComParamId(name), 0u) << name;
    }
}

// ---- Helpers ------------------------------------------------------------------------------------

PDU_PARAM_ITEM* Get(UNUM32 id) {
    PDU_PARAM_ITEM* item = nullptr;
    EXPECT_EQ(PDUGetComParam(0, 0, id, &item), PDU_STATUS_NOERROR);
    return item;
}

template <typename T>
T& ValueAt(UNUM32 id) {
    return *static_cast<T*>(Get(id)->pComParamData);
}

T_PDU_ERROR SetData(UNUM32 id, void* data) {
    PDU_PARAM_ITEM item = {PDU_IT_PARAM, id, 0, 0, data};
    return PDUSetComParam(0, 0, &item);
}

template <typename T>
T_PDU_ERROR Set(UNUM32 id, T value) {
    return SetData(id, &value);
}

T_PDU_ERROR SetBytes(UNUM32 id, std::vector<UNUM8> bytes, UNUM32 max_len) {
    return Set(id,
               PDU_PARAM_BYTEFIELD_DATA{max_len, static_cast<UNUM32>(bytes.size()), bytes.data()});
}

// With the library's own item.
T_PDU_ERROR SetAgain(UNUM32 id) { return PDUSetComParam(0, 0, Get(id)); }

std::vector<UNUM8> Bytes(UNUM32 id) {
    const auto& field = ValueAt<PDU_PARAM_BYTEFIELD_DATA>(id);
    return {field.pDataArray, field.pDataArray + field.ParamActLen};
}

// The maximum of a field of any kind, and its buffer.
struct Buffer {
    UNUM32 max;
    void* data;
};

Buffer BufferOf(UNUM32 id) {
    switch (DescribeComParam(id).data_type) {
        case PDU_PT_BYTEFIELD: {
            const auto& field = ValueAt<PDU_PARAM_BYTEFIELD_DATA>(id);
            return {field.ParamMaxLen, field.pDataArray};
        }
        case PDU_PT_LONGFIELD: {
            const auto& field = ValueAt<PDU_PARAM_LONGFIELD_DATA>(id);
            return {field.ParamMaxLen, field.pDataArray};
        }
        default: {
            const auto& field = ValueAt<PDU_PARAM_STRUCTFIELD_DATA>(id);
            return {field.ParamMaxEntries, field.pStructArray};
        }
    }
}

class ComParams : public testing::Test {
protected:
    void SetUp() override {
        before_ = LiveMemory();
        ASSERT_TRUE(AllocParamItems());
    }
    void TearDown() override {
        FreeParamItems();
        EXPECT_TRUE(LiveMemory() == before_);
    }

private:
    MemoryUse before_{};
};

// ---- Preparation --------------------------------------------------------------------------------

TEST_F(ComParams, AllocationLogsEveryRowInTableOrder) {
    const LogCapture log;
    ASSERT_TRUE(AllocParamItems());
    Strings expected;
    for (const ComParamDescription& row : kComParamTable) {
        expected.push_back(std::string("[AllocParamItems] Item: ") + row.name);
    }
    EXPECT_EQ(log.Lines(), expected);
}

TEST_F(ComParams, AllocationLeavesPreparedRowsAlone) {
    Set(kCpP2Max, UNUM32{50000});
    SetBytes(kCpTesterPresentMessage, {0x3E, 0x80}, 2);
    ASSERT_TRUE(AllocParamItems());
    EXPECT_EQ(ReadComParam(kCpP2Max), 50000u);
    EXPECT_EQ(Bytes(kCpTesterPresentMessage), (std::vector<UNUM8>{0x3E, 0x80}));
}

TEST_F(ComParams, PreparationRestoresAnItemThatTheApplicationHasChanged) {
    for (const UNUM32 change : {1u, ~0u}) {
        ComParamItem(kCpP2Max)->ComParamClass += change;
        FreeParamItems();
        ASSERT_TRUE(AllocParamItems());
        EXPECT_EQ(Get(kCpP2Max)->ComParamClass, DescribeComParam(kCpP2Max).param_class);
    }
}

TEST(ComParamPreparation, FailsWithoutMemoryAndSucceedsLater) {
    const MemoryUse before = LiveMemory();
    // Fourteen rows have a buffer; what one round prepared is kept by the next.
    for (const std::uint32_t allowed : {0u, 1u, 5u, 7u}) {
        bool prepared = true;
        {
            const FailingHeap heap(allowed);
            prepared = AllocParamItems();
        }
        EXPECT_FALSE(prepared) << allowed;
    }
    EXPECT_TRUE(AllocParamItems());
    FreeParamItems();
    EXPECT_TRUE(LiveMemory() == before);
}

TEST(ComParamPreparation, OnlyTheFourteenFieldsHaveABuffer) {
    const MemoryUse before = LiveMemory();
    ASSERT_TRUE(AllocParamItems());
    EXPECT_EQ(LiveMemory().blocks, before.blocks + 14);
    FreeParamItems();
}

TEST_F(ComParams, FieldsBeginWithTheRoomOfTheirKind) {
    const std::map<std::string, UNUM32> kRoom = {
        {"CP_SessionTimingOverride", 255}, {"CP_SessionTiming_Ecu", 255},
        {"CP_AccessTimingOverride", 8},    {"CP_AccessTiming_Ecu", 8},
        {"CP_ExtendedTiming", 1},          {"CP_TesterPresentMessage", 12},
        {"CP_CanBaudrateRecord", 12}};
    for (const auto& [name, room] : kRoom)
        EXPECT_EQ(BufferOf(FindComParamId(name)).max, room) << name;
}

TEST_F(ComParams, FieldsAreLoggedByKind) {
    UNUM32 numbers[] = {500000, 250000};
    PDU_PARAM_STRUCT_SESS_TIMING sessions[] = {{3, 0, 50, 1, 244}, {1, 2, 3, 4, 5}};
    const LogCapture log;
    SetBytes(kCpTesterPresentMessage, {0x3E, 0x80}, 2);
    Set(kCanBaudrateRecord, PDU_PARAM_LONGFIELD_DATA{2, 2, numbers});
    Set(kSessionTimingOverride,
        PDU_PARAM_STRUCTFIELD_DATA{PDU_CPST_SESSION_TIMING, 2, 2, sessions});
    const Strings lines = log.Lines();
    const auto logged = [&](const std::string& line) {
        return std::count(lines.begin(), lines.end(), "[PDUSetComParam]" + line) == 1;
    };
    EXPECT_TRUE(logged(" CP_TesterPresentMessage PDU_PT_BYTEFIELD(2) '3E80'"));
    EXPECT_TRUE(logged("   -> CP_CanBaudrateRecord PDU_PT_LONGFIELD"));
    EXPECT_TRUE(logged("     CP_CanBaudrateRecord: 500000"));
    EXPECT_TRUE(logged("     CP_CanBaudrateRecord: 250000"));
    EXPECT_TRUE(logged(" CP_SessionTimingOverride PDU_PT_STRUCTFIELD"));
    EXPECT_TRUE(logged("      CP_SessionTimingOverride 0 50 1 244 3"));
    EXPECT_TRUE(logged("      CP_SessionTimingOverride 2 3 4 5 1"));
}

TEST_F(ComParams, FieldIsSetThoughMemoryForItsLogLineIsOut) {
    T_PDU_ERROR status = PDU_ERR_FCT_FAILED;
    std::vector<UNUM8> bytes = {1, 2, 3};
    const LogCapture log;
    {
        const FailingHeap heap;
        PDU_PARAM_BYTEFIELD_DATA field = {3, 3, bytes.data()};
        status = SetData(kChangeSpeedMessage, &field);
    }
    EXPECT_EQ(status, PDU_STATUS_NOERROR);
    EXPECT_EQ(Bytes(kChangeSpeedMessage), bytes);
    EXPECT_FALSE(log.Mentions("PDU_PT_BYTEFIELD"));
}

TEST_F(ComParams, ItemsHaveTheTypeAndClassOfTheirRow) {
    for (const ComParamDescription& row : kComParamTable) {
        EXPECT_EQ(Get(row.id)->ComParamDataType, row.data_type) << row.name;
        EXPECT_EQ(Get(row.id)->ComParamClass, row.param_class) << row.name;
    }
}

// ---- Fields and their buffers -------------------------------------------------------------------

TEST_F(ComParams, BuffersHaveTheSizeOfTheirMaximum) {
    const std::map<UNUM32, std::size_t> kEntrySizes = {
        {PDU_PT_BYTEFIELD, 1}, {PDU_PT_LONGFIELD, 4}, {PDU_PT_STRUCTFIELD, 6}};
    const auto expect_size = [&](UNUM32 id) {
        const Buffer buffer = BufferOf(id);
        const ComParamDescription& row = DescribeComParam(id);
        EXPECT_EQ(RequestedSize(buffer.data), buffer.max * kEntrySizes.at(row.data_type))
            << row.name;
    };
    for (const ComParamDescription& row : kComParamTable) {
        if (kEntrySizes.count(row.data_type) != 0) expect_size(row.id);
    }
    UNUM32 data = 0;
    PDU_PARAM_BYTEFIELD_DATA bytes = {40, 0, reinterpret_cast<UNUM8*>(&data)};
    PDU_PARAM_LONGFIELD_DATA words = {20, 0, &data};
    PDU_PARAM_STRUCTFIELD_DATA entries = {PDU_CPST_ACCESS_TIMING, 4, 0, &data};
    const struct {
        UNUM32 id;
        void* larger;
        UNUM32 max;
    } kRows[] = {{kChangeSpeedMessage, &bytes, 40},
                 {kCanBaudrateRecord, &words, 20},
                 {kExtendedTiming, &entries, 4}};
    for (const auto& row : kRows) {
        EXPECT_EQ(SetData(row.id, row.larger), PDU_STATUS_NOERROR) << row.id;
        EXPECT_EQ(BufferOf(row.id).max, row.max) << row.id;
        expect_size(row.id);
    }
    ValueAt<PDU_PARAM_BYTEFIELD_DATA>(kChangeSpeedMessage).ParamMaxLen = 64;
    EXPECT_EQ(SetAgain(kChangeSpeedMessage), PDU_STATUS_NOERROR);
    EXPECT_EQ(BufferOf(kChangeSpeedMessage).max, 64u);
    expect_size(kChangeSpeedMessage);
}

TEST_F(ComParams, NullDataPointerKeepsTheEntriesOfAStructField) {
    const Buffer before = BufferOf(kExtendedTiming);
    EXPECT_EQ(
        Set(kExtendedTiming, PDU_PARAM_STRUCTFIELD_DATA{PDU_CPST_ACCESS_TIMING, 500, 7, nullptr}),
        PDU_STATUS_NOERROR);
    EXPECT_EQ(BufferOf(kExtendedTiming).max, before.max);
    EXPECT_EQ(BufferOf(kExtendedTiming).data, before.data);
    EXPECT_EQ(ValueAt<PDU_PARAM_STRUCTFIELD_DATA>(kExtendedTiming).ParamActEntries, 1u);
}

TEST_F(ComParams, LengthEnlargedInPlaceNeverReadsPastTheBuffer) {
    SetBytes(kChangeSpeedMessage, std::vector<UNUM8>(12, 0x11), 12);
    ValueAt<PDU_PARAM_BYTEFIELD_DATA>(kChangeSpeedMessage).ParamActLen = 100;
    EXPECT_EQ(SetAgain(kChangeSpeedMessage), PDU_STATUS_NOERROR);
    std::vector<UNUM8> expected(100);
    std::fill_n(expected.begin(), 12, UNUM8{0x11});
    EXPECT_EQ(Bytes(kChangeSpeedMessage), expected);
}

TEST_F(ComParams, PartOfTheOwnBufferMayBeTheSource) {
    SetBytes(kChangeSpeedMessage, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}, 12);
    auto& field = ValueAt<PDU_PARAM_BYTEFIELD_DATA>(kChangeSpeedMessage);
    field.pDataArray += 8;
    field.ParamActLen = 6;  // two too many
    EXPECT_EQ(SetAgain(kChangeSpeedMessage), PDU_STATUS_NOERROR);
    EXPECT_EQ(Bytes(kChangeSpeedMessage), (std::vector<UNUM8>{8, 9, 10, 11, 4, 5}));
}

TEST_F(ComParams, GrowthKeepsWhatIsNotOverwritten) {
    SetBytes(kChangeSpeedMessage, {1, 2, 3}, 12);
    SetBytes(kChangeSpeedMessage, {9}, BufferOf(kChangeSpeedMessage).max + 1);
    const auto* data = static_cast<const UNUM8*>(BufferOf(kChangeSpeedMessage).data);
    EXPECT_EQ((std::vector<UNUM8>(data, data + 3)), (std::vector<UNUM8>{9, 2, 3}));
}

TEST_F(ComParams, ItemWithoutARowOrAValueIsRefused) {
    UNUM32 number = 1;
    PDU_PARAM_ITEM unknown = {PDU_IT_PARAM, kComParamCount + 1, 0, 0, &number};
    PDU_PARAM_ITEM without_value = {PDU_IT_PARAM, kCpP2Max, 0, 0, nullptr};
    PDU_PARAM_ITEM* const none = nullptr;
    for (const PDU_PARAM_ITEM* item : {none, &unknown, &without_value}) {
        const LogCapture log;
        EXPECT_EQ(SetComParam(item, "Test"), PDU_ERR_INVALID_PARAMETERS);
        EXPECT_EQ(log.Lines(),
                  Strings{"[Test] Invalid ComParam, Returning PDU_ERR_INVALID_PARAMETERS"});
    }
}

TEST_F(ComParams, BufferReplacedInPlaceIsCopiedFromAndTheRowsOwnRestored) {
    auto& field = ValueAt<PDU_PARAM_BYTEFIELD_DATA>(kChangeSpeedMessage);
    UNUM8* const own = field.pDataArray;
    UNUM8 mine[4] = {1, 2, 3, 4};
    field = {4, 4, mine};
    EXPECT_EQ(SetAgain(kChangeSpeedMessage), PDU_STATUS_NOERROR);
    EXPECT_EQ(field.pDataArray, own);
    EXPECT_EQ(field.ParamMaxLen, 12u);
    EXPECT_EQ(Bytes(kChangeSpeedMessage), (std::vector<UNUM8>{1, 2, 3, 4}));
}

TEST_F(ComParams, BufferReplacedInPlaceAndNeverSetIsNotReleased) {
    UNUM8 mine[4] = {1, 2, 3, 4};
    ValueAt<PDU_PARAM_BYTEFIELD_DATA>(kChangeSpeedMessage) = {4, 4, mine};
    FreeParamItems();  // TearDown checks that the own buffer was released
    EXPECT_EQ(mine[3], 4);
}

TEST_F(ComParams, FailedGrowthLeavesTheNewMaximumAndNoBuffer) {
    UNUM8 byte = 0;
    UNUM32 word = 0;
    PDU_PARAM_STRUCT_ACCESS_TIMING entry = {};
    PDU_PARAM_BYTEFIELD_DATA bytes = {500, 1, &byte};
    PDU_PARAM_LONGFIELD_DATA words = {500, 1, &word};
    PDU_PARAM_STRUCTFIELD_DATA entries = {PDU_CPST_ACCESS_TIMING, 500, 1, &entry};
    const struct {
        UNUM32 id;
        void* data;
        const char* line;
    } kRows[] = {
        {kChangeSpeedMessage, &bytes,
         "[PDUSetComParam] BYTEFIELD allocation failed, Returning PDU_ERR_FCT_FAILED"},
        {kCanBaudrateRecord, &words,
         "[PDUSetComParam] LONGFIELD allocation failed, Returning PDU_ERR_FCT_FAILED"},
        {kExtendedTiming, &entries,
         "[PDUSetComParam] STRUCTFIELD allocation failed, Returning PDU_ERR_FCT_FAILED"},
    };
    for (const auto& row : kRows) {
        const LogCapture log;
        T_PDU_ERROR status = PDU_STATUS_NOERROR;
        {
            const FailingHeap heap;
            status = SetData(row.id, row.data);
        }
        EXPECT_EQ(status, PDU_ERR_FCT_FAILED) << row.line;
        EXPECT_TRUE(log.Has(row.line)) << log.Text();
        EXPECT_FALSE(log.Has("[PDUSetComParam] Returning PDU_STATUS_NOERROR")) << row.line;
        EXPECT_EQ(BufferOf(row.id).max, 500u) << row.line;
        EXPECT_EQ(BufferOf(row.id).data, nullptr) << row.line;
    }
}

TEST_F(ComParams, FieldThatLostItsBufferReadsEmptyAndCanBeSetAgain) {
    {
        const FailingHeap heap;
        UNUM8 byte = 0;
        Set(kCpTesterPresentMessage, PDU_PARAM_BYTEFIELD_DATA{500, 0, &byte});
    }
    Set(kCpTesterPresentMessage, PDU_PARAM_BYTEFIELD_DATA{0, 2, nullptr});
    UNUM8 bytes[2] = {0xEE, 0xEE};
    EXPECT_EQ(ReadComParamBytes(kCpTesterPresentMessage, bytes, 2), 0u);
    EXPECT_EQ(SetBytes(kCpTesterPresentMessage, {0x3E, 0x00}, 2), PDU_STATUS_NOERROR);
    EXPECT_EQ(ReadComParamBytes(kCpTesterPresentMessage, bytes, 2), 2u);
    EXPECT_EQ(bytes[0], 0x3E);
    EXPECT_EQ(RequestedSize(BufferOf(kCpTesterPresentMessage).data), 500u);
}

// ---- Before construction ------------------------------------------------------------------------

TEST(UnpreparedComParams, GetAnswersWithAnEmptyValue) {
    PDU_PARAM_ITEM* number = Get(kCpP2Max);
    ASSERT_NE(number, nullptr);
    ASSERT_NE(number->pComParamData, nullptr);
    EXPECT_EQ(*static_cast<UNUM32*>(number->pComParamData), 0u);
    const auto& field = ValueAt<PDU_PARAM_BYTEFIELD_DATA>(kChangeSpeedMessage);
    EXPECT_EQ(field.ParamMaxLen, 0u);
    EXPECT_EQ(field.ParamActLen, 0u);
    EXPECT_EQ(field.pDataArray, nullptr);
}

TEST(UnpreparedComParams, AllocationResetsValuesThatWereSetBefore) {
    const MemoryUse before = LiveMemory();
    EXPECT_EQ(Set(kCpP2Max, UNUM32{1}), PDU_STATUS_NOERROR);
    EXPECT_EQ(SetBytes(kChangeSpeedMessage, {1, 2, 3}, 100), PDU_STATUS_NOERROR);
    UNUM32 word = 1;
    EXPECT_EQ(Set(kCanBaudrateRecord, PDU_PARAM_LONGFIELD_DATA{0, 1, &word}), PDU_STATUS_NOERROR);
    EXPECT_EQ(Bytes(kChangeSpeedMessage), (std::vector<UNUM8>{1, 2, 3}));
    ASSERT_TRUE(AllocParamItems());
    EXPECT_EQ(ReadComParam(kCpP2Max), 0u);
    EXPECT_EQ(Bytes(kChangeSpeedMessage), std::vector<UNUM8>{0});
    FreeParamItems();
    EXPECT_TRUE(LiveMemory() == before);
}

TEST(UnpreparedComParams, StructFieldHasNoKnownTypeYet) {
    const LogCapture log;
    for (const UNUM32 type : {0u, UNUM32{PDU_CPST_SESSION_TIMING}}) {
        EXPECT_EQ(Set(kSessionTimingOverride, PDU_PARAM_STRUCTFIELD_DATA{type, 0, 0, nullptr}),
                  PDU_ERR_FCT_FAILED)
            << type;
    }
    EXPECT_TRUE(
        log.Has("[PDUSetComParam]   CP_SessionTimingOverride - UNKNOWN STRUCT TYPE, Returning "
                "PDU_ERR_FCT_FAILED"));
}

// ---- Reading for the worker ---------------------------------------------------------------------

TEST_F(ComParams, ReadingAFieldOrAnUnknownIdAsANumberGivesZero) {
    SetBytes(kChangeSpeedMessage, {0xFF, 0xFF, 0xFF, 0xFF}, 4);
    EXPECT_EQ(ReadComParam(kChangeSpeedMessage), 0u);
    EXPECT_EQ(ReadComParam(0), 0u);
    EXPECT_EQ(ReadComParam(229), 0u);
}

TEST_F(ComParams, ReadingBytesOfAnythingButAByteFieldGivesZero) {
    UNUM8 byte = 0xEE;
    EXPECT_EQ(ReadComParamBytes(kCpP2Max, &byte, 1), 0u);
    EXPECT_EQ(ReadComParamBytes(kCanBaudrateRecord, &byte, 1), 0u);
    EXPECT_EQ(ReadComParamBytes(0, &byte, 1), 0u);
    EXPECT_EQ(ReadComParamBytes(229, &byte, 1), 0u);
    EXPECT_EQ(byte, 0xEE);
}

TEST_F(ComParams, ReadingBytesReturnsTheFieldsLengthAndCopiesWhatFits) {
    SetBytes(kCpTesterPresentMessage, std::vector<UNUM8>(33, 0x55), 33);
    UNUM8 bytes[33] = {};
    EXPECT_EQ(ReadComParamBytes(kCpTesterPresentMessage, bytes, 32), 33u);
    EXPECT_EQ(bytes[31], 0x55);
    EXPECT_EQ(bytes[32], 0);
    SetBytes(kCpTesterPresentMessage, {}, 0);
    EXPECT_EQ(ReadComParamBytes(kCpTesterPresentMessage, bytes, 32), 0u);
}

TEST_F(ComParams, ReadingBytesBeyondTheBufferGivesZeros) {
    ValueAt<PDU_PARAM_BYTEFIELD_DATA>(kCpTesterPresentMessage).ParamActLen = 20;  // and not set
    UNUM8 bytes[20];
    std::memset(bytes, 0xEE, sizeof bytes);
    EXPECT_EQ(ReadComParamBytes(kCpTesterPresentMessage, bytes, 20), 20u);
    for (const UNUM8 byte : bytes)
        EXPECT_EQ(byte, 0);
}

TEST_F(ComParams, SnapshotOwnsACopyOfTheValue) {
    PDU_PARAM_ITEM copy{};
    Set(kCpP2Max, UNUM32{50000});
    ASSERT_EQ(SnapshotComParam(kCpP2Max, &copy), ParamCopy::kCopied);
    EXPECT_EQ(ReadParamItem(copy), 50000u);
    EXPECT_NE(copy.pComParamData, Get(kCpP2Max)->pComParamData);
    EXPECT_TRUE(FreeParamValue(copy));

    SetBytes(kCpTesterPresentMessage, {0x3E, 0x80}, 40);
    ASSERT_EQ(SnapshotComParam(kCpTesterPresentMessage, &copy), ParamCopy::kCopied);
    const auto& field = *static_cast<PDU_PARAM_BYTEFIELD_DATA*>(copy.pComParamData);
    EXPECT_EQ(field.ParamMaxLen, BufferOf(kCpTesterPresentMessage).max);
    ASSERT_EQ(field.ParamActLen, 2u);
    EXPECT_NE(field.pDataArray, BufferOf(kCpTesterPresentMessage).data);
    EXPECT_EQ(field.pDataArray[1], 0x80);
    EXPECT_TRUE(FreeParamValue(copy));
}

TEST_F(ComParams, SnapshotHasTheFieldsMaximumThoughItHoldsMore) {
    const UNUM32 max = BufferOf(kCpTesterPresentMessage).max;
    SetBytes(kCpTesterPresentMessage, std::vector<UNUM8>(max + 5, 1), 0);
    PDU_PARAM_ITEM copy{};
    ASSERT_EQ(SnapshotComParam(kCpTesterPresentMessage, &copy), ParamCopy::kCopied);
    const auto& field = *static_cast<PDU_PARAM_BYTEFIELD_DATA*>(copy.pComParamData);
    EXPECT_EQ(field.ParamMaxLen, max);
    EXPECT_EQ(field.ParamActLen, max + 5);
    EXPECT_TRUE(FreeParamValue(copy));
}

TEST_F(ComParams, SnapshotOfALongOrStructFieldHasNoValue) {
    for (const UNUM32 id : {kCanBaudrateRecord, kExtendedTiming}) {
        PDU_PARAM_ITEM copy{};
        EXPECT_EQ(SnapshotComParam(id, &copy), ParamCopy::kNotCopyable);
        EXPECT_EQ(copy.ComParamId, id);
        EXPECT_EQ(copy.pComParamData, nullptr);
    }
}

TEST_F(ComParams, WorkersReadWhileTheApplicationSets) {
    std::atomic<bool> stop{false};
    std::atomic<int> rounds{0};
    std::atomic<bool> torn{false};
    Thread reader([&] {
        while (!stop.load()) {
            const UNUM32 value = ReadComParam(kCpP2Max);
            if ((value & 0xFFFFu) != value >> 16) torn = true;
            UNUM8 bytes[64];
            const UNUM32 length = ReadComParamBytes(kCpTesterPresentMessage, bytes, sizeof bytes);
            for (UNUM32 i = 1; i < length && i < sizeof bytes; ++i) {
                if (bytes[i] != bytes[0]) torn = true;
            }
            PDU_PARAM_ITEM copy;
            if (SnapshotComParam(kCpTesterPresentMessage, &copy) == ParamCopy::kCopied) {
                FreeParamValue(copy);
            }
            rounds.fetch_add(1);
        }
    });
    for (UNUM32 i = 1; i <= 300; ++i) {
        Set(kCpP2Max, i << 16 | i);
        SetBytes(kCpTesterPresentMessage, std::vector<UNUM8>(1 + i % 40, static_cast<UNUM8>(i)), i);
    }
    EXPECT_TRUE(Eventually([&] { return rounds.load() > 0; }));
    stop = true;
    reader.Join();
    EXPECT_FALSE(torn.load());
}

// The window is small: it is ThreadSanitizer that sees an access outside the lock.
TEST_F(ComParams, LengthEnlargedInPlaceWhileItIsSetIsIgnored) {
    ParamValue value{};
    ComParamRow row = MakeRow(&DescribeComParam(kCpTesterPresentMessage), &value);
    ASSERT_TRUE(PrepareRow(row));
    UNUM8 bytes[] = {0x3E, 0x80};
    std::atomic<bool> stop{false};
    std::atomic<int> rounds{0};
    Thread editor([&] {
        while (!stop.load()) {
            std::atomic_ref<UNUM32>(value.bytes.ParamActLen).store(64 + 12);
            rounds.fetch_add(1);
        }
    });
    EXPECT_TRUE(Eventually([&] { return rounds.load() > 0; }));
    std::uint32_t longest = 0;
    for (int i = 0; i < 2'000; ++i) {
        RowSnapshot snapshot;
        const PDU_PARAM_BYTEFIELD_DATA two = {2, 2, bytes};
        EXPECT_EQ(SetRow(row, &two, "Test", &snapshot), PDU_STATUS_NOERROR);
        longest = std::max(longest, snapshot.count);
    }
    stop = true;
    editor.Join();
    EXPECT_EQ(longest, 2u);
    ReleaseRow(row);
}

// ---- Rows of types that the table does not have today -------------------------------------------

class AnyRow {
public:
    AnyRow(UNUM32 data_type, UNUM32 id = 1)
        : description_{"CP_Any", id, data_type, PDU_PC_COM, ComParamLayer::kTransport, "any"},
          row_(MakeRow(&description_, &value_)) {
        EXPECT_TRUE(PrepareRow(row_));
    }
    ~AnyRow() { ReleaseRow(row_); }
    AnyRow(const AnyRow&) = delete;
    AnyRow& operator=(const AnyRow&) = delete;

    template <typename T>
    T_PDU_ERROR Set(T value) {
        RowSnapshot snapshot;
        const T_PDU_ERROR status = SetRow(row_, &value, "Test", &snapshot);
        if (status == PDU_STATUS_NOERROR) LogRowValue(row_, snapshot, "Test");
        return status;
    }
    UNUM32 Read() const { return ReadRowNumber(row_); }

private:
    ComParamDescription description_;
    ParamValue value_{};
    ComParamRow row_;
};

TEST(ComParamRow, UnsignedNumbersAreReadInTheirWidth) {
    const LogCapture log;
    AnyRow byte(PDU_PT_UNUM8);
    AnyRow word(PDU_PT_UNUM16);
    EXPECT_EQ(byte.Set(UNUM8{200}), PDU_STATUS_NOERROR);
    EXPECT_EQ(word.Set(UNUM16{60000}), PDU_STATUS_NOERROR);
    EXPECT_EQ(byte.Read(), 200u);
    EXPECT_EQ(word.Read(), 60000u);
    EXPECT_EQ(log.Lines(), (Strings{"[Test] CP_Any = 200", "[Test] CP_Any = 60000"}));
}

TEST(ComParamRow, SignedNumbersAreLoggedWithTheirSignAndReadAsZero) {
    const LogCapture log;
    AnyRow byte(PDU_PT_SNUM8);
    AnyRow word(PDU_PT_SNUM16);
    AnyRow number(PDU_PT_SNUM32);
    EXPECT_EQ(byte.Set(SNUM8{-2}), PDU_STATUS_NOERROR);
    EXPECT_EQ(word.Set(SNUM16{-300}), PDU_STATUS_NOERROR);
    EXPECT_EQ(number.Set(SNUM32{-70000}), PDU_STATUS_NOERROR);
    EXPECT_EQ(byte.Read(), 0u);
    EXPECT_EQ(word.Read(), 0u);
    EXPECT_EQ(number.Read(), 0u);
    EXPECT_EQ(log.Lines(),
              (Strings{"[Test] CP_Any = -2", "[Test] CP_Any = -300", "[Test] CP_Any = -70000"}));
}

TEST(ComParamRow, IsSetWithoutASnapshot) {
    constexpr ComParamDescription kNumber = {
        "CP_Any", 1, PDU_PT_UNUM32, PDU_PC_COM, ComParamLayer::kTransport, "any"};
    ParamValue value{};
    ComParamRow row = MakeRow(&kNumber, &value);
    const UNUM32 number = 77;
    EXPECT_EQ(SetRow(row, &number, "Test", nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(ReadRowNumber(row), 77u);
}

TEST(ComParamRow, UnknownDataTypeCannotBeSet) {
    for (const UNUM32 type : {0x100u, 0x10Au}) {
        const LogCapture log;
        AnyRow row(type);
        EXPECT_EQ(row.Set(UNUM32{1}), PDU_ERR_FCT_FAILED);
        EXPECT_EQ(log.Lines(), Strings{"[Test]   -> UNKNOWN DATA TYPE"});
    }
}

// ---- Values as text -----------------------------------------------------------------------------

std::string Text(T_PDU_PT type, void* data) {
    const PDU_PARAM_ITEM item = {PDU_IT_PARAM, 1, type, PDU_PC_COM, data};
    const Tracked<char> text(FormatParamValue(item));
    return text == nullptr ? "(no memory)" : text.get();
}

template <typename T>
std::string NumberText(T_PDU_PT type, T value) {
    return Text(type, &value);
}

TEST(ParamText, NumbersAreShownInDecimalAndInHexOfTheirWidth) {
    EXPECT_EQ(NumberText<UNUM8>(PDU_PT_UNUM8, 5), "5 (0x05)");
    EXPECT_EQ(NumberText<UNUM8>(PDU_PT_UNUM8, 255), "255 (0xFF)");
    EXPECT_EQ(NumberText<SNUM8>(PDU_PT_SNUM8, -1), "-1 (0xFF)");
    EXPECT_EQ(NumberText<UNUM16>(PDU_PT_UNUM16, 0x7E0), "2016 (0x07E0)");
    EXPECT_EQ(NumberText<SNUM16>(PDU_PT_SNUM16, -2), "-2 (0xFFFE)");
    EXPECT_EQ(NumberText<UNUM32>(PDU_PT_UNUM32, 0x7E0), "2016 (0x000007E0)");
    EXPECT_EQ(NumberText<SNUM32>(PDU_PT_SNUM32, -3), "-3 (0xFFFFFFFD)");
}

TEST(ParamText, ByteFieldIsShownAsBytesWithABlankEach) {
    UNUM8 bytes[] = {0x3E, 0x80, 0x0A};
    PDU_PARAM_BYTEFIELD_DATA field = {3, 2, bytes};
    EXPECT_EQ(Text(PDU_PT_BYTEFIELD, &field), "(BYTEFIELD) 3E 80 ");
    field.ParamActLen = 0;
    EXPECT_EQ(Text(PDU_PT_BYTEFIELD, &field), "(BYTEFIELD) ");

    std::vector<UNUM8> many(1000, 0xAB);
    field = {1000, 1000, many.data()};
    std::string expected = "(BYTEFIELD) ";
    for (int i = 0; i < 1000; ++i)
        expected += "AB ";
    EXPECT_EQ(Text(PDU_PT_BYTEFIELD, &field), expected);
}

TEST(ParamText, LongFieldIsShownAsWordsWithABlankEach) {
    std::vector<UNUM32> words(1000, 4294967295u);
    PDU_PARAM_LONGFIELD_DATA field = {1000, 1000, words.data()};
    std::string expected = "(LONGFIELD) ";
    for (int i = 0; i < 1000; ++i)
        expected += "4294967295 ";
    EXPECT_EQ(Text(PDU_PT_LONGFIELD, &field), expected);
}

TEST(ParamText, StructFieldsAreShownAsGroups) {
    PDU_PARAM_STRUCT_SESS_TIMING sessions[] = {{65535, 255, 255, 255, 255}, {5, 1, 2, 3, 4}};
    PDU_PARAM_STRUCTFIELD_DATA field = {PDU_CPST_SESSION_TIMING, 2, 2, sessions};
    EXPECT_EQ(Text(PDU_PT_STRUCTFIELD, &field),
              "(STRUCTFIELD) { 255 255 255 255 65535 } { 1 2 3 4 5 } ");
    PDU_PARAM_STRUCT_ACCESS_TIMING access[] = {{1, 2, 3, 4, 5, 6}};
    field = {PDU_CPST_ACCESS_TIMING, 1, 1, access};
    EXPECT_EQ(Text(PDU_PT_STRUCTFIELD, &field), "(STRUCTFIELD) { 2 1 4 3 5 6 } ");
}

TEST(ParamText, UnknownStructTypeIsShownOnce) {
    PDU_PARAM_STRUCTFIELD_DATA field = {3, 5, 5, nullptr};
    EXPECT_EQ(Text(PDU_PT_STRUCTFIELD, &field), "(STRUCTFIELD) UNKNOWN STRUCT TYPE");
}

TEST(ParamText, UnknownTypesAreShownAsUnknown) {
    UNUM32 value = 1;
    EXPECT_EQ(Text(0x100, &value), "(unknown) ");
    EXPECT_EQ(Text(0x10A, &value), "(unknown) ");
}

TEST(ParamText, MissingValuesAreShownAsEmpty) {
    EXPECT_EQ(Text(PDU_PT_UNUM32, nullptr), "(unknown) ");
    EXPECT_EQ(Text(PDU_PT_BYTEFIELD, nullptr), "(BYTEFIELD) ");
    EXPECT_EQ(Text(PDU_PT_LONGFIELD, nullptr), "(LONGFIELD) ");
    EXPECT_EQ(Text(PDU_PT_STRUCTFIELD, nullptr), "(STRUCTFIELD) ");
    PDU_PARAM_BYTEFIELD_DATA bytes = {4, 4, nullptr};
    EXPECT_EQ(Text(PDU_PT_BYTEFIELD, &bytes), "(BYTEFIELD) ");
    PDU_PARAM_LONGFIELD_DATA words = {4, 4, nullptr};
    EXPECT_EQ(Text(PDU_PT_LONGFIELD, &words), "(LONGFIELD) ");
    PDU_PARAM_STRUCTFIELD_DATA structs = {PDU_CPST_ACCESS_TIMING, 4, 4, nullptr};
    EXPECT_EQ(Text(PDU_PT_STRUCTFIELD, &structs), "(STRUCTFIELD) ");
}

TEST(ParamText, NoTextIsMadeWithoutMemory) {
    UNUM32 value = 1;
    UNUM8 byte = 1;
    PDU_PARAM_BYTEFIELD_DATA field = {1, 1, &byte};
    const PDU_PARAM_ITEM number = {PDU_IT_PARAM, 1, PDU_PT_UNUM32, PDU_PC_COM, &value};
    const PDU_PARAM_ITEM bytes = {PDU_IT_PARAM, 1, PDU_PT_BYTEFIELD, PDU_PC_COM, &field};
    PDU_PARAM_LONGFIELD_DATA long_field = {1, 1, &value};
    const PDU_PARAM_ITEM words = {PDU_IT_PARAM, 1, PDU_PT_LONGFIELD, PDU_PC_COM, &long_field};
    PDU_PARAM_STRUCT_ACCESS_TIMING entry{};
    PDU_PARAM_STRUCTFIELD_DATA struct_field = {PDU_CPST_ACCESS_TIMING, 1, 1, &entry};
    const PDU_PARAM_ITEM structs = {PDU_IT_PARAM, 1, PDU_PT_STRUCTFIELD, PDU_PC_COM, &struct_field};
    const PDU_PARAM_ITEM* const items[] = {&number, &bytes, &words, &structs};
    const char* texts[] = {"", "", "", ""};
    {
        const FailingHeap heap;
        for (std::size_t i = 0; i < std::size(items); ++i)
            texts[i] = FormatParamValue(*items[i]);
    }
    for (const char* text : texts)
        EXPECT_EQ(text, nullptr);
}

TEST(ParamText, TakesNoMoreRoomThanItNeedsForANumber) {
    UNUM8 value = 5;
    const Tracked<char> text(FormatParamValue({PDU_IT_PARAM, 1, PDU_PT_UNUM8, PDU_PC_COM, &value}));
    EXPECT_EQ(RequestedSize(text.get()), sizeof "5 (0x05)");
}

TEST(ParamText, EntryOfAnUnknownStructTypeIsEmpty) {
    char text[kStructEntryTextSize] = "before";
    UNUM8 entry[kStructEntrySize] = {1, 2, 3, 4, 5, 6};
    EXPECT_FALSE(FormatStructEntry(3, entry, text));
    EXPECT_STREQ(text, "");
    EXPECT_TRUE(FormatStructEntry(PDU_CPST_ACCESS_TIMING, entry, text));
    EXPECT_STREQ(text, "2 1 4 3 5 6");
    EXPECT_TRUE(FormatStructEntry(PDU_CPST_SESSION_TIMING, entry, text));
    EXPECT_STREQ(text, "3 4 5 6 513");
}

// ---- Copies -------------------------------------------------------------------------------------

TEST(ParamCopies, NumbersAndByteFieldsHaveTheirOwnBlocks) {
    UNUM16 number = 0x7E0;
    UNUM8 bytes[] = {1, 2, 3};
    PDU_PARAM_BYTEFIELD_DATA field = {3, 2, bytes};
    const MemoryUse before = LiveMemory();
    PDU_PARAM_ITEM copy{};
    ASSERT_EQ(CopyParamItem({PDU_IT_PARAM, 5, PDU_PT_UNUM16, PDU_PC_COM, &number}, &copy),
              ParamCopy::kCopied);
    EXPECT_EQ(copy.ComParamId, 5u);
    EXPECT_NE(copy.pComParamData, &number);
    EXPECT_EQ(ReadParamItem(copy), 0x7E0u);
    EXPECT_TRUE(FreeParamValue(copy));
    ASSERT_EQ(CopyParamItem({PDU_IT_PARAM, 5, PDU_PT_BYTEFIELD, PDU_PC_COM, &field}, &copy),
              ParamCopy::kCopied);
    EXPECT_EQ(Text(PDU_PT_BYTEFIELD, copy.pComParamData), "(BYTEFIELD) 01 02 ");
    EXPECT_TRUE(FreeParamValue(copy));
    EXPECT_TRUE(LiveMemory() == before);
}

TEST(ParamCopies, ByteFieldMayHaveOneByte) {
    UNUM8 byte = 7;
    PDU_PARAM_BYTEFIELD_DATA field = {1, 1, &byte};
    PDU_PARAM_ITEM copy{};
    ASSERT_EQ(CopyParamItem({PDU_IT_PARAM, 5, PDU_PT_BYTEFIELD, PDU_PC_COM, &field}, &copy),
              ParamCopy::kCopied);
    EXPECT_EQ(Text(PDU_PT_BYTEFIELD, copy.pComParamData), "(BYTEFIELD) 07 ");
    EXPECT_TRUE(FreeParamValue(copy));
}

TEST(ParamCopies, NumbersHaveTheSizeOfTheirType) {
    EXPECT_EQ(ParamNumberSize(PDU_PT_SNUM8), 1u);
    EXPECT_EQ(ParamNumberSize(PDU_PT_SNUM16), 2u);
    EXPECT_EQ(ParamNumberSize(PDU_PT_SNUM32), 4u);
    EXPECT_EQ(ParamNumberSize(PDU_PT_BYTEFIELD), 0u);
}

TEST(ParamCopies, OtherTypesAreCopiedWithoutTheirValue) {
    UNUM32 value = 1;
    for (const T_PDU_PT type : {PDU_PT_STRUCTFIELD, PDU_PT_LONGFIELD, 0x100u, 0x10Au}) {
        PDU_PARAM_ITEM copy{};
        EXPECT_EQ(CopyParamItem({PDU_IT_PARAM, 5, type, PDU_PC_COM, &value}, &copy),
                  ParamCopy::kNotCopyable);
        EXPECT_EQ(copy.ComParamDataType, type);
        EXPECT_EQ(copy.pComParamData, nullptr);
        EXPECT_EQ(FreeParamValue(copy), type == PDU_PT_STRUCTFIELD);
    }
}

TEST(ParamCopies, MissingValueIsCopiedAsMissing) {
    for (const T_PDU_PT type : {PDU_PT_UNUM32, PDU_PT_BYTEFIELD}) {
        PDU_PARAM_ITEM copy{};
        EXPECT_EQ(CopyParamItem({PDU_IT_PARAM, 5, type, PDU_PC_COM, nullptr}, &copy),
                  ParamCopy::kCopied);
        EXPECT_EQ(copy.pComParamData, nullptr);
        EXPECT_TRUE(FreeParamValue(copy));
    }
}

TEST(ParamCopies, ByteFieldWithoutItsBytesIsCopied) {
    PDU_PARAM_BYTEFIELD_DATA field = {4, 2, nullptr};
    PDU_PARAM_ITEM copy{};
    ASSERT_EQ(CopyParamItem({PDU_IT_PARAM, 5, PDU_PT_BYTEFIELD, PDU_PC_COM, &field}, &copy),
              ParamCopy::kCopied);
    EXPECT_EQ(Text(PDU_PT_BYTEFIELD, copy.pComParamData), "(BYTEFIELD) 00 00 ");
    EXPECT_TRUE(FreeParamValue(copy));
}

TEST(ParamCopies, StructFieldIsReleasedWithItsEntries) {
    const MemoryUse before = LiveMemory();
    auto* field =
        static_cast<PDU_PARAM_STRUCTFIELD_DATA*>(AllocateMem(sizeof(PDU_PARAM_STRUCTFIELD_DATA)));
    *field = {PDU_CPST_SESSION_TIMING, 1, 1, AllocateMem(16)};
    EXPECT_TRUE(FreeParamValue({PDU_IT_PARAM, 5, PDU_PT_STRUCTFIELD, PDU_PC_COM, field}));
    EXPECT_TRUE(LiveMemory() == before);
}

TEST(ParamCopies, WithoutMemoryLeaveNothing) {
    UNUM32 number = 1;
    UNUM8 bytes[] = {1, 2, 3};
    PDU_PARAM_BYTEFIELD_DATA field = {3, 2, bytes};
    const PDU_PARAM_ITEM items[] = {{PDU_IT_PARAM, 5, PDU_PT_UNUM32, PDU_PC_COM, &number},
                                    {PDU_IT_PARAM, 5, PDU_PT_BYTEFIELD, PDU_PC_COM, &field}};
    const MemoryUse before = LiveMemory();
    for (const PDU_PARAM_ITEM& item : items) {
        const std::uint32_t blocks = item.ComParamDataType == PDU_PT_BYTEFIELD ? 2 : 1;
        for (std::uint32_t allowed = 0; allowed < blocks; ++allowed) {
            ParamCopy copied = ParamCopy::kCopied;
            PDU_PARAM_ITEM copy{};
            {
                const FailingHeap heap(allowed, 1);
                copied = CopyParamItem(item, &copy);
            }
            EXPECT_EQ(copied, ParamCopy::kNoMemory);
            EXPECT_EQ(copy.pComParamData, nullptr);
            EXPECT_TRUE(LiveMemory() == before);
        }
    }
}

TEST(ReadParam, OnlyUnsignedNumbersAreRead) {
    UNUM32 value = 0x89ABCDEFu;
    const auto read = [&](T_PDU_PT type) {
        return ReadParamItem({PDU_IT_PARAM, 61, type, PDU_PC_UNIQUE_ID, &value});
    };
    EXPECT_EQ(read(PDU_PT_UNUM8), 0xEFu);
    EXPECT_EQ(read(PDU_PT_UNUM16), 0xCDEFu);
    EXPECT_EQ(read(PDU_PT_UNUM32), 0x89ABCDEFu);
    EXPECT_EQ(read(PDU_PT_SNUM32), 0u);
    EXPECT_EQ(read(PDU_PT_BYTEFIELD), 0u);
    EXPECT_EQ(read(0x10A), 0u);
    EXPECT_EQ(ReadParamItem({PDU_IT_PARAM, 61, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, nullptr}), 0u);
}

}  // namespace
}  // namespace tarvik::test

// Byte, long and struct fields.

#include <algorithm>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/params.h"

using namespace conformance;

namespace {

using ComParamFields = ConstructedLibrary;

constexpr char kBytes[] = "CP_TesterPresentMessage";
constexpr char kWords[] = "CP_CanBaudrateRecord";
constexpr char kSessions[] = "CP_SessionTimingOverride";
constexpr char kAccess[] = "CP_AccessTimingOverride";

template <typename Field>
Field* FieldOf(const std::string& name) {
    return static_cast<Field*>(GetParam(name)->pComParamData);
}
PDU_PARAM_BYTEFIELD_DATA* Bytes() { return FieldOf<PDU_PARAM_BYTEFIELD_DATA>(kBytes); }
PDU_PARAM_LONGFIELD_DATA* Words() { return FieldOf<PDU_PARAM_LONGFIELD_DATA>(kWords); }
PDU_PARAM_STRUCTFIELD_DATA* Structs(const char* name) {
    return FieldOf<PDU_PARAM_STRUCTFIELD_DATA>(name);
}

std::vector<UNUM8> ByteValue() {
    return {Bytes()->pDataArray, Bytes()->pDataArray + Bytes()->ParamActLen};
}
std::vector<UNUM32> WordValue() {
    return {Words()->pDataArray, Words()->pDataArray + Words()->ParamActLen};
}

template <typename Field>
T_PDU_ERROR Set(const char* name, Field field) {
    PDU_PARAM_ITEM item = {PDU_IT_PARAM, ParamId(name), 0, 0, &field};
    return Pdu().PDUSetComParam(0, 0, &item);
}

T_PDU_ERROR SetBytesOf(UNUM32 max, std::vector<UNUM8> bytes) {
    return Set(kBytes,
               PDU_PARAM_BYTEFIELD_DATA{max, static_cast<UNUM32>(bytes.size()), bytes.data()});
}
T_PDU_ERROR SetWordsOf(UNUM32 max, std::vector<UNUM32> words) {
    return Set(kWords,
               PDU_PARAM_LONGFIELD_DATA{max, static_cast<UNUM32>(words.size()), words.data()});
}

std::vector<UNUM8> Counting(std::size_t count) {
    std::vector<UNUM8> bytes(count);
    std::iota(bytes.begin(), bytes.end(), UNUM8{1});
    return bytes;
}

// Applications do this: get a ComParam and set it with the same item.
T_PDU_ERROR SetAgain(const char* name) {
    PDU_PARAM_ITEM* item = GetParam(name);
    const T_PDU_ERROR status = Pdu().PDUSetComParam(0, 0, item);
    Pdu().PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item));
    return status;
}

}  // namespace

TEST_F(ComParamFields, NewByteFieldsHaveRoomForTwelveAndContainOneZero) {
    for (const char* name :
         {"CP_ChangeSpeedMessage", "CP_TesterPresentExpPosResp", "CP_TesterPresentExpNegResp",
          "CP_TesterPresentMessage", "CP_J1939Name", "CP_J1939PreferredAddress",
          "CP_J1939TargetName", "CP_ECULayerShortName"}) {
        EXPECT_EQ(GetParam(name)->ComParamDataType, PDU_PT_BYTEFIELD) << name;
        const auto* field = FieldOf<PDU_PARAM_BYTEFIELD_DATA>(name);
        EXPECT_EQ(field->ParamMaxLen, 12u) << name;
        EXPECT_EQ(field->ParamActLen, 1u) << name;
        EXPECT_EQ(std::count(field->pDataArray, field->pDataArray + 12, 0), 12) << name;
    }
}

TEST_F(ComParamFields, NewLongFieldHasRoomForTwelveAndContainsOneZero) {
    EXPECT_EQ(GetParam(kWords)->ComParamDataType, PDU_PT_LONGFIELD);
    EXPECT_EQ(Words()->ParamMaxLen, 12u);
    EXPECT_EQ(Words()->ParamActLen, 1u);
    EXPECT_EQ(std::count(Words()->pDataArray, Words()->pDataArray + 12, 0u), 12);
}

TEST_F(ComParamFields, NewStructFieldsHaveTheirTypeAndRoom) {
    struct Row {
        const char* name;
        UNUM32 type;
        UNUM32 max;
    };
    for (const Row& row : {Row{"CP_SessionTimingOverride", PDU_CPST_SESSION_TIMING, 255},
                           Row{"CP_SessionTiming_Ecu", PDU_CPST_SESSION_TIMING, 255},
                           Row{"CP_AccessTimingOverride", PDU_CPST_ACCESS_TIMING, 8},
                           Row{"CP_AccessTiming_Ecu", PDU_CPST_ACCESS_TIMING, 8},
                           Row{"CP_ExtendedTiming", PDU_CPST_ACCESS_TIMING, 1}}) {
        EXPECT_EQ(GetParam(row.name)->ComParamDataType, PDU_PT_STRUCTFIELD) << row.name;
        EXPECT_EQ(Structs(row.name)->ComParamStructType, row.type) << row.name;
        EXPECT_EQ(Structs(row.name)->ParamMaxEntries, row.max) << row.name;
        EXPECT_EQ(Structs(row.name)->ParamActEntries, 1u) << row.name;
        const auto* bytes = static_cast<UNUM8*>(Structs(row.name)->pStructArray);
        const std::size_t size = std::size_t{6} * row.max;
        EXPECT_EQ(std::count(bytes, bytes + size, 0), static_cast<std::ptrdiff_t>(size))
            << row.name;
    }
}

TEST_F(ComParamFields, ByteFieldIsCopiedAndLogged) {
    const LogCapture log;
    EXPECT_EQ(SetBytesOf(12, {0x3E, 0x80, 0x0A}), PDU_STATUS_NOERROR);
    EXPECT_EQ(log.LinesOf("PDUSetComParam"),
              (std::vector<std::string>{
                  "[PDUSetComParam] Called",
                  "[PDUSetComParam] CP_TesterPresentMessage PDU_PT_BYTEFIELD(3) '3E800A'",
                  "[PDUSetComParam] Returning PDU_STATUS_NOERROR",
              }));
    EXPECT_EQ(ByteValue(), (std::vector<UNUM8>{0x3E, 0x80, 0x0A}));
    EXPECT_EQ(Bytes()->ParamMaxLen, 12u);
}

TEST_F(ComParamFields, LongByteFieldIsLoggedWhole) {
    const LogCapture log;
    EXPECT_EQ(SetBytesOf(5000, std::vector<UNUM8>(5000, 0xAA)), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Has("[PDUSetComParam] CP_TesterPresentMessage PDU_PT_BYTEFIELD(5000) '" +
                        std::string(10'000, 'A') + "'"));
}

TEST_F(ComParamFields, ByteFieldGrowsWithTheCallersMaximumAndKeepsItsContents) {
    ASSERT_EQ(SetBytesOf(12, Counting(12)), PDU_STATUS_NOERROR);
    ASSERT_EQ(SetBytesOf(100, {9}), PDU_STATUS_NOERROR);
    EXPECT_EQ(Bytes()->ParamMaxLen, 100u);
    EXPECT_EQ(Bytes()->ParamActLen, 1u);
    EXPECT_EQ(Bytes()->pDataArray[0], 9);
    EXPECT_EQ(Bytes()->pDataArray[11], 12);
    EXPECT_EQ(Bytes()->pDataArray[12], 0);
    ASSERT_EQ(SetBytesOf(100, Counting(100)), PDU_STATUS_NOERROR);
    EXPECT_EQ(ByteValue(), Counting(100));
}

TEST_F(ComParamFields, SmallerMaximumKeepsTheLargerBuffer) {
    ASSERT_EQ(SetBytesOf(50, Counting(50)), PDU_STATUS_NOERROR);
    const UNUM8* buffer = Bytes()->pDataArray;
    ASSERT_EQ(SetBytesOf(4, {1, 2}), PDU_STATUS_NOERROR);
    EXPECT_EQ(Bytes()->ParamMaxLen, 50u);
    EXPECT_EQ(Bytes()->pDataArray, buffer);
    EXPECT_EQ(ByteValue(), (std::vector<UNUM8>{1, 2}));
}

TEST_F(ComParamFields, LengthAboveTheMaximumIsTrusted) {
    EXPECT_EQ(SetBytesOf(12, Counting(40)), PDU_STATUS_NOERROR);
    EXPECT_EQ(Bytes()->ParamMaxLen, 12u);
    EXPECT_EQ(ByteValue(), Counting(40));
}

TEST_F(ComParamFields, NullDataPointerChangesOnlyTheLength) {
    ASSERT_EQ(SetBytesOf(12, {1, 2, 3}), PDU_STATUS_NOERROR);
    EXPECT_EQ(Set(kBytes, PDU_PARAM_BYTEFIELD_DATA{12, 2, nullptr}), PDU_STATUS_NOERROR);
    EXPECT_EQ(ByteValue(), (std::vector<UNUM8>{1, 2}));
}

TEST_F(ComParamFields, NullDataPointerNeitherGrowsNorReplacesTheBuffer) {
    ASSERT_EQ(SetBytesOf(12, {1, 2, 3}), PDU_STATUS_NOERROR);
    ASSERT_EQ(SetWordsOf(12, {4, 5}), PDU_STATUS_NOERROR);
    const UNUM8* bytes = Bytes()->pDataArray;
    const UNUM32* words = Words()->pDataArray;
    EXPECT_EQ(Set(kBytes, PDU_PARAM_BYTEFIELD_DATA{1'000'000, 1, nullptr}), PDU_STATUS_NOERROR);
    EXPECT_EQ(Bytes()->ParamMaxLen, 12u);
    EXPECT_EQ(Bytes()->ParamActLen, 1u);
    EXPECT_EQ(Set(kBytes, PDU_PARAM_BYTEFIELD_DATA{0, 1'000'000, nullptr}), PDU_STATUS_NOERROR);
    std::vector<UNUM8> longest = {1, 2, 3};
    longest.resize(12);
    EXPECT_EQ(ByteValue(), longest);
    EXPECT_EQ(Set(kWords, PDU_PARAM_LONGFIELD_DATA{500, 1'000'000, nullptr}), PDU_STATUS_NOERROR);
    EXPECT_EQ(Words()->ParamMaxLen, 12u);
    EXPECT_EQ(Words()->ParamActLen, 12u);
    EXPECT_EQ(Words()->pDataArray[1], 5u);
    EXPECT_EQ(Bytes()->pDataArray, bytes);
    EXPECT_EQ(Words()->pDataArray, words);
}

TEST_F(ComParamFields, EmptyByteFieldIsAccepted) {
    const LogCapture log;
    EXPECT_EQ(Set(kBytes, PDU_PARAM_BYTEFIELD_DATA{12, 0, nullptr}), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Has("[PDUSetComParam] CP_TesterPresentMessage PDU_PT_BYTEFIELD(0) ''"));
    EXPECT_EQ(Bytes()->ParamActLen, 0u);
}

TEST_F(ComParamFields, LongFieldIsCopiedGrowsAndIsLoggedByWord) {
    const LogCapture log;
    EXPECT_EQ(SetWordsOf(12, {500'000, 0xFFFFFFFF}), PDU_STATUS_NOERROR);
    EXPECT_EQ(log.LinesOf("PDUSetComParam"),
              (std::vector<std::string>{
                  "[PDUSetComParam] Called",
                  "[PDUSetComParam]   -> CP_CanBaudrateRecord PDU_PT_LONGFIELD",
                  "[PDUSetComParam]     CP_CanBaudrateRecord: 500000",
                  "[PDUSetComParam]     CP_CanBaudrateRecord: 4294967295",
                  "[PDUSetComParam] Returning PDU_STATUS_NOERROR",
              }));
    EXPECT_EQ(WordValue(), (std::vector<UNUM32>{500'000, 0xFFFFFFFF}));
    EXPECT_EQ(Words()->ParamMaxLen, 12u);
    std::vector<UNUM32> many(30, 7);
    EXPECT_EQ(SetWordsOf(30, many), PDU_STATUS_NOERROR);
    EXPECT_EQ(Words()->ParamMaxLen, 30u);
    EXPECT_EQ(WordValue(), many);
}

TEST_F(ComParamFields, SessionTimingIsCopiedAndLogged) {
    PDU_PARAM_STRUCT_SESS_TIMING entries[] = {{0x0102, 3, 4, 5, 6}, {7, 8, 9, 10, 11}};
    const LogCapture log;
    EXPECT_EQ(Set(kSessions, PDU_PARAM_STRUCTFIELD_DATA{PDU_CPST_SESSION_TIMING, 2, 2, entries}),
              PDU_STATUS_NOERROR);
    EXPECT_EQ(log.LinesOf("PDUSetComParam"),
              (std::vector<std::string>{
                  "[PDUSetComParam] Called",
                  "[PDUSetComParam] CP_SessionTimingOverride PDU_PT_STRUCTFIELD",
                  "[PDUSetComParam]      CP_SessionTimingOverride 3 4 5 6 258",
                  "[PDUSetComParam]      CP_SessionTimingOverride 8 9 10 11 7",
                  "[PDUSetComParam] Returning PDU_STATUS_NOERROR",
              }));
    EXPECT_EQ(Structs(kSessions)->ParamMaxEntries, 255u);
    EXPECT_EQ(Structs(kSessions)->ParamActEntries, 2u);
    EXPECT_EQ(std::memcmp(Structs(kSessions)->pStructArray, entries, sizeof entries), 0);
}

TEST_F(ComParamFields, AccessTimingIsCopiedGrowsAndIsLogged) {
    std::vector<PDU_PARAM_STRUCT_ACCESS_TIMING> entries(10, {1, 2, 3, 4, 5, 6});
    const LogCapture log;
    EXPECT_EQ(
        Set(kAccess, PDU_PARAM_STRUCTFIELD_DATA{PDU_CPST_ACCESS_TIMING, 10, 10, entries.data()}),
        PDU_STATUS_NOERROR);
    EXPECT_EQ(log.Count("[PDUSetComParam]      CP_AccessTimingOverride 2 1 4 3 5 6"), 10u);
    EXPECT_EQ(Structs(kAccess)->ParamMaxEntries, 10u);
    EXPECT_EQ(Structs(kAccess)->ParamActEntries, 10u);
    EXPECT_EQ(std::memcmp(Structs(kAccess)->pStructArray, entries.data(), 60), 0);

    entries.assign(12, {7, 8, 9, 10, 11, 12});  // more than the maximum
    EXPECT_EQ(
        Set(kAccess, PDU_PARAM_STRUCTFIELD_DATA{PDU_CPST_ACCESS_TIMING, 1, 12, entries.data()}),
        PDU_STATUS_NOERROR);
    EXPECT_EQ(Structs(kAccess)->ParamMaxEntries, 10u);
    EXPECT_EQ(Structs(kAccess)->ParamActEntries, 12u);
    EXPECT_EQ(std::memcmp(Structs(kAccess)->pStructArray, entries.data(), 72), 0);
}

TEST_F(ComParamFields, StructTypeCannotChange) {
    PDU_PARAM_STRUCT_ACCESS_TIMING entry{};
    for (const UNUM32 type : {0u, 2u, 3u, 99u}) {
        const LogCapture log;
        EXPECT_EQ(Set(kSessions, PDU_PARAM_STRUCTFIELD_DATA{type, 1, 1, &entry}),
                  PDU_ERR_FCT_FAILED);
        EXPECT_EQ(log.LinesOf("PDUSetComParam"),
                  (std::vector<std::string>{
                      "[PDUSetComParam] Called",
                      "[PDUSetComParam]   CP_SessionTimingOverride - CANNOT CHANGE STRUCT TYPE, "
                      "Returning PDU_ERR_FCT_FAILED",
                  }));
    }
    EXPECT_EQ(Structs(kSessions)->ComParamStructType, PDU_CPST_SESSION_TIMING);
    Structs(kAccess)->ComParamStructType = PDU_CPST_SESSION_TIMING;
    EXPECT_EQ(SetAgain(kAccess), PDU_ERR_FCT_FAILED);
    EXPECT_EQ(Structs(kAccess)->ComParamStructType, PDU_CPST_ACCESS_TIMING);
    EXPECT_EQ(Structs(kAccess)->ParamMaxEntries, 8u);
}

TEST_F(ComParamFields, ByteFieldCanBeSetWithItsOwnItem) {
    ASSERT_EQ(SetBytesOf(20, Counting(20)), PDU_STATUS_NOERROR);
    EXPECT_EQ(SetAgain(kBytes), PDU_STATUS_NOERROR);
    EXPECT_EQ(ByteValue(), Counting(20));
    Bytes()->pDataArray[0] = 0x55;
    Bytes()->ParamActLen = 3;
    const LogCapture log;
    EXPECT_EQ(SetAgain(kBytes), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Has("[PDUSetComParam] CP_TesterPresentMessage PDU_PT_BYTEFIELD(3) '550203'"));
    EXPECT_EQ(ByteValue(), (std::vector<UNUM8>{0x55, 2, 3}));
}

TEST_F(ComParamFields, ByteFieldGrowsWhenItsOwnItemAsksForMore) {
    ASSERT_EQ(SetBytesOf(12, Counting(12)), PDU_STATUS_NOERROR);
    Bytes()->ParamMaxLen = 64;
    EXPECT_EQ(SetAgain(kBytes), PDU_STATUS_NOERROR);
    EXPECT_EQ(Bytes()->ParamMaxLen, 64u);
    EXPECT_EQ(ByteValue(), Counting(12));
}

TEST_F(ComParamFields, LongFieldCanBeSetWithItsOwnItem) {
    ASSERT_EQ(SetWordsOf(12, {1, 2, 3}), PDU_STATUS_NOERROR);
    Words()->pDataArray[1] = 77;
    const LogCapture log;
    EXPECT_EQ(SetAgain(kWords), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Has("[PDUSetComParam]     CP_CanBaudrateRecord: 77"));
    EXPECT_EQ(WordValue(), (std::vector<UNUM32>{1, 77, 3}));
}

TEST_F(ComParamFields, StructFieldCanBeSetWithItsOwnItem) {
    auto* entries = static_cast<PDU_PARAM_STRUCT_SESS_TIMING*>(Structs(kSessions)->pStructArray);
    entries[0] = {3, 0, 50, 1, 244};
    entries[1] = {4, 0, 60, 1, 200};
    Structs(kSessions)->ParamActEntries = 2;
    const LogCapture log;
    EXPECT_EQ(SetAgain(kSessions), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Has("[PDUSetComParam]      CP_SessionTimingOverride 0 50 1 244 3"));
    entries = static_cast<PDU_PARAM_STRUCT_SESS_TIMING*>(Structs(kSessions)->pStructArray);
    EXPECT_EQ(Structs(kSessions)->ParamActEntries, 2u);
    EXPECT_EQ(entries[0].session, 3);
    EXPECT_EQ(entries[1].P2Max_low, 60);
}

TEST_F(ComParamFields, ApplicationBufferInTheLibrarysItemIsReadAndNotKept) {
    std::vector<UNUM8> own = Counting(5);
    PDU_PARAM_ITEM* item = GetParam(kBytes);
    PDU_PARAM_BYTEFIELD_DATA field = {5, 5, own.data()};
    void* const before = item->pComParamData;
    item->pComParamData = &field;
    EXPECT_EQ(Pdu().PDUSetComParam(0, 0, item), PDU_STATUS_NOERROR);
    EXPECT_EQ(GetParam(kBytes)->pComParamData, before);
    EXPECT_NE(Bytes()->pDataArray, own.data());
    EXPECT_EQ(ByteValue(), Counting(5));
}

TEST_F(ComParamFields, ReturnToTheirInitialSizeAfterDestruct) {
    ASSERT_EQ(SetBytesOf(100, Counting(100)), PDU_STATUS_NOERROR);
    ASSERT_EQ(SetWordsOf(50, std::vector<UNUM32>(50, 1)), PDU_STATUS_NOERROR);
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(Bytes()->ParamMaxLen, 12u);
    EXPECT_EQ(ByteValue(), std::vector<UNUM8>{0});
    EXPECT_EQ(Words()->ParamMaxLen, 12u);
    EXPECT_EQ(WordValue(), std::vector<UNUM32>{0});
}

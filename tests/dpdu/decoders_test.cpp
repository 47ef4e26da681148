// Parsing and formatting in the client, without a library.

#include <gtest/gtest.h>

#include <cctype>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <string>
#include <tuple>

#include "commands/dongle_report.h"
#include "console/failure.h"
#include "console/output.h"
#include "options/command_line.h"
#include "params/com_param_names.h"
#include "params/param_value.h"
#include "pdu/functions.h"
#include "pdu/modules.h"
#include "pdu/status_text.h"
#include "scan/plan.h"
#include "text/hex.h"
#include "uds/answers.h"
#include "uds/decoding.h"
#include "uds/ecu_address.h"
#include "uds/trouble_codes.h"
#include "uds/vin.h"

namespace dpdu {
namespace {

TEST(Hex, BytesHaveOneOfTheFormsOfTheMessage) {
    const Bytes bytes = {0x22, 0xF1, 0x90};
    for (const char* text : {"22F190", "22f190", "22 F1 90", " 22  f1\t90\r\n", "22:F1:90",
                             "0x22 0xF1 0x90", "0X22 0xf1 0x90", "0x22F190"}) {
        EXPECT_EQ(ParseHex(text), bytes) << text;
    }
    EXPECT_EQ(ParseHex("3E"), Bytes{0x3E});
    EXPECT_EQ(ParseHex("0x3E"), Bytes{0x3E});
    EXPECT_EQ(ParseHex(""), Bytes{});
    EXPECT_EQ(ParseHex(" \n"), Bytes{});
}

TEST(Hex, BrokenAndMixedFormsAreRefused) {
    for (const char* text :
         {"2",       "22F",     "2 2",      "2G",        "22-33",    "0x",          "22F19 0",
          "22F1 90", "22 F190", "22:F1 90", "22:F190",   "22:",      ":22",         "22::F1",
          "22: F1",  "0x22 F1", "22 0xF1",  "0x22:0xF1", "0x220xF1", "0x22F1 0x90", "0x2 0x2",
          "x22",     "22,F1",   "22h",      "-",         "\xC3\xA4"}) {
        EXPECT_EQ(ParseHex(text), std::nullopt) << text;
    }
}

// Every form of every row of bytes is read; one wrong character makes it unreadable or other bytes.
TEST(Hex, FormsOfRandomBytesAreReadAndDamageNeverGoesUnnoticed) {
    std::mt19937 random(22900);
    const auto draw = [&random](std::size_t limit) { return random() % limit; };
    for (int round = 0; round < 2000; ++round) {
        Bytes bytes(1 + draw(12));
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>(draw(256));
        const std::string forms[] = {HexText(bytes), HexText(bytes, " "), HexText(bytes, ":"),
                                     "0x" + HexText(bytes, " 0x")};
        for (std::string form : forms) {
            ASSERT_EQ(ParseHex(form), bytes) << form;
            const std::size_t at = draw(form.size());
            const char before = form[at];
            form[at] = static_cast<char>(1 + draw(127));
            const bool is_same = std::toupper(form[at]) == std::toupper(before) ||
                                 (std::isspace(form[at]) && std::isspace(before));
            EXPECT_EQ(ParseHex(form) == bytes, is_same) << form;
        }
    }
}

TEST(Hex, TextIsUpperCaseWithTheSeparatorBetween) {
    EXPECT_EQ(HexText({0x0A, 0xFF}), "0AFF");
    EXPECT_EQ(HexText({0x0A, 0xFF}, " "), "0A FF");
    EXPECT_EQ(HexText({}, " "), "");
}

TEST(Hex, NumbersAreLimitedTo32Bits) {
    EXPECT_EQ(ParseNumber("4294967295"), 0xFFFFFFFFu);
    EXPECT_EQ(ParseNumber("0xFFFFFFFF"), 0xFFFFFFFFu);
    EXPECT_EQ(ParseHexNumber("7E0"), 0x7E0u);
    for (const char* text : {"4294967296", "0x100000000", "-1", "+1", "1 ", "", "0x", "12x"}) {
        EXPECT_EQ(ParseNumber(text), std::nullopt) << text;
    }
}

TEST(EcuAddressing, PairHasIdentifiersOfUpTo29Bits) {
    const std::optional<EcuAddress> ecu = ParseEcuAddress("18DA10F1:0x18DAF110");
    ASSERT_TRUE(ecu);
    EXPECT_EQ(ecu->request_id, 0x18DA10F1u);
    EXPECT_EQ(ecu->response_id, 0x18DAF110u);
    EXPECT_EQ(EcuAddressText(*ecu), "18DA10F1:18DAF110");
    EXPECT_EQ(EcuAddressText({0x7E0, 0x7E8}), "7E0:7E8");
    EXPECT_TRUE(ParseEcuAddress("1FFFFFFF:7FF"));
    for (const char* text : {"", "7E0", "7E0:", ":7E8", "7E0:7E8:7E9", "20000000:7E8", "x:y"}) {
        EXPECT_FALSE(ParseEcuAddress(text)) << text;
    }
}

TEST(ScanPlan, OnlyRequestsThatReadAreAllowed) {
    for (const Bytes& request :
         {Bytes{0x3E, 0x00}, Bytes{0x10, 0x01}, Bytes{0x22, 0xF1, 0x90}, Bytes{0x19, 0x01, 0xFF}}) {
        EXPECT_TRUE(IsAllowedInScan(request)) << HexText(request);
    }
    for (int service = 0; service <= 0xFF; ++service) {
        const bool reads = service == 0x19 || service == 0x22;
        EXPECT_EQ(IsAllowedInScan({static_cast<std::uint8_t>(service), 0x02}), reads) << service;
    }
    EXPECT_FALSE(IsAllowedInScan({}));
    EXPECT_FALSE(IsAllowedInScan({0x10, 0x03}));
    EXPECT_FALSE(IsAllowedInScan({0x3E, 0x00, 0x00}));
}

TEST(ScanPlan, UsualResponseIdentifierFollowsFromTheRequestIdentifier) {
    EXPECT_EQ(UsualResponseId(0x7E0, 8), 0x7E8u);
    EXPECT_EQ(UsualResponseId(0x600, 0x80), 0x680u);
    EXPECT_EQ(UsualResponseId(0x7F7, 8), 0x7FFu);
    EXPECT_EQ(UsualResponseId(0x7F8, 8), std::nullopt);
    EXPECT_EQ(UsualResponseId(0x18DA10F1, 8), 0x18DAF110u);
    EXPECT_EQ(UsualResponseId(0x18DB33F1, 8), std::nullopt);
}

TEST(Uds, NegativeResponseIsDecodedWithItsName) {
    const std::optional<NegativeResponse> response = ParseNegativeResponse({0x7F, 0x22, 0x33});
    ASSERT_TRUE(response);
    EXPECT_EQ(NegativeResponseText(*response),
              "negative response securityAccessDenied (0x33) to service 0x22");
    EXPECT_FALSE(ParseNegativeResponse({0x7F, 0x22}));
    EXPECT_FALSE(ParseNegativeResponse({0x62, 0xF1, 0x90}));
    EXPECT_FALSE(ParseNegativeResponse({}));
}

TEST(Uds, NegativeResponseNamesAreThoseOfTheStandard) {
    const std::pair<int, const char*> names[] = {
        {0x10, "generalReject"},
        {0x11, "serviceNotSupported"},
        {0x12, "subFunctionNotSupported"},
        {0x13, "incorrectMessageLengthOrInvalidFormat"},
        {0x21, "busyRepeatRequest"},
        {0x22, "conditionsNotCorrect"},
        {0x24, "requestSequenceError"},
        {0x31, "requestOutOfRange"},
        {0x35, "invalidKey"},
        {0x36, "exceedNumberOfAttempts"},
        {0x37, "requiredTimeDelayNotExpired"},
        {0x72, "generalProgrammingFailure"},
        {0x78, "requestCorrectlyReceivedResponsePending"},
        {0x7E, "subFunctionNotSupportedInActiveSession"},
        {0x7F, "serviceNotSupportedInActiveSession"},
        {0x93, "voltageTooLow"},
        {0x01, "unknown code"},
    };
    for (const auto& [code, name] : names) {
        EXPECT_STREQ(NegativeResponseName(static_cast<std::uint8_t>(code)), name);
    }
}

TEST(Uds, RequestsAreDescribedInTheWordsOfTheStandard) {
    const std::pair<Bytes, const char*> rows[] = {
        {{0x22, 0xF1, 0x90}, "ReadDataByIdentifier F190 VINDataIdentifier"},
        {{0x22, 0xF1, 0x8C, 0x01, 0x00},
         "ReadDataByIdentifier F18C ECUSerialNumberDataIdentifier, 0100"},
        {{0x10, 0x03}, "DiagnosticSessionControl extendedDiagnosticSession"},
        {{0x10, 0x60}, "DiagnosticSessionControl sub-function 0x60"},
        {{0x3E, 0x80}, "TesterPresent zeroSubFunction, no positive response"},
        {{0x11, 0x01}, "ECUReset hardReset"},
        {{0x14, 0xFF, 0xFF, 0xFF}, "ClearDiagnosticInformation"},
        {{0x19, 0x02, 0xFF}, "ReadDTCInformation reportDTCByStatusMask"},
        {{0x27, 0x01}, "SecurityAccess requestSeed 0x01"},
        {{0x27, 0x02, 0xAA}, "SecurityAccess sendKey 0x02"},
        {{0x28, 0x03, 0x01}, "CommunicationControl disableRxAndTx"},
        {{0x2E, 0xF1, 0x98, 0x41, 0x42},
         "WriteDataByIdentifier F198 repairShopCodeOrTesterSerialNumberDataIdentifier \"AB\""},
        {{0x31, 0x01, 0xFF, 0x00}, "RoutineControl startRoutine FF00 eraseMemory"},
        {{0x31, 0x03, 0x12, 0x34}, "RoutineControl requestRoutineResults 1234"},
        {{0x85, 0x02}, "ControlDTCSetting off"},
        {{0x36, 0x01, 0x00}, "TransferData"},
        {{0xBA, 0x01}, "service 0xBA"},
        {{0x22}, "ReadDataByIdentifier"},
        {{0x10}, "DiagnosticSessionControl"},
        {{}, ""},
    };
    for (const auto& [request, text] : rows)
        EXPECT_EQ(DescribeRequest(request), text);
}

TEST(Uds, AnswersAreDescribedInTheWordsOfTheStandard) {
    const Bytes read = {0x22, 0xF1, 0x95};
    const std::tuple<Bytes, Bytes, const char*> rows[] = {
        {read,
         {0x62, 0xF1, 0x95, '1', '.', '2'},
         "ReadDataByIdentifier F195 systemSupplierECUSoftwareVersionNumberDataIdentifier \"1.2\""},
        {{}, {0x62, 0x01, 0x00, 0x00, 0x05}, "ReadDataByIdentifier 0100"},
        {read,
         {0x7F, 0x22, 0x33},
         "ReadDataByIdentifier F195 systemSupplierECUSoftwareVersionNumberDataIdentifier: negative "
         "response securityAccessDenied (0x33)"},
        {{},
         {0x7F, 0x22, 0x31},
         "ReadDataByIdentifier: negative response requestOutOfRange (0x31)"},
        {read,
         {0x7F, 0x10, 0x99},
         "DiagnosticSessionControl: negative response unknown code (0x99)"},
        {{0x3E, 0x80},
         {0x7F, 0x3E, 0x13},
         "TesterPresent zeroSubFunction: negative response incorrectMessageLengthOrInvalidFormat "
         "(0x13)"},
        {{0x10, 0x01},
         {0x50, 0x01, 0x00, 0x32, 0x01, 0xF4},
         "DiagnosticSessionControl defaultSession, P2 50 ms, P2* 5000 ms"},
        {{0x10, 0x01}, {0x50, 0x01}, "DiagnosticSessionControl defaultSession"},
        {{0x19, 0x01, 0xFF},
         {0x59, 0x01, 0xFF, 0x01, 0x01, 0x02},
         "ReadDTCInformation reportNumberOfDTCByStatusMask, 258 trouble codes"},
        {{0x19, 0x02, 0xFF},
         {0x59, 0x02, 0xFF, 0x03, 0x01, 0x00, 0x2F},
         "ReadDTCInformation reportDTCByStatusMask, 1 trouble code"},
        {{0x19, 0x02, 0xFF},
         {0x59, 0x02, 0xFF, 0x03, 0x01},
         "ReadDTCInformation reportDTCByStatusMask"},
        {{0x31, 0x01, 0xFF, 0x01},
         {0x71, 0x01, 0xFF, 0x01, 0x00},
         "RoutineControl startRoutine FF01 checkProgrammingDependencies"},
        {{0x3E, 0x00}, {0x7E, 0x00}, "TesterPresent zeroSubFunction"},
        {{}, {0x01}, ""},
        {{}, {}, ""},
    };
    for (const auto& [request, answer, text] : rows)
        EXPECT_EQ(DescribeAnswer(request, answer), text);
}

TEST(Uds, DataOfSeveralIdentifiersIsSplitWhereItIsUnambiguous) {
    const Bytes request = {0x22, 0xF1, 0x87, 0xF1, 0x95};
    const Decoded both = Decode(request, {0x62, 0xF1, 0x87, 'A', 0xF1, 0x95, 'B', 'C'});
    ASSERT_EQ(both.records.size(), 2u);
    EXPECT_EQ(both.records[0].data, Bytes{'A'});
    EXPECT_EQ(both.records[1].text, "BC");
    // The second identifier's bytes also occur as data.
    const Bytes data = {'A', 0xF1, 0x95, 'B', 0xF1, 0x95};
    Bytes answer = {0x62, 0xF1, 0x87};
    answer.insert(answer.end(), data.begin(), data.end());
    const Decoded unclear = Decode(request, answer);
    ASSERT_EQ(unclear.records.size(), 1u);
    EXPECT_EQ(unclear.records[0].data, data);
    // The control unit left out the first one.
    const Decoded second = Decode(request, {0x62, 0xF1, 0x95, 'B'});
    ASSERT_EQ(second.records.size(), 1u);
    EXPECT_EQ(second.records[0].identifier, 0xF195);
}

TEST(Uds, OnlyPrintableDataIsShownAsText) {
    EXPECT_EQ(TextOfData({'A', ' ', '1', 0x00, 0x00}), "A 1");
    EXPECT_EQ(TextOfData({0xFF, ' ', 'A', 0xFF}), "A");
    EXPECT_EQ(TextOfData({'A', 0x00, 'B'}), "");
    EXPECT_EQ(TextOfData({0x00, 0xFF, ' '}), "");
    EXPECT_EQ(TextOfData({0x12, 0x34}), "");
    EXPECT_EQ(TextOfData({}), "");
}

TEST(Uds, DecodingNeverReadsBeyondTheBytes) {
    std::mt19937 random(14229);
    for (int round = 0; round < 20000; ++round) {
        Bytes request(random() % 8);
        Bytes answer(random() % 10);
        for (Bytes* bytes : {&request, &answer}) {
            for (std::uint8_t& byte : *bytes)
                byte = static_cast<std::uint8_t>(random());
        }
        if (!request.empty() && round % 2 == 0) request[0] = 0x22;
        if (!answer.empty() && round % 4 == 0) answer[0] = 0x62;
        for (const std::string& text : {DescribeRequest(request), DescribeAnswer(request, answer)})
            EXPECT_EQ(OnOneLine(text), text);
        EXPECT_EQ(DecodedJson(DecodeRequest(request))["text"], DescribeRequest(request));
    }
}

TEST(Uds, TroubleCodeLetterIsGivenByTheTwoHighestBits) {
    EXPECT_EQ(TroubleCodeText(0x030100), "P0301-00");
    EXPECT_EQ(TroubleCodeText(0x3FFFFF), "P3FFF-FF");
    EXPECT_EQ(TroubleCodeText(0x400000), "C0000-00");
    EXPECT_EQ(TroubleCodeText(0x923A11), "B123A-11");
    EXPECT_EQ(TroubleCodeText(0xC12316), "U0123-16");
}

TEST(Uds, StatusBitsAreNamedStartingWithTheLowest) {
    EXPECT_TRUE(TroubleStatusFlags(0).empty());
    EXPECT_EQ(TroubleStatusFlags(0x81),
              (std::vector<std::string>{"testFailed", "warningIndicatorRequested"}));
    EXPECT_EQ(TroubleStatusFlags(0xFF).size(), 8u);
    EXPECT_EQ(TroubleStatusFlags(0x08), std::vector<std::string>{"confirmedDTC"});
}

TEST(Uds, TroubleCodeReportMustEndWithACompleteEntry) {
    const std::optional<TroubleCodeReport> report =
        ParseTroubleCodeReport({0x59, 0x02, 0x7B, 0x03, 0x01, 0x00, 0x09});
    ASSERT_TRUE(report);
    EXPECT_EQ(report->availability_mask, 0x7B);
    ASSERT_EQ(report->codes.size(), 1u);
    EXPECT_EQ(report->codes[0].code, 0x030100u);
    EXPECT_EQ(report->codes[0].status, 0x09);
    EXPECT_TRUE(ParseTroubleCodeReport({0x59, 0x02, 0xFF}));
    EXPECT_FALSE(ParseTroubleCodeReport({0x59, 0x02}));
    EXPECT_FALSE(ParseTroubleCodeReport({0x59, 0x02, 0xFF, 0x03, 0x01, 0x00}));
    EXPECT_FALSE(ParseTroubleCodeReport({0x59, 0x0A, 0xFF}));
    EXPECT_FALSE(ParseTroubleCodeReport({}));
}

TEST(Uds, PositiveAnswerMustRepeatTheIdentifier) {
    const Bytes request = {0x22, 0xF1, 0x90};
    EXPECT_TRUE(IsPositiveAnswerTo(request, {0x62, 0xF1, 0x90}, 2));
    EXPECT_FALSE(IsPositiveAnswerTo(request, {0x62, 0xF1, 0x91}, 2));
    EXPECT_FALSE(IsPositiveAnswerTo(request, {0x62, 0xF1}, 2));
    EXPECT_FALSE(IsPositiveAnswerTo(request, {0x7F, 0x22, 0x31}, 2));
    EXPECT_TRUE(IsPositiveAnswerTo({0x3E}, {0x7E}, 0));
}

TEST(Uds, VinIsShownWithoutPaddingAndWithDotsForUnprintableCharacters) {
    EXPECT_EQ(VinText({0, 0, 'A', 'B', ' ', 0}), "AB");
    EXPECT_EQ(VinText({'A', 0x01, 0xFF, 'B'}), "A..B");
    EXPECT_EQ(VinText({}), "");
    EXPECT_TRUE(IsWellFormedVin("TESTV1N0000000001"));
    EXPECT_FALSE(IsWellFormedVin("TESTV1N000000001"));
    EXPECT_FALSE(IsWellFormedVin("TESTV1N00000000011"));
    EXPECT_FALSE(IsWellFormedVin("TESTVIN0000000001"));
    EXPECT_FALSE(IsWellFormedVin("testv1n0000000001"));
}

TEST(StatusTexts, KnownNumbersHaveNamesAndUnknownOnesAreShownAsNumbers) {
    EXPECT_EQ(StatusText(PDU_ERR_INVALID_HANDLE), "PDU_ERR_INVALID_HANDLE (0x60)");
    EXPECT_EQ(StatusText(PDU_ERR_TLS_CIPHER_NOT_SUPPORTED),
              "PDU_ERR_TLS_CIPHER_NOT_SUPPORTED (0xC3)");
    EXPECT_EQ(StatusText(0xEE), "status 0xEE");
    EXPECT_EQ(ErrorEventText(0x1FF), "error event 0x1FF");
    EXPECT_EQ(ErrorEventText(PDU_ERR_EVT_RX_TIMEOUT),
              "no answer, or none that was expected (PDU_ERR_EVT_RX_TIMEOUT)");
    EXPECT_EQ(StateText(PDU_MODST_AVAIL), "PDU_MODST_AVAIL");
    EXPECT_EQ(StateText(1), "state 0x01");
}

TEST(VendorNames, ValueIsFoundOnlyByItsWholeKey) {
    const std::string series = "MyName='x' Name='y' Empty='' Open='z";
    EXPECT_EQ(VendorValue(series, "MyName"), "x");
    EXPECT_EQ(VendorValue(series, "Name"), "y");
    EXPECT_EQ(VendorValue(series, "Empty"), "");
    EXPECT_EQ(VendorValue(series, "Open"), "");
    EXPECT_EQ(VendorValue(series, "Missing"), "");
}

ParamValue Like(T_PDU_PT type) {
    ParamValue value;
    value.type = type;
    return value;
}

std::string Parsed(const std::string& text, T_PDU_PT type) {
    return ParamText(ParseParamValue(text, Like(type)));
}

TEST(ParamValues, NumbersAreAcceptedUpToTheLimitsOfTheirType) {
    EXPECT_EQ(Parsed("255", PDU_PT_UNUM8), "255");
    EXPECT_EQ(Parsed("0xFFFF", PDU_PT_UNUM16), "65535");
    EXPECT_EQ(Parsed("4294967295", PDU_PT_UNUM32), "4294967295");
    EXPECT_EQ(Parsed("-128", PDU_PT_SNUM8), "-128");
    EXPECT_EQ(Parsed("127", PDU_PT_SNUM8), "127");
    EXPECT_EQ(Parsed("-2147483648", PDU_PT_SNUM32), "-2147483648");
    EXPECT_THROW(Parsed("256", PDU_PT_UNUM8), UsageError);
    EXPECT_THROW(Parsed("-1", PDU_PT_UNUM8), UsageError);
    EXPECT_THROW(Parsed("-129", PDU_PT_SNUM8), UsageError);
    EXPECT_THROW(Parsed("128", PDU_PT_SNUM8), UsageError);
    EXPECT_THROW(Parsed("2147483648", PDU_PT_SNUM32), UsageError);
    EXPECT_THROW(Parsed("", PDU_PT_UNUM32), UsageError);
}

TEST(ParamValues, FieldsAreParsedInTheirOwnForms) {
    EXPECT_EQ(Parsed("3e80", PDU_PT_BYTEFIELD), "3E80");
    EXPECT_EQ(Parsed("", PDU_PT_BYTEFIELD), "");
    EXPECT_EQ(Parsed("1,0x10", PDU_PT_LONGFIELD), "1,16");
    EXPECT_EQ(Parsed("65535:255:0:1:2", PDU_PT_STRUCTFIELD), "65535:255:0:1:2");
    EXPECT_THROW(Parsed("3E8", PDU_PT_BYTEFIELD), UsageError);
    EXPECT_THROW(Parsed("1,,2", PDU_PT_LONGFIELD), UsageError);
    EXPECT_THROW(Parsed("1:2:3:4", PDU_PT_STRUCTFIELD), UsageError);
    EXPECT_THROW(Parsed("1:256:3:4:5", PDU_PT_STRUCTFIELD), UsageError);
    ParamValue access = Like(PDU_PT_STRUCTFIELD);
    access.struct_type = PDU_CPST_ACCESS_TIMING;
    EXPECT_EQ(ParamText(ParseParamValue("1:2:3:4:5:6", access)), "1:2:3:4:5:6");
    EXPECT_THROW(ParseParamValue("1:2:3:4:5", access), UsageError);
    access.struct_type = PDU_CPST_TLS_VERSION_AND_CIPHER;
    EXPECT_THROW(ParseParamValue("1:2:3:4:5:6", access), UsageError);
}

TEST(ParamValues, ItemsAndValuesConvertIntoEachOther) {
    for (const auto& [text, type] : {std::pair{"-5", PDU_PT_SNUM16},
                                     {"7", PDU_PT_UNUM8},
                                     {"3E80", PDU_PT_BYTEFIELD},
                                     {"1,2", PDU_PT_LONGFIELD},
                                     {"1:2:3:4:5", PDU_PT_STRUCTFIELD}}) {
        PDU_PARAM_ITEM head = {};
        head.ComParamId = 12;
        ParamItemBuilder item(head, ParseParamValue(text, Like(type)));
        EXPECT_EQ(item.Get()->ItemType, PDU_IT_PARAM);
        EXPECT_EQ(item.Get()->ComParamId, 12u);
        EXPECT_EQ(ParamText(ReadParamValue(*item.Get())), text);
    }
}

TEST(ParamValues, ItemWithoutDataReadsAsEmpty) {
    for (const T_PDU_PT type : {PDU_PT_UNUM32, PDU_PT_BYTEFIELD, PDU_PT_STRUCTFIELD}) {
        const PDU_PARAM_ITEM item = {PDU_IT_PARAM, 1, type, PDU_PC_COM, nullptr};
        EXPECT_EQ(ParamText(ReadParamValue(item)), type == PDU_PT_UNUM32 ? "0" : "");
    }
}

TEST(ComParamNames, ListIsSortedWithoutDuplicates) {
    EXPECT_EQ(KnownComParamNames().size(), 228u);
    const std::set<std::string> names(KnownComParamNames().begin(), KnownComParamNames().end());
    EXPECT_EQ(names.size(), 228u);
    EXPECT_TRUE(names.contains("CP_P2Max"));
}

TEST(ErrorLines, TextIsPrintedOnOneLineWithoutControlCharacters) {
    EXPECT_EQ(OnOneLine("first\r\nsecond\tthird\n"), "first second third");
    EXPECT_EQ(OnOneLine("\n"), "");
}

Invocation ParseArguments(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "dpdu");
    return ParseCommandLine(static_cast<int>(arguments.size()), arguments.data());
}

TEST(CommandLine, InvalidInputIsRefusedWithTheReason) {
    const std::pair<std::vector<const char*>, const char*> rows[] = {
        {{}, "name a command"},
        {{"frob"}, "unknown command 'frob'"},
        {{"comparam", "frob"}, "unknown command 'frob'; see dpdu comparam --help"},
        {{"request"}, "bytes is required"},
        {{"request", "22F19"}, "'22F19' is not in one of the forms"},
        {{"request", ""}, "is not in one of the forms"},
        {{"request", "22F190", "--ecu", "7E0"}, "'7E0' is not a pair of CAN identifiers"},
        {{"request", "22F190", "--functional", "x"}, "'x' is not a CAN identifier"},
        {{"request", "22F190", "--functional", "7DF", "--ecu", "7E0:7E8", "--ecu", "7E1:7E8"},
         "two control units answer on 7E8"},
        {{"request", "22F190", "--expect", "6"}, "the expected response '6'"},
        {{"request", "22F190", "--expect", "62/FFFF"}, "mask and pattern have different lengths"},
        {{"request", "22F190", "--param", "CP_P2Max"}, "'CP_P2Max' is not NAME=VALUE"},
        {{"request", "22F190", "--p2", "0"}, "--p2: Value 0 not in range"},
        {{"request", "22F190", "--p2", "soon"}, "--p2"},
        {{"vin", "--timeout", "0"}, "--timeout: Value 0 not in range"},
        {{"vin", "--wait", "-1"}, "--wait: Value -1 not in range"},
        {{"vin", "extra"}, "extra"},
        {{"dtc", "--mask", "100"}, "'100' is not a status mask"},
        {{"comparam", "set", "CP_P2Max"}, "'CP_P2Max' is not NAME=VALUE"},
        {{"comparam", "get"}, "names is required"},
        {{"vin", "--frob"}, "--frob"},
    };
    for (const auto& [arguments, reason] : rows) {
        const Invocation invocation = ParseArguments(arguments);
        EXPECT_FALSE(invocation.run) << reason;
        EXPECT_NE(invocation.error.find(reason), std::string::npos) << invocation.error;
        EXPECT_NE(invocation.error.find("; see dpdu"), std::string::npos) << invocation.error;
    }
}

TEST(CommandLine, CommonOptionsMayPrecedeOrFollowTheCommand) {
    for (const std::vector<const char*>& arguments :
         {std::vector<const char*>{"--json", "--library", "x", "vin"},
          std::vector<const char*>{"vin", "--library", "x", "--json"}}) {
        const Invocation invocation = ParseArguments(arguments);
        EXPECT_TRUE(invocation.run) << invocation.error;
        EXPECT_TRUE(invocation.common.as_json);
        EXPECT_EQ(invocation.common.library, "x");
    }
}

TEST(CommandLine, RequestInSeveralWordsMayBeFollowedByOptions) {
    EXPECT_TRUE(ParseArguments({"request", "22", "F1", "90", "--ecu", "7E0:7E8"}).run);
    EXPECT_TRUE(ParseArguments({"request", "--ecu", "7E0:7E8", "22", "F1", "90"}).run);
}

TEST(CommandLine, HelpAndVersionAreTextsAndRunNothing) {
    const Invocation help = ParseArguments({"--help"});
    EXPECT_FALSE(help.run);
    EXPECT_NE(help.text.find("DPDU_LIBRARY"), std::string::npos);
    EXPECT_EQ(ParseArguments({"--version"}).text.rfind("dpdu ", 0), 0u);
}

}  // namespace
TEST(DongleReport, IsTheLastOneOfLogOrTrace) {
    using dpdu::ParseDongleReport;
    EXPECT_FALSE(ParseDongleReport("").battery_mv);
    EXPECT_FALSE(ParseDongleReport("[x] \"bat\":1 of something else\n").battery_mv);
    const dpdu::DongleReport log = ParseDongleReport(
        "[TELE] json={\"v\":1,\"bat\":12000}\n[TELE] json={\"bat\": 9500,\"ign\":1");
    EXPECT_EQ(log.battery_mv, 9500u);
    EXPECT_EQ(log.ignition, true);
    const dpdu::DongleReport trace =
        ParseDongleReport(R"({"seq":1,"ev":"telemetry","tele_json":"{\"bat\":13100,\"ign\":0}"})");
    EXPECT_EQ(trace.battery_mv, 13100u);
    EXPECT_EQ(trace.ignition, false);
    EXPECT_FALSE(ParseDongleReport("[TELE] json={\"bat\":").battery_mv);
    EXPECT_FALSE(ParseDongleReport("[TELE] json={\"bat\":\"full\"}").battery_mv);
}

}  // namespace dpdu

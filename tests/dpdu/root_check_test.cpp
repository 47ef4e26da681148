// "dpdu root check": each fault in files or library of another vendor is found, and nothing else.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "check/cable_description.h"
#include "check/entry_check.h"
#include "check/file_rights.h"
#include "check/library_file.h"
#include "check/module_description.h"
#include "client_run.h"
#include "path_text.h"
#include "process.h"
#include "root/entry.h"

namespace {

namespace fs = std::filesystem;
namespace check = dpdu::check;
using dpdu::Finding;
using dpdu::Findings;
using dpdu::Verdict;
using Texts = std::vector<std::string>;

// ---------------------------------------------------------------- files of a vendor without faults

struct Object {
    const char* element;
    const char* name;
    int id;
};
// What the fake library answers.
constexpr Object kObjects[] = {
    {"PINTYPE", "HI", 81},
    {"PINTYPE", "LOW", 82},
    {"IO_CTRL", "PDU_IOCTL_READ_VBATT", 700},
    {"IO_CTRL", "PDU_IOCTL_READ_IGNITION_SENSE_STATE", 701},
    {"IO_CTRL", "PDU_IOCTL_SET_PROG_VOLTAGE", 702},
    {"IO_CTRL", "PDU_IOCTL_GENERIC", 703},
    {"IO_CTRL", "PDU_IOCTL_START_MSG_FILTER", 704},
    {"IO_CTRL", "PDU_IOCTL_GET_ENTITY_STATUS", 705},
    {"IO_CTRL", "PDU_IOCTL_RESET", 706},
};
struct ComParam {
    const char* name;
    int id;
    const char* type;
    const char* param_class;
    const char* initial;
};
constexpr ComParam kComParams[] = {
    {"CP_P2Max", 901, "UNUM32", "TIMING", "150000"},
    {"CP_P2Star", 902, "UNUM32", "TIMING", "5000000"},
    {"CP_RequestAddrMode", 903, "UNUM8", "COM", "1"},
    {"CP_CanFuncReqId", 904, "UNUM32", "COM", "0"},
    {"CP_CanPhysReqId", 905, "UNUM32", "UNIQUE_ID", "0"},
    {"CP_CanPhysReqFormat", 906, "UNUM32", "UNIQUE_ID", "0"},
    {"CP_CanRespUSDTId", 907, "UNUM32", "UNIQUE_ID", "0"},
    {"CP_CanRespUSDTFormat", 908, "UNUM32", "UNIQUE_ID", "0"},
    {"CP_CanRespUUDTId", 909, "UNUM32", "UNIQUE_ID", "0xFFFFFFFF"},
    {"CP_TesterPresentHandling", 910, "UNUM32", "TESTER_PRESENT", "1"},
    {"CP_TesterPresentTime", 911, "UNUM32", "TESTER_PRESENT", "2000000"},
    {"CP_TesterPresentMessage", 912, "BYTEFIELD", "TESTER_PRESENT", "12 2 62 128"},
    {"CP_CanBaudrateRecord", 913, "LONGFIELD", "BUSTYPE", "4 2 500000 250000"},
    {"CP_SessionTimingOverride", 914, "STRUCTFIELD", "TIMING", "1 2 1 769 0 50 1 244"},
    {"CP_T1Max", 915, "SNUM16", "TIMING", "-3"},
    {"CP_Baudrate", 916, "UNUM32", "BUSTYPE", "500000"},
};

std::string Labelled(const Object& object, const std::string& more = "") {
    const std::string element = object.element;
    return "<" + element + " EID=\"ID_" + object.name + "\"><ID>" + std::to_string(object.id) +
           "</ID><SHORT_NAME>" + object.name + "</SHORT_NAME><DESCRIPTION>d</DESCRIPTION>" + more +
           "</" + element + ">\n";
}

std::string UseOf(const std::string& element, const std::string& name) {
    return "<" + element + " IDREF=\"ID_" + name + "\"/>";
}

std::string GoodModuleDescription() {
    std::string text =
        "<MVCI_MODULE_DESCRIPTION FILE_VERSION=\"1.0.0\" MVCI_PART2_STANDARD_VERSION=\"2.2.0\">\n"
        "<DESCRIPTION>Other's</DESCRIPTION>\n<SUPPLIER_NAME>Other</SUPPLIER_NAME>\n";
    for (const Object& object : kObjects)
        text += Labelled(object);
    for (const ComParam& param : kComParams) {
        text += Labelled({"COMPARAM", param.name, param.id},
                         std::string("<DATA_TYPE>PDU_PT_") + param.type +
                             "</DATA_TYPE><DEFAULT_VALUE>" + param.initial +
                             "</DEFAULT_VALUE><CLASS>PDU_PC_" + param.param_class +
                             "</CLASS><LAYER>PDU_PL_TRANSPORT</LAYER>");
    }
    text += Labelled({"BUSTYPE", "ISO_11898_2_DWCAN", 72},
                     "<COMPARAM_REF><DEFAULT_VALUE>500000</DEFAULT_VALUE>"
                     "<MIN_VALUE>10000</MIN_VALUE><MAX_VALUE>1000000</MAX_VALUE>" +
                         UseOf("COMPARAM", "CP_Baudrate") + "</COMPARAM_REF>");
    text += Labelled({"PROTOCOL", "ISO_11898_RAW", 73});
    text += Labelled({"PROTOCOL", "ISO_15765_3_on_ISO_15765_2", 71});
    text +=
        "<RESOURCE EID=\"ID_CAN\"><ID>5</ID><SHORT_NAME>CAN</SHORT_NAME>"
        "<DESCRIPTION>d</DESCRIPTION><PIN_ON_MODULE><PIN_ON_MODULE>6</PIN_ON_MODULE>" +
        UseOf("PINTYPE", "HI") + "</PIN_ON_MODULE>" + UseOf("BUSTYPE", "ISO_11898_2_DWCAN") +
        UseOf("PROTOCOL", "ISO_15765_3_on_ISO_15765_2") + "</RESOURCE>\n";
    text += "<MODULETYPE><ID>9</ID><SHORT_NAME>Probe</SHORT_NAME><DESCRIPTION>d</DESCRIPTION>" +
            UseOf("IO_CTRL", "PDU_IOCTL_RESET") + UseOf("RESOURCE", "CAN") + "</MODULETYPE>\n";
    return text +
           "<ERROR_CODE><ID>0</ID><SHORT_NAME>NONE</SHORT_NAME><DESCRIPTION>d</DESCRIPTION>"
           "</ERROR_CODE>\n</MVCI_MODULE_DESCRIPTION>\n";
}

constexpr char kGoodCables[] =
    "<MVCI_CABLE_DESCRIPTION FILE_VERSION=\"1.0.0\" MVCI_PART2_STANDARD_VERSION=\"2.2.0\">\n"
    "<CABLE><SHORT_NAME>A</SHORT_NAME><DESCRIPTION>d</DESCRIPTION><CABLE_IDENTIFICATION>"
    "<CABLE_ID>1</CABLE_ID></CABLE_IDENTIFICATION></CABLE>\n"
    "<CABLE><SHORT_NAME>B</SHORT_NAME><DESCRIPTION>d</DESCRIPTION><CABLE_IDENTIFICATION>"
    "<CABLE_ID>0x2</CABLE_ID></CABLE_IDENTIFICATION></CABLE>\n</MVCI_CABLE_DESCRIPTION>\n";

// Every occurrence; the test fails if there is none.
std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    EXPECT_TRUE(Contains(text, from)) << from;
    for (std::size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

std::string Text(const fs::path& path) { return TextOf(path); }

class RootCheck : public testing::Test {
protected:
    void SetUp() override {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        Write("mdf.xml", GoodModuleDescription());
        Write("cdf.xml", kGoodCables);
    }
    void TearDown() override { fs::remove_all(folder_); }

    std::string Write(const std::string& name, const std::string& text) const {
        std::ofstream(folder_ / name, std::ios::binary) << text;
        return Text(folder_ / name);
    }
    std::string Uri(const std::string& name) const {
        return dpdu::root::UriOfPath(Text(folder_ / name));
    }

    // Without a blank or a character of another language: that is a fault of its own.
    const fs::path folder_ = PathOf(testing::TempDir()) /
                             ("dpdu_check_" + std::to_string(OwnProcessId()) + "_" +
                              testing::UnitTest::GetInstance()->current_test_info()->name());
};

// "subject: text" of those with this verdict.
Texts TextsOf(Verdict verdict, const Findings& findings) {
    Texts texts;
    for (const Finding& finding : findings) {
        if (finding.verdict == verdict) texts.push_back(finding.subject + ": " + finding.text);
    }
    return texts;
}

std::string Joined(const Texts& texts) {
    std::string all;
    for (const std::string& text : texts)
        all += text + "\n";
    return all;
}

void ExpectOne(const Texts& texts, const std::string& wanted) {
    EXPECT_EQ(texts.size(), 1u) << Joined(texts);
    EXPECT_TRUE(Contains(Joined(texts), wanted)) << Joined(texts) << "wanted: " << wanted;
}

// ---------------------------------------------------------------- module descriptions

struct Fault {
    const char* from;
    const char* to;
    const char* finding;
};

class ModuleDescriptionCheck : public RootCheck {
protected:
    Findings FindingsIn(const std::string& text) const {
        Findings findings;
        check::CheckModuleDescription(Write("mdf.xml", text), &findings);
        return findings;
    }
};

TEST_F(ModuleDescriptionCheck, FileWithoutFaultsHasOnlyFineLines) {
    const Findings findings = FindingsIn(GoodModuleDescription());
    EXPECT_EQ(TextsOf(Verdict::kFine, findings),
              (Texts{"module description: 29 objects of known kinds",
                     "references: 29 labels, 6 references to them",
                     "values: types, classes, layers and numbers of 16 ComParams"}));
    EXPECT_EQ(findings.size(), 3u);
}

constexpr Fault kModuleFaults[] = {
    {"</MVCI_MODULE_DESCRIPTION>", "", "mdf.xml, line 36: no element found"},
    {"Other's", "Other\xE9", "mdf.xml, line 2: not well-formed (invalid token)"},
    {"MVCI_MODULE_DESCRIPTION", "MVCI_CABLE_DESCRIPTION",
     "the root element is MVCI_CABLE_DESCRIPTION, not MVCI_MODULE_DESCRIPTION"},
    {" FILE_VERSION=\"1.0.0\"", "", "has no attribute FILE_VERSION"},
    {" MVCI_PART2_STANDARD_VERSION=\"2.2.0\"", "", "has no attribute MVCI_PART2_STANDARD_VERSION"},
    {"\"2.2.0\"", "\"2.2\"", "MVCI_PART2_STANDARD_VERSION '2.2' is no version"},
    {"<SUPPLIER_NAME>Other</SUPPLIER_NAME>", "", "has no SUPPLIER_NAME"},
    {"<SUPPLIER_NAME>Other", "<EXTRA/>\n<SUPPLIER_NAME>Other",
     "line 3: EXTRA is none of the ten kinds"},
    {"<ERROR_CODE>",
     "<PINTYPE EID=\"K\"><ID>83</ID><SHORT_NAME>K</SHORT_NAME><DESCRIPTION>d</DESCRIPTION>"
     "</PINTYPE><ERROR_CODE>",
     "line 34: PINTYPE is not next to the others of its kind"},
    {"<IO_CTRL IDREF=\"ID_PDU_IOCTL_RESET\"/><RESOURCE IDREF=\"ID_CAN\"/>",
     "<IO_CTRL IDREF=\"ID_PDU_IOCTL_RESET\"/><RESOURCE IDREF=\"ID_CAN\"/>"
     "<IO_CTRL IDREF=\"ID_PDU_IOCTL_GENERIC\"/>",
     "line 33: IO_CTRL is not next to the others of its kind"},
    {"<ID>81</ID>", "", "line 4: PINTYPE HI has no ID"},
    {"<ID>81</ID>", "<ID>81</ID><ID>81</ID>", "line 4: PINTYPE HI has ID 2 times"},
    {"<ID>81</ID>", "<ID>eighty</ID>", "line 4: PINTYPE HI: ID 'eighty' is no number"},
    {"<ID>81</ID>", "<ID>-81</ID>", "line 4: PINTYPE HI: ID -81 is negative"},
    {"<ID>81</ID>", "<ID>0x100000000</ID>", "ID '0x100000000' is no number"},
    {"<SHORT_NAME>HI</SHORT_NAME>", "", "line 4: PINTYPE has no SHORT_NAME"},
    {"<SHORT_NAME>HI<", "<SHORT_NAME>HI <", "PINTYPE HI: SHORT_NAME has blanks"},
    {"<SHORT_NAME>LOW<", "<SHORT_NAME>HI<", "line 5: PINTYPE HI is there a second time"},
    {"<SHORT_NAME>Probe</SHORT_NAME>", "", "line 33: MODULETYPE has no SHORT_NAME"},
    {"<ID>9</ID>", "<ID>nine</ID>", "MODULETYPE Probe: ID 'nine' is no number"},
    {"<ID>0</ID>", "", "line 34: ERROR_CODE NONE has no ID"},
    // references
    {" EID=\"ID_LOW\"", "", "line 5: PINTYPE LOW has no attribute EID"},
    {"EID=\"ID_LOW\"", "EID=\"1LOW\"", "PINTYPE LOW: EID '1LOW' is no legal label"},
    {"EID=\"ID_LOW\"", "EID=\"ID:LOW\"", "PINTYPE LOW: EID 'ID:LOW' is no legal label"},
    {"EID=\"ID_LOW\"", "EID=\"ID_HI\"", "line 5: PINTYPE LOW: EID 'ID_HI' is there a second time"},
    {"IDREF=\"ID_HI\"", "IDREF=\"ID_HIGH\"", "PINTYPE: IDREF 'ID_HIGH' is no EID of the file"},
    {"IDREF=\"ID_HI\"", "IDREF=\"ID_CAN\"", "PINTYPE: IDREF 'ID_CAN' is the EID of a RESOURCE"},
    {" IDREF=\"ID_HI\"", "", "line 32: PINTYPE has no attribute IDREF"},
    {"<COMPARAM IDREF=\"ID_CP_Baudrate\"/>", "", "COMPARAM_REF in line 29 has 0 of COMPARAM"},
    {"<BUSTYPE IDREF=\"ID_ISO_11898_2_DWCAN\"/>", "", "RESOURCE in line 32 has 0 of BUSTYPE"},
    {"<PIN_ON_MODULE>6</PIN_ON_MODULE>", "<PIN_ON_MODULE>six</PIN_ON_MODULE>",
     "PIN_ON_MODULE 'six' is no number"},
    {"IDREF=\"ID_PDU_IOCTL_RESET\"", "IDREF=\"ID_HI\"", "IO_CTRL: IDREF 'ID_HI' is the EID of a"},
    // values
    {"PDU_PT_SNUM16", "SNUM16", "COMPARAM CP_T1Max: DATA_TYPE 'SNUM16' is unknown"},
    {"<DEFAULT_VALUE>1</DEFAULT_VALUE><CLASS>PDU_PC_COM<",
     "<DEFAULT_VALUE>1</DEFAULT_VALUE><CLASS>PDU_PC_COMM<",
     "COMPARAM CP_RequestAddrMode: CLASS 'PDU_PC_COMM' is unknown"},
    {"-3</DEFAULT_VALUE><CLASS>PDU_PC_TIMING</CLASS><LAYER>PDU_PL_TRANSPORT<",
     "-3</DEFAULT_VALUE><CLASS>PDU_PC_TIMING</CLASS><LAYER>TRANSPORT<",
     "COMPARAM CP_T1Max: LAYER 'TRANSPORT' is unknown"},
    {"<DATA_TYPE>PDU_PT_SNUM16</DATA_TYPE>", "", "COMPARAM CP_T1Max has no DATA_TYPE"},
    {"-3<", "three<", "COMPARAM CP_T1Max: DEFAULT_VALUE 'three' is no number"},
    {"-3<", "-32769<", "DEFAULT_VALUE -32769 does not fit into PDU_PT_SNUM16"},
    {"12 2 62 128", "12 3 62 128", "DEFAULT_VALUE '12 3 62 128' is no field"},
    {"12 2 62 128", "1 2 62 128", "DEFAULT_VALUE '1 2 62 128' is no field"},
    {"12 2 62 128", "12 2 62 256", "has values that do not fit into PDU_PT_BYTEFIELD"},
    {"4 2 500000 250000", "4 2 500000 fast", "a value of DEFAULT_VALUE 'fast' is no number"},
    {"<MIN_VALUE>10000<", "<MIN_VALUE>low<", "MIN_VALUE 'low' is no number"},
    {"<MIN_VALUE>10000<", "<MIN_VALUE>2000000<", "MIN_VALUE is larger than MAX_VALUE"},
    {"<MIN_VALUE>10000</MIN_VALUE>", "<MIN_VALUE>1</MIN_VALUE><MIN_VALUE>2</MIN_VALUE>",
     "has MIN_VALUE 2 times"},
    {"<COMPARAM_REF><DEFAULT_VALUE>500000</DEFAULT_VALUE>", "<COMPARAM_REF>",
     "COMPARAM_REF has no DEFAULT_VALUE"},
};

TEST_F(ModuleDescriptionCheck, EachFaultIsOneFinding) {
    for (const Fault& fault : kModuleFaults) {
        SCOPED_TRACE(std::string(fault.from) + " -> " + fault.to);
        const Findings findings =
            FindingsIn(Replaced(GoodModuleDescription(), fault.from, fault.to));
        ExpectOne(TextsOf(Verdict::kWrong, findings), fault.finding);
        EXPECT_TRUE(TextsOf(Verdict::kNote, findings).empty());
    }
}

TEST_F(ModuleDescriptionCheck, ObjectsThatShareAnIdAreNoted) {
    const Findings findings =
        FindingsIn(Replaced(GoodModuleDescription(), "<ID>73</ID>", "<ID>71</ID>"));
    ExpectOne(TextsOf(Verdict::kNote, findings),
              "PROTOCOL ISO_15765_3_on_ISO_15765_2 has the same ID 71 as ISO_11898_RAW");
    EXPECT_EQ(TextsOf(Verdict::kWrong, findings), Texts{});
}

TEST_F(ModuleDescriptionCheck, ResourceMayNotReferToTheFirstOfThoseThatShareAnId) {
    const std::string shared = Replaced(GoodModuleDescription(), "<ID>73</ID>", "<ID>71</ID>");
    const Findings findings =
        FindingsIn(Replaced(shared, "<PROTOCOL IDREF=\"ID_ISO_15765_3_on_ISO_15765_2\"/>",
                            "<PROTOCOL IDREF=\"ID_ISO_11898_RAW\"/>"));
    ExpectOne(TextsOf(Verdict::kWrong, findings),
              "has the same ID 71 as ISO_11898_RAW, which a RESOURCE refers to");
}

TEST_F(ModuleDescriptionCheck, InitialValueOutsideOfItsLimitsIsNoted) {
    const Findings findings =
        FindingsIn(Replaced(GoodModuleDescription(), "<MIN_VALUE>10000<", "<MIN_VALUE>600000<"));
    ExpectOne(TextsOf(Verdict::kNote, findings), "DEFAULT_VALUE 500000 is outside of its limits");
    EXPECT_EQ(TextsOf(Verdict::kWrong, findings), Texts{});
}

// ---------------------------------------------------------------- cable descriptions

class CableDescriptionCheck : public RootCheck {
protected:
    Findings FindingsIn(const std::string& text) const {
        Findings findings;
        check::CheckCableDescription(Write("cdf.xml", text), &findings);
        return findings;
    }
};

TEST_F(CableDescriptionCheck, FileWithoutFaultsHasOneFineLine) {
    const Findings findings = FindingsIn(kGoodCables);
    EXPECT_EQ(TextsOf(Verdict::kFine, findings), Texts{"cable description: 2 cables"});
    EXPECT_EQ(findings.size(), 1u);
}

constexpr Fault kCableFaults[] = {
    {"</MVCI_CABLE_DESCRIPTION>", "", "cdf.xml, line 5: no element found"},
    {"MVCI_CABLE_DESCRIPTION", "MVCI_PDU_API_ROOT", "the root element is MVCI_PDU_API_ROOT"},
    {"<SHORT_NAME>A</SHORT_NAME><DESCRIPTION>d</DESCRIPTION>", "<SHORT_NAME>A</SHORT_NAME>",
     "line 2: CABLE A has no DESCRIPTION"},
    {"<CABLE_ID>1</CABLE_ID>", "", "line 2: CABLE_IDENTIFICATION has no CABLE_ID"},
    {"<CABLE_IDENTIFICATION><CABLE_ID>1</CABLE_ID></CABLE_IDENTIFICATION>", "",
     "line 2: CABLE A has CABLE_IDENTIFICATION 0 times"},
    {"<CABLE_ID>1<", "<CABLE_ID>one<", "CABLE_ID 'one' is no number"},
    {"<CABLE_ID>1<", "<CABLE_ID>2<", "line 3: CABLE B: CABLE_ID 2 is there a second time"},
};

TEST_F(CableDescriptionCheck, EachFaultIsOneFinding) {
    for (const Fault& fault : kCableFaults) {
        SCOPED_TRACE(std::string(fault.from) + " -> " + fault.to);
        const Findings findings = FindingsIn(Replaced(kGoodCables, fault.from, fault.to));
        ExpectOne(TextsOf(Verdict::kWrong, findings), fault.finding);
    }
}

// ---------------------------------------------------------------- entries

class EntryCheck : public RootCheck {
protected:
    std::string GoodEntry() const {
        return "<MVCI_PDU_API>\n<SHORT_NAME>Other_7_8_9</SHORT_NAME>\n"
               "<DESCRIPTION>d</DESCRIPTION>\n<SUPPLIER_NAME>Other</SUPPLIER_NAME>\n"
               "<LIBRARY_FILE URI=\"" +
               Uri("library.so") + "\"/>\n<MODULE_DESCRIPTION_FILE URI=\"" + Uri("mdf.xml") +
               "\"/>\n<CABLE_DESCRIPTION_FILE URI=\"" + Uri("cdf.xml") + "\"/>\n</MVCI_PDU_API>";
    }
    void SetUp() override {
        RootCheck::SetUp();
        Write("library.so", "");
    }
    // Without those about rights, which depend on the folder that the tests run in.
    Findings FindingsIn(const std::string& entry) {
        Findings findings;
        files_ = check::CheckEntry(dpdu::xml::Parse(entry).root, &findings);
        std::erase_if(findings, [](const Finding& finding) { return finding.subject == "rights"; });
        return findings;
    }

    check::EntryFiles files_;  // of the last entry
};

TEST_F(EntryCheck, EntryWithoutFaultsHasOnlyFineLines) {
    const Findings findings = FindingsIn(GoodEntry());
    EXPECT_EQ(TextsOf(Verdict::kFine, findings),
              (Texts{"entry: all six elements are there once",
                     "addresses: applications accept them", "files: 3 files are there"}));
    EXPECT_EQ(findings.size(), 3u);
    EXPECT_EQ(PathOf(files_.library), folder_ / "library.so");
    EXPECT_EQ(PathOf(files_.module_description), folder_ / "mdf.xml");
    EXPECT_EQ(PathOf(files_.cable_description), folder_ / "cdf.xml");
}

TEST_F(EntryCheck, NothingIsSaidOfAddressesThatAreNotThere) {
    const Findings findings =
        FindingsIn("<MVCI_PDU_API><SHORT_NAME>Other_7_8_9</SHORT_NAME></MVCI_PDU_API>");
    EXPECT_EQ(TextsOf(Verdict::kWrong, findings).size(), 5u);
    EXPECT_EQ(TextsOf(Verdict::kFine, findings), Texts{});
}

TEST_F(EntryCheck, EachElementThatIsMissingIsFound) {
    for (const std::string name : {"SHORT_NAME", "DESCRIPTION", "SUPPLIER_NAME", "LIBRARY_FILE",
                                   "MODULE_DESCRIPTION_FILE", "CABLE_DESCRIPTION_FILE"}) {
        const std::string entry = GoodEntry();
        const std::size_t begin = entry.find("<" + name);
        std::string without = entry;
        without.erase(begin, entry.find('\n', begin) - begin);
        ExpectOne(TextsOf(Verdict::kWrong, FindingsIn(without)), "entry: " + name + " is missing");
        const std::string element = entry.substr(begin, entry.find('\n', begin) - begin);
        ExpectOne(TextsOf(Verdict::kWrong, FindingsIn(Replaced(entry, element, element + element))),
                  "entry: " + name + " is there 2 times");
    }
}

constexpr Fault kEntryFaults[] = {
    {"<DESCRIPTION>d<", "<DESCRIPTION> <", "entry: DESCRIPTION is empty"},
    {"<SHORT_NAME>", "<SHORT_NAME>\n", "entry: SHORT_NAME has blanks or line ends around"},
    {"LIBRARY_FILE URI=", "LIBRARY_FILE URL=", "addresses: LIBRARY_FILE has no attribute URI"},
};

TEST_F(EntryCheck, FaultyTextsAndAttributesAreFound) {
    for (const Fault& fault : kEntryFaults) {
        SCOPED_TRACE(std::string(fault.from) + " -> " + fault.to);
        const Findings findings = FindingsIn(Replaced(GoodEntry(), fault.from, fault.to));
        ExpectOne(TextsOf(Verdict::kWrong, findings), fault.finding);
    }
}

TEST_F(EntryCheck, AddressesThatNoApplicationAcceptsAreFound) {
    const std::string good = Uri("library.so");
    const std::string path = good.substr(std::string("file:///").size());
    const std::pair<std::string, std::string> rows[] = {
        {"", "it does not begin with file:///"},
        {"library.so", "it does not begin with file:///"},
        {"http://host/library.so", "it does not begin with file:///"},
        {"file:/" + path, "it does not begin with file:///"},
        {"file://host/" + path, "it has the name of a host"},
        {"file:////host/" + path, "it has the name of a host"},
        {Replaced(good, "/library.so", "/../library.so"), "it contains '..'"},
        {good + "?x=1", "it contains '?'"},
        {good + "#x", "it contains '#'"},
        {Replaced(good, "/library.so", "\\library.so"), "it contains '\\'"},
    };
    for (const auto& [uri, fault] : rows) {
        const Findings findings = FindingsIn(Replaced(GoodEntry(), good, uri));
        ExpectOne(TextsOf(Verdict::kWrong, findings),
                  "addresses: LIBRARY_FILE '" + uri + "': " + fault);
        EXPECT_EQ(files_.library, "");
    }
}

TEST_F(EntryCheck, BlanksAndPercentSignsInAddressesAreNoted) {
    for (const std::string name : {"other library.so", "other%20library.so"}) {
        Write(name, "");
        const std::string uri = Replaced(Uri("library.so"), "library.so", name);
        const Findings findings = FindingsIn(Replaced(GoodEntry(), Uri("library.so"), uri));
        EXPECT_EQ(TextsOf(Verdict::kWrong, findings), Texts{});
        ExpectOne(TextsOf(Verdict::kNote, findings), "addresses: LIBRARY_FILE '" + uri + "'");
        EXPECT_EQ(PathOf(files_.library), folder_ / name);
    }
}

TEST_F(EntryCheck, FilesThatAreMissingOrNoFilesAreFound) {
    fs::remove(folder_ / "cdf.xml");
    ExpectOne(TextsOf(Verdict::kWrong, FindingsIn(GoodEntry())), "cdf.xml is missing");
    EXPECT_EQ(files_.cable_description, "");
    fs::create_directory(folder_ / "cdf.xml");
    ExpectOne(TextsOf(Verdict::kWrong, FindingsIn(GoodEntry())), "cdf.xml is not a file");
}

TEST_F(EntryCheck, UnknownElementIsNoted) {
    ExpectOne(TextsOf(Verdict::kNote,
                      FindingsIn(Replaced(GoodEntry(), "<LIBRARY_FILE", "<X/><LIBRARY_FILE"))),
              "line 5: X is no known element of an entry");
}

// ---------------------------------------------------------------- kinds of libraries

// Headers with what is read of them.
std::string Elf(char bits, char machine) {
    std::string header = std::string("\x7F") + "ELF" + bits + "\1\1";
    header.resize(64);
    header[16] = 3;
    header[18] = machine;
    return header;
}

std::string Pe(const std::string& machine, const std::string& optional_magic) {
    std::string file = "MZ";
    file.resize(0x80);
    file[0x3C] = '\x80';
    file += std::string("PE\0\0", 4) + machine;
    file.resize(0x80 + 22);
    return file + std::string("\0\x20", 2) + optional_magic + std::string(64, '\0');
}

TEST_F(RootCheck, KindOfALibraryIsReadFromTheHeadersOfBothSystems) {
    const std::pair<std::string, std::string> rows[] = {
        {Elf(1, 3), "32-bit Linux library for x86"},
        {Elf(2, 62), "64-bit Linux library for x86-64"},
        {Elf(2, '\xB7'), "64-bit Linux library for ARM64"},
        {Pe("\x4C\x01", "\x0B\x01"), "32-bit Windows library for x86"},
        {Pe("\x64\x86", "\x0B\x02"), "64-bit Windows library for x86-64"},
        {Elf(2, 62).substr(0, 19), "neither a Linux nor a Windows library"},
        {Pe("\x64\x86", "\x0B\x02").substr(0, 0x90), "neither a Linux nor a Windows library"},
        {"", "neither a Linux nor a Windows library"},
        {"#!/bin/sh\n" + std::string(100, ' '), "neither a Linux nor a Windows library"},
    };
    for (const auto& [bytes, kind] : rows)
        EXPECT_EQ(check::KindText(check::ReadProgramKind(Write("library", bytes))), kind);
}

// ---------------------------------------------------------------- the command

// Root files that name libraries which are there.
class RootCheckCommand : public RootCheck {
protected:
    struct EntryText {
        std::string name = "Other_7_8_9";
        std::string library = FAKE_LIBRARY;
        std::string module_description = "mdf.xml";
    };

    std::string TextOfEntry(const EntryText& entry) const {
        return "<MVCI_PDU_API><SHORT_NAME>" + entry.name +
               "</SHORT_NAME><DESCRIPTION>d</DESCRIPTION><SUPPLIER_NAME>Other</SUPPLIER_NAME>"
               "<LIBRARY_FILE URI=\"" +
               dpdu::root::UriOfPath(Text(fs::absolute(PathOf(entry.library)))) +
               "\"/><MODULE_DESCRIPTION_FILE URI=\"" + Uri(entry.module_description) +
               "\"/><CABLE_DESCRIPTION_FILE URI=\"" + Uri("cdf.xml") + "\"/></MVCI_PDU_API>\n";
    }
    std::string RootText(const std::vector<EntryText>& entries) const {
        std::string text = "<MVCI_PDU_API_ROOT MVCI_PART2_STANDARD_VERSION=\"2.2.0\">\n";
        for (const EntryText& entry : entries)
            text += TextOfEntry(entry);
        return text + "</MVCI_PDU_API_ROOT>\n";
    }

    struct Run {
        std::string text;      // of the root file
        std::string scenario;  // of the fake library
        Texts more = {};       // arguments
        bool is_released = true;
    };
    ClientResult Check(const Run& run) const {
        ClientSetup setup;
        setup.arguments = {"root", "check", "--root", Write("root.xml", run.text), "--wait", "0"};
        setup.arguments.insert(setup.arguments.end(), run.more.begin(), run.more.end());
        setup.scenario = run.scenario;
        setup.is_released = run.is_released;
        return RunClient(setup);
    }
    Json CheckJson(Run run) const {
        run.more.emplace_back("--json");
        const ClientResult result = Check(run);
        const Json document = Document(result);
        EXPECT_EQ(result.exit_code, document["wrong"] == 0 ? kOk : kFailure);
        return document;
    }

    static Texts InJson(const char* state, const Json& findings) {
        Texts texts;
        for (const Json& finding : findings) {
            if (finding["state"] != state || finding["subject"] == "rights") continue;
            texts.push_back(finding["subject"].get<std::string>() + ": " +
                            finding["text"].get<std::string>());
        }
        return texts;
    }
    // What is wrong with the only library.
    Texts Wrong(const Run& run) const {
        const Json document = CheckJson(run);
        EXPECT_EQ(document["libraries"].size(), 1u);
        EXPECT_EQ(InJson("WRONG", document["findings"]), Texts{});
        return InJson("WRONG", document["libraries"][0]["findings"]);
    }
};

TEST_F(RootCheckCommand, VendorWithoutFaultsHasOnlyFineLines) {
    const Json document = CheckJson({RootText({{}}), ""});
    EXPECT_EQ(InJson("ok", document["findings"]), Texts{"root file: lists 1 library"});
    const Json& findings = document["libraries"][0]["findings"];
    EXPECT_EQ(document["libraries"][0]["name"], "Other_7_8_9");
    EXPECT_EQ(InJson("WRONG", findings), Texts{});
    EXPECT_EQ(InJson("note", findings), Texts{});
    const Texts fine = InJson("ok", findings);
    ASSERT_EQ(fine.size(), 12u) << Joined(fine);
    EXPECT_TRUE(fine[7].ends_with("library for x86-64, all 29 functions")) << fine[7];
    EXPECT_EQ(Texts(fine.begin() + 8, fine.end()),
              (Texts{"names and ids: 29 as the library says",
                     "ComParams: types and classes of 16 as the library says",
                     "module types: the id of the module is described",
                     "versions: library 7.8.9, ISO 22900-2 2.2.0"}));
    EXPECT_EQ(document["wrong"], 0);
}

TEST_F(RootCheckCommand, WhatTheLibraryAnswersOtherwiseIsFound) {
    const std::string pin_without_a_library = Labelled({"PINTYPE", "NEVER", 83});
    const Fault faults[] = {
        {"<ID>901<", "<ID>900<",
         "names and ids: line 13: COMPARAM CP_P2Max: the ID is 900, the library says 901"},
        {"<IO_CTRL EID=\"ID_PDU_IOCTL_READ_VBATT\"", nullptr,
         "names and ids: line 6: PINTYPE NEVER: the library does not know the name"},
        {"<PINTYPE EID=\"ID_LOW\"><ID>82</ID><SHORT_NAME>LOW</SHORT_NAME><DESCRIPTION>d"
         "</DESCRIPTION></PINTYPE>",
         "", "the library knows 1 of PINTYPE that the module description lacks: LOW 82"},
        {"PDU_PT_SNUM16", "PDU_PT_SNUM32",
         "ComParams: line 27: COMPARAM CP_T1Max: DATA_TYPE is PDU_PT_SNUM32, the library says "
         "PDU_PT_SNUM16"},
        {"-3</DEFAULT_VALUE><CLASS>PDU_PC_TIMING", "-3</DEFAULT_VALUE><CLASS>PDU_PC_COM",
         "COMPARAM CP_T1Max: CLASS is PDU_PC_COM, the library says PDU_PC_TIMING"},
        {"<ID>9</ID>", "<ID>8</ID>", "module types: no MODULETYPE has the id 9"},
        {"\"2.2.0\"", "\"2.2.1\"",
         "versions: the module description is for ISO 22900-2 version 2.2.1, the library for "
         "2.2.0"},
    };
    std::vector<EntryText> entries;
    Texts wanted;
    for (const Fault& fault : faults) {
        const std::string name = "Other" + std::to_string(entries.size()) + "_7_8_9";
        const std::string to = fault.to != nullptr ? fault.to : pin_without_a_library + fault.from;
        Write(name + ".xml", Replaced(GoodModuleDescription(), fault.from, to));
        entries.push_back({.name = name, .module_description = name + ".xml"});
        wanted.emplace_back(fault.finding);
    }
    entries.push_back({.name = "Other_7_8_8"});
    wanted.emplace_back("versions: SHORT_NAME has the version 7.8.8, the library is 7.8.9");

    const Json document = CheckJson({RootText(entries), ""});
    ASSERT_EQ(document["libraries"].size(), wanted.size());
    for (std::size_t i = 0; i < wanted.size(); ++i)
        ExpectOne(InJson("WRONG", document["libraries"][i]["findings"]), wanted[i]);
    EXPECT_EQ(document["wrong"], wanted.size());
}

TEST_F(RootCheckCommand, NameWithoutAVersionIsNotCompared) {
    EXPECT_EQ(Wrong({RootText({{.name = "Other"}}), ""}), Texts{});
    EXPECT_EQ(Wrong({RootText({{.name = "Other_new_7_8"}}), ""}), Texts{});
}

TEST_F(RootCheckCommand, ComParamsThatNoDescribedLinkHasAreFound) {
    std::string text = GoodModuleDescription();
    const std::size_t begin = text.find("<RESOURCE EID");
    text.erase(begin, text.find("</RESOURCE>") + std::string("</RESOURCE>").size() - begin);
    Write("mdf.xml", Replaced(text, "<RESOURCE IDREF=\"ID_CAN\"/>", ""));
    ExpectOne(Wrong({RootText({{}}), ""}),
              "ComParams: PDUGetComParam returns PDU_ERR_INVALID_HANDLE (0x60) for 16: CP_P2Max, ");
}

TEST_F(RootCheckCommand, WhatNeedsAModuleIsNotedIfThereIsNone) {
    const Json document = CheckJson({RootText({{}}), "no-module"});
    const Json& findings = document["libraries"][0]["findings"];
    EXPECT_EQ(InJson("WRONG", findings), Texts{});
    EXPECT_EQ(InJson("note", findings),
              (Texts{"ComParams: 16 cannot be compared: the library has them on links only",
                     "module: none was found: its type and the versions cannot be compared"}));
}

TEST_F(RootCheckCommand, LibraryThatRefusesToStartIsFound) {
    ExpectOne(Wrong({RootText({{}}), "refuses-construct"}),
              "library: PDUConstruct failed with PDU_ERR_FCT_FAILED");
}

TEST_F(RootCheckCommand, LinkThatAnotherProgramHasIsNoFaultOfTheDescription) {
    const Json document = CheckJson({RootText({{}}), "refuses-link"});
    const Json& findings = document["libraries"][0]["findings"];
    EXPECT_EQ(InJson("WRONG", findings), Texts{});
    ExpectOne(InJson("note", findings),
              "ComParams: 16 cannot be compared: PDUCreateComLogicalLink failed with "
              "PDU_ERR_RESOURCE_BUSY");
}

// ---------------------------------------------------------------- libraries that take a process
// down

constexpr char kLookUp[] = "in PDUGetObjectId of the PROTOCOL ISO_11898_RAW";

TEST_F(RootCheckCommand, LibraryThatCrashesIsFoundAndTheNextOneChecked) {
    const EntryText next = {.name = "Next_1_0_0", .library = INCOMPLETE_LIBRARY};
    const Json document =
        CheckJson({RootText({{}, next}), "crashes-in-lookup", {}, /*is_released=*/false});
    const Texts first = InJson("WRONG", document["libraries"][0]["findings"]);
    ExpectOne(first, std::string("library: the library ended the process ") + kLookUp + " (");
    EXPECT_FALSE(Contains(Joined(first), "exit code 0")) << Joined(first);
    // Nothing is said of what was not answered.
    EXPECT_FALSE(Contains(Joined(InJson("ok", document["libraries"][0]["findings"])), "names"));
    ExpectOne(InJson("WRONG", document["libraries"][1]["findings"]),
              "lacks 27 of 29 functions: PDUIoCtl, PDUGetVersion, ");
}

TEST_F(RootCheckCommand, LibraryThatEndsTheProcessIsFound) {
    ExpectOne(Wrong({RootText({{}}), "exits-in-lookup", {}, false}),
              std::string("the library ended the process ") + kLookUp + " (exit code 0)");
}

TEST_F(RootCheckCommand, LibraryThatNeverReturnsIsFound) {
    ExpectOne(Wrong({RootText({{}}), "hangs-in-lookup", {"--limit", "3"}, false}),
              std::string("library: the library did not answer for 3 s ") + kLookUp);
}

TEST_F(RootCheckCommand, LibraryThatKeepsTheProcessFromEndingIsFound) {
    ExpectOne(Wrong({RootText({{}}), "hangs-at-end", {"--limit", "3"}}),
              "library: the library kept the process from ending for 3 s");
}

TEST_F(RootCheckCommand, InterruptionEndsTheCheckOfALibraryThatHangs) {
    ClientSetup setup;
    setup.arguments = {"root",    "check", "--root", Write("root.xml", RootText({{}})),
                       "--limit", "600"};
    setup.scenario = "hangs-in-lookup";
    setup.is_released = false;
    setup.interrupt_when = "construct without options";
    ExpectFailure(RunClient(setup), "interrupted", kInterrupted);
}

// ---------------------------------------------------------------- files that cannot be loaded

TEST_F(RootCheckCommand, LibrariesThatThisProcessCannotLoadAreFound) {
    using Format = check::ProgramKind::Format;
    const bool is_elf = check::ReadProgramKind(DPDU_PROGRAM).format == Format::kElf;
    const std::string wide = is_elf ? Elf(2, 62) : Pe("\x64\x86", "\x0B\x02");
    std::string program = wide;
    program[is_elf ? 16 : 0x80 + 23] = is_elf ? '\2' : '\0';
    const std::pair<std::string, std::string> rows[] = {
        {is_elf ? Elf(1, 3) : Pe("\x4C\x01", "\x0B\x01"), "library for x86, this process is a 64"},
        {is_elf ? Pe("\x64\x86", "\x0B\x02") : Elf(2, 62), "library for x86-64, this process is"},
        {"text", "library.so is neither a Linux nor a Windows library"},
        {program, "program for x86-64"},
        {wide, "library.so cannot be loaded: "},
    };
    for (const auto& [bytes, finding] : rows) {
        ExpectOne(Wrong({RootText({{.library = Write("library.so", bytes)}}), ""}), finding);
    }
}

// ---------------------------------------------------------------- the root file itself

TEST_F(RootCheckCommand, FaultsOfTheRootFileAreFound) {
    const std::string good = RootText({{}});
    const Fault faults[] = {
        {"</MVCI_PDU_API_ROOT>", "", "root file: "},
        {"MVCI_PDU_API_ROOT", "ROOT", "the root element is ROOT, not MVCI_PDU_API_ROOT"},
        {">d<", ">\xE9<", "line 2: not well-formed (invalid token)"},
        {" MVCI_PART2_STANDARD_VERSION=\"2.2.0\"", "", "no attribute MVCI_PART2_STANDARD_VERSION"},
        {"\"2.2.0\"", "\"two\"", "MVCI_PART2_STANDARD_VERSION 'two' is no version"},
        {"<MVCI_PDU_API_ROOT", "<MVCI_PDU_API_ROOT xmlns=\"x\"", "it has a default namespace"},
    };
    for (const Fault& fault : faults) {
        const Json document = CheckJson({Replaced(good, fault.from, fault.to), "no-module"});
        ExpectOne(InJson("WRONG", document["findings"]), fault.finding);
        EXPECT_EQ(document["wrong"], 1);
    }
    const Json twice = CheckJson({RootText({{}, {}}), "no-module"});
    ExpectOne(InJson("WRONG", twice["findings"]),
              "line 3: MVCI_PDU_API Other_7_8_9 is there a second time");
    const Json other_version =
        CheckJson({Replaced(good, "\"2.2.0\"", "\"2.1.0\""), ""})["libraries"][0]["findings"];
    ExpectOne(InJson("note", other_version), "versions: the root file is for ISO 22900-2 version");
    const Json unknown =
        CheckJson({"<MVCI_PDU_API_ROOT MVCI_PART2_STANDARD_VERSION=\"2.2.0\">"
                   "<X/></MVCI_PDU_API_ROOT>",
                   ""});
    ExpectOne(InJson("note", unknown["findings"]), "line 1: X is no entry of a library");
}

TEST_F(RootCheckCommand, RootFileThatIsMissingIsFound) {
    const ClientResult result =
        RunClient({"root", "check", "--root", Text(folder_ / "none.xml"), "--json"});
    EXPECT_EQ(result.exit_code, kFailure);
    ExpectOne(InJson("WRONG", Document(result)["findings"]), "none.xml is missing or no file");
}

TEST_F(RootCheckCommand, NameChoosesOneEntry) {
    const std::string text = RootText({{}, {.name = "Next_1_0_0", .library = INCOMPLETE_LIBRARY}});
    const Json document = CheckJson({text, "", {"Next_1_0_0"}});
    ASSERT_EQ(document["libraries"].size(), 1u);
    EXPECT_EQ(document["libraries"][0]["name"], "Next_1_0_0");
    ExpectFailure(Check({text, "", {"Nobody"}}),
                  "no library is installed as 'Nobody'; there are: Other_7_8_9, Next_1_0_0");
}

TEST_F(RootCheckCommand, TextHasOneLineForEachFindingAndASummary) {
    const ClientResult good = Check({RootText({{}}), ""});
    EXPECT_EQ(good.exit_code, kOk);
    EXPECT_EQ(good.error, "");
    EXPECT_TRUE(Contains(good.output, "\nOther_7_8_9\nok ")) << good.output;
    EXPECT_TRUE(Contains(good.output, "\n1 library checked: nothing wrong")) << good.output;
    const ClientResult bad = Check({RootText({{.name = "Other_1_0_0"}, {}}), ""});
    EXPECT_EQ(bad.exit_code, kFailure);
    EXPECT_TRUE(
        Contains(bad.output,
                 "\nWRONG  versions            SHORT_NAME has the version 1.0.0, the library "
                 "is 7.8.9 -> install the entry of this version\n"))
        << bad.output;
    EXPECT_TRUE(Contains(bad.output, "\n2 libraries checked: 1 wrong")) << bad.output;
    const ClientResult verbose = Check({RootText({{}}), "", {"--verbose"}});
    EXPECT_TRUE(Contains(verbose.error, "[fake] scanning")) << verbose.error;
}

}  // namespace

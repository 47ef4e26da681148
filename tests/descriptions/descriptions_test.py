#!/usr/bin/env python3
"""descriptions_test.py FOLDER LIBRARY: the description files in FOLDER say what the library answers.

A reader of its own: it shares nothing with the generator. It asks the library through its exported
functions, with records laid out as ISO 22900-2 has them for 64 bits.
"""
import ctypes, json, os, re, sys, tempfile, unittest
import xml.etree.ElementTree as ElementTree
from ctypes import (POINTER, byref, c_char, c_int8, c_int16, c_int32, c_uint8, c_uint16, c_uint32,
                    c_void_p)
from pathlib import Path

FOLDER, LIBRARY = Path(sys.argv[1]), sys.argv[2]

OBJECT_TYPES = {"PROTOCOL": 0x8021, "BUSTYPE": 0x8022, "IO_CTRL": 0x8023, "COMPARAM": 0x8024,
                "PINTYPE": 0x8025, "RESOURCE": 0x8026}
DATA_TYPES = {name: 0x101 + at for at, name in enumerate(
    "UNUM8 SNUM8 UNUM16 SNUM16 UNUM32 SNUM32 BYTEFIELD STRUCTFIELD LONGFIELD".split())}
NUMBERS = {0x101 + at: number for at, number in enumerate(
    (c_uint8, c_int8, c_uint16, c_int16, c_uint32, c_int32))}
CLASSES = {name: 1 + at for at, name in enumerate(
    "TIMING INIT COM ERRHDL BUSTYPE UNIQUE_ID TESTER_PRESENT".split())}
LAYERS = {"PDU_PL_APPLICATION", "PDU_PL_TRANSPORT", "PDU_PL_PHYSICAL"}
TOP_LEVEL = "DESCRIPTION SUPPLIER_NAME PINTYPE IO_CTRL COMPARAM BUSTYPE PROTOCOL RESOURCE MODULETYPE" \
            " ERROR_CODE".split()
# All names of the standard's table for which a library of this kind may have an id.
IO_CONTROLS = """RESET CLEAR_TX_QUEUE SUSPEND_TX_QUEUE RESUME_TX_QUEUE CLEAR_RX_QUEUE READ_VBATT
    SET_PROG_VOLTAGE READ_PROG_VOLTAGE GENERIC SET_BUFFER_SIZE START_MSG_FILTER CLEAR_MSG_FILTER
    STOP_MSG_FILTER SET_EVENT_QUEUE_PROPERTIES GET_CABLE_ID SEND_BREAK READ_IGNITION_SENSE_STATE
    VEHICLE_ID_REQUEST SET_ETH_SWITCH_STATE GET_ENTITY_STATUS GET_DIAGNOSTIC_POWER_MODE
    GET_ETH_PIN_OPTION TLS_SET_CERTIFICATE TLS_GET_CURRENT_SESSION_MODE ISOBUS_GET_DETECTED_CFS"""


class ParamItem(ctypes.Structure):
    _fields_ = [("type", c_uint32), ("id", c_uint32), ("data_type", c_uint32),
                ("param_class", c_uint32), ("data", c_void_p)]


class Field(ctypes.Structure):
    _fields_ = [("most", c_uint32), ("count", c_uint32), ("data", c_void_p)]


class StructField(ctypes.Structure):
    _fields_ = [("type", c_uint32), ("most", c_uint32), ("count", c_uint32), ("data", c_void_p)]


class SessionTiming(ctypes.Structure):
    _fields_ = [("session", c_uint16), ("rest", c_uint8 * 4)]


class Version(ctypes.Structure):
    _fields_ = [("part1", c_uint32), ("part2", c_uint32), ("serial", c_uint32),
                ("hw_name", c_char * 64), ("hw_version", c_uint32), ("hw_date", c_uint32),
                ("hw_interface", c_uint32), ("fw_name", c_char * 64), ("fw_version", c_uint32),
                ("fw_date", c_uint32), ("vendor", c_char * 64), ("sw_name", c_char * 64),
                ("sw_version", c_uint32), ("sw_date", c_uint32)]


class ModuleData(ctypes.Structure):
    _fields_ = [("type_id", c_uint32), ("handle", c_uint32), ("vendor_name", c_void_p),
                ("additional", c_void_p), ("status", c_uint32)]


class ModuleItem(ctypes.Structure):
    _fields_ = [("type", c_uint32), ("count", c_uint32), ("modules", POINTER(ModuleData))]


class Library:
    """The answers of the constructed library."""

    def __init__(self, path):
        self.calls = ctypes.CDLL(path)

    def object_id(self, kind, name):
        found = c_uint32(0xFFFFFFFF)
        status = self.calls.PDUGetObjectId(c_uint32(OBJECT_TYPES[kind]), name.encode(), byref(found))
        return found.value if status == 0 else None

    def comparam(self, number):
        item = POINTER(ParamItem)()
        status = self.calls.PDUGetComParam(c_uint32(0), c_uint32(0), c_uint32(number), byref(item))
        return item.contents if status == 0 else None

    def version(self):
        self.module_type()  # the function needs a module
        version = Version()
        assert self.calls.PDUGetVersion(c_uint32(0), byref(version)) == 0
        return version

    def module_type(self):
        """Of the first module. The library finds one within a few scans."""
        for _ in range(50):
            item = POINTER(ModuleItem)()
            assert self.calls.PDUGetModuleIds(byref(item)) == 0
            found = item.contents.modules[0].type_id if item.contents.count > 0 else None
            self.calls.PDUDestroyItem(item)
            if found is not None:
                return found
        raise AssertionError("no module was found")


def dotted(packed):
    return ".".join(str(packed >> shift & 0xFF) for shift in (24, 16, 8))


def value_text(item):
    """The value of a ComParam as the description file writes it."""
    if item.data_type in NUMBERS:
        return str(NUMBERS[item.data_type].from_address(item.data).value)
    if item.data_type == DATA_TYPES["STRUCTFIELD"]:
        field, numbers = StructField.from_address(item.data), []
        for at in range(field.count):
            if field.type == 1:
                entry = SessionTiming.from_address(field.data + 6 * at)
                numbers += [entry.session, *entry.rest]
            else:
                numbers += (c_uint8 * 6).from_address(field.data + 6 * at)
        return " ".join(map(str, [field.type, field.most, field.count, *numbers]))
    element = {DATA_TYPES["BYTEFIELD"]: c_uint8, DATA_TYPES["LONGFIELD"]: c_uint32}[item.data_type]
    field = Field.from_address(item.data)
    return " ".join(map(str, [field.most, field.count,
                              *(element * field.count).from_address(field.data)]))


def limits_of(item):
    """The least and the most of a number, or of a struct field's entries; None for other fields."""
    if item.data_type == DATA_TYPES["STRUCTFIELD"]:
        return "0", str(StructField.from_address(item.data).most)
    if item.data_type not in NUMBERS:
        return None, None
    number = NUMBERS[item.data_type]
    values = 256 ** ctypes.sizeof(number)
    return ("0", str(values - 1)) if number(-1).value > 0 else (str(-values // 2), str(values // 2 - 1))


def faults_of(module, library):
    """What is wrong in a module description, as lines."""
    faults = []
    kinds = [child.tag for child in module]
    blocks = [kind for at, kind in enumerate(kinds) if at == 0 or kinds[at - 1] != kind]
    faults += [f"{kind} is unknown" for kind in set(kinds) - set(TOP_LEVEL)]
    faults += [f"{kind} stand apart" for kind in set(blocks) if blocks.count(kind) > 1]

    labels = [(child.tag, child.get("EID")) for child in module if child.get("EID") is not None]
    names = [label for _, label in labels]
    faults += [f"{label} is there twice" for label in set(names) if names.count(label) > 1]
    faults += [f"{label} is no name" for label in names if not re.fullmatch(r"[A-Za-z_][\w.-]*", label)]
    for element in module.iter():
        reference = element.get("IDREF")
        if reference is not None and labels.count((element.tag, reference)) != 1:
            faults.append(f"{element.tag} {reference} is not there")

    for kind in OBJECT_TYPES:
        for element in module.findall(kind):
            name, number = element.findtext("SHORT_NAME"), int(element.findtext("ID"))
            if library.object_id(kind, name) != number:
                faults.append(f"{kind} {name} has another id")
            if not (element.findtext("DESCRIPTION") or "").strip():
                faults.append(f"{kind} {name} has no description")
    faults += comparam_faults(module, library)
    for user, is_bus in (("BUSTYPE", True), ("PROTOCOL", False)):
        for element in module.findall(user):
            listed = {ref.find("COMPARAM").get("IDREF") for ref in element.findall("COMPARAM_REF")}
            wanted = {param.get("EID") for param in module.findall("COMPARAM")
                      if (param.findtext("CLASS") == "PDU_PC_BUSTYPE") == is_bus}
            if listed != wanted:
                faults.append(f"{user} {element.findtext('SHORT_NAME')} lists other ComParams")
    return faults


def comparam_faults(module, library):
    faults = []
    defaults = {}
    for element in module.findall("COMPARAM"):
        name, item = element.findtext("SHORT_NAME"), library.comparam(int(element.findtext("ID")))
        defaults[element.get("EID")] = element.findtext("DEFAULT_VALUE")
        if item is None:
            faults.append(f"{name} is unknown")
            continue
        if DATA_TYPES.get(element.findtext("DATA_TYPE").removeprefix("PDU_PT_")) != item.data_type:
            faults.append(f"{name} has another type")
        if CLASSES.get(element.findtext("CLASS").removeprefix("PDU_PC_")) != item.param_class:
            faults.append(f"{name} has another class")
        if element.findtext("LAYER") not in LAYERS:
            faults.append(f"{name} has no layer")
        if element.findtext("DEFAULT_VALUE") != value_text(item):
            faults.append(f"{name} has another default")
        if (element.findtext("MIN_VALUE"), element.findtext("MAX_VALUE")) != limits_of(item):
            faults.append(f"{name} has other limits")
    for reference in module.iter("COMPARAM_REF"):
        label = reference.find("COMPARAM").get("IDREF")
        if defaults.get(label) != reference.findtext("DEFAULT_VALUE"):
            faults.append(f"{label} has another default where it is used")
    return faults


class Descriptions(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory()
        os.environ.update(XDG_CONFIG_HOME=cls.scratch.name, TMPDIR=cls.scratch.name)
        folder = Path(cls.scratch.name, "Tarvik", "Brennix")
        folder.mkdir(parents=True)
        config = json.loads(FOLDER.joinpath("config.json").read_text("utf-8"))
        cls.switched_on = [key for key, value in config.items() if value is True]
        config["useSerial"] = True
        folder.joinpath("config.json").write_text(json.dumps(config), "utf-8")
        cls.library = Library(LIBRARY)
        assert cls.library.calls.PDUConstruct(None, None) == 0
        cls.module = ElementTree.parse(FOLDER / "tarvik_mdf.xml").getroot()
        cls.cable = ElementTree.parse(FOLDER / "tarvik_cdf.xml").getroot()

    @classmethod
    def tearDownClass(cls):
        cls.library.calls.PDUDestruct()
        cls.scratch.cleanup()

    def names(self, kind):
        return [element.findtext("SHORT_NAME") for element in self.module.findall(kind)]

    def test_module_description_says_what_the_library_answers(self):
        self.assertEqual(self.module.tag, "MVCI_MODULE_DESCRIPTION")
        self.assertEqual(faults_of(self.module, self.library), [])

    def test_every_comparam_of_the_library_is_described(self):
        known = [number for number in range(1, 1000) if self.library.comparam(number) is not None]
        described = [int(element.findtext("ID")) for element in self.module.findall("COMPARAM")]
        self.assertEqual(described, known)
        self.assertEqual(len(known), 228)

    def test_every_other_name_of_the_library_is_described(self):
        self.assertEqual(self.names("IO_CTRL"), ["PDU_IOCTL_" + name for name in IO_CONTROLS.split()])
        self.assertEqual(self.names("PINTYPE"), ["HI", "LOW"])
        self.assertEqual(self.names("BUSTYPE"), ["ISO_11898_2_DWCAN"])
        self.assertEqual(self.names("RESOURCE"), ["ISO_UDS_on_OBD"])

    def test_uds_follows_raw_frames_since_the_later_one_of_an_id_counts(self):
        self.assertEqual(self.names("PROTOCOL"), ["ISO_11898_RAW", "ISO_15765_3_on_ISO_15765_2"])
        ids = {element.findtext("ID") for element in self.module.findall("PROTOCOL")}
        self.assertEqual(ids, {"3000"})
        label = self.module.find("RESOURCE/PROTOCOL").get("IDREF")
        used = self.module.find(f"PROTOCOL[@EID='{label}']")
        self.assertEqual(used.findtext("SHORT_NAME"), "ISO_15765_3_on_ISO_15765_2")

    def test_module_type_offers_all_ioctls_and_resources(self):
        module_type = self.module.find("MODULETYPE")
        self.assertEqual(module_type.findtext("ID"), str(self.library.module_type()))
        for kind in ("IO_CTRL", "RESOURCE"):
            offered = [element.get("IDREF") for element in module_type.findall(kind)]
            self.assertEqual(offered, [element.get("EID") for element in self.module.findall(kind)])
        pins = [(pin.findtext("PIN_ON_MODULE"), pin.find("PINTYPE").get("IDREF"))
                for pin in self.module.findall("RESOURCE/PIN_ON_MODULE")]
        self.assertEqual(pins, [("6", "ID_PIN_HI"), ("14", "ID_PIN_LOW")])

    def test_versions_are_those_of_the_library(self):
        version = self.library.version()
        for root in (self.module, self.cable):
            self.assertEqual(root.get("MVCI_PART2_STANDARD_VERSION"), dotted(version.part2))
            self.assertEqual(root.get("FILE_VERSION"), dotted(version.sw_version))

    def test_cable_description_has_one_cable(self):
        self.assertEqual(self.cable.tag, "MVCI_CABLE_DESCRIPTION")
        self.assertEqual(self.cable.findtext("CABLE/CABLE_IDENTIFICATION/CABLE_ID"), "1")
        self.assertTrue(self.cable.findtext("CABLE/DESCRIPTION"))

    def test_new_configuration_has_every_transport_off(self):
        self.assertEqual(self.switched_on, ["enableCopTrace", "enableDebugLogFile"])

    def test_files_are_utf8_without_a_namespace(self):
        for name in ("tarvik_mdf.xml", "tarvik_cdf.xml"):
            text = FOLDER.joinpath(name).read_bytes().decode("utf-8")
            self.assertTrue(text.startswith('<?xml version="1.0" encoding="UTF-8"?>\n'))
            self.assertNotIn("xmlns", text)
            self.assertNotIn("\r", text)

    def test_each_damage_of_the_file_is_noticed(self):
        text = FOLDER.joinpath("tarvik_mdf.xml").read_text("utf-8")
        damages = {
            "ID_CP_12 is not there": ('<COMPARAM EID="ID_CP_12">', '<COMPARAM EID="ID_CP_012">'),
            "12 is no name": ('EID="ID_CP_12"', 'EID="12"'),
            "BUSTYPE ID_PROT_ISO_11898_RAW is not there": ('BUSTYPE IDREF="ID_BUS_ISO_11898_2_DWCAN"',
                                                           'BUSTYPE IDREF="ID_PROT_ISO_11898_RAW"'),
            "ID_CP_13 is there twice": ('EID="ID_CP_12"', 'EID="ID_CP_13"'),
            "COMPARAM CP_P2Max has another id": ("<ID>12</ID>", "<ID>13</ID>"),
            "COMPARAM CP_P2Maxx has another id": (">CP_P2Max<", ">CP_P2Maxx<"),
            "IO_CTRL PDU_IOCTL_RESET has another id": ("<ID>5000</ID>", "<ID>5001</ID>"),
            "CP_Baudrate has another type": (">CP_Baudrate<", "PDU_PT_UNUM32", "PDU_PT_UNUM16"),
            "CP_Baudrate has another class": (">CP_Baudrate<", "PDU_PC_BUSTYPE", "PDU_PC_COM"),
            "CP_Baudrate has no layer": (">CP_Baudrate<", "PDU_PL_PHYSICAL", "PHYSICAL"),
            "CP_Baudrate has another default": (">CP_Baudrate<", "VALUE>0<", "VALUE>500000<"),
            "CP_Baudrate has other limits": (">CP_Baudrate<", "VALUE>4294967295<", "VALUE>1000000<"),
            "CP_CanBaudrateRecord has other limits": (
                ">CP_CanBaudrateRecord<", "</COMPARAM>", "<MIN_VALUE>0</MIN_VALUE></COMPARAM>"),
            "CP_SessionTimingOverride has other limits": (
                ">CP_SessionTimingOverride<", "VALUE>255<", "VALUE>254<"),
            "CP_Loopback has no description": (">CP_Loopback<", "<DESCRIPTION>", "<DESCRIPTION/><TEXT>",
                                               "</DESCRIPTION>", "</TEXT>"),
            "ID_CP_126 has another default where it is used": (
                "<COMPARAM_REF>", "VALUE>0<", "VALUE>1<"),
            "BUSTYPE ISO_11898_2_DWCAN lists other ComParams": (
                "<BUSTYPE EID", 'IDREF="ID_CP_126"', 'IDREF="ID_CP_12"'),
            "VENDOR is unknown": ("<MODULETYPE>", "<VENDOR/><MODULETYPE>"),
            "PINTYPE stand apart": ("<MODULETYPE>", '<PINTYPE EID="X"><ID>0</ID><SHORT_NAME>HI'
                                    "</SHORT_NAME></PINTYPE><MODULETYPE>"),
        }
        for fault, damage in damages.items():  # at most one text to begin at, then pairs to replace
            head, marker, tail = text.partition(damage[0]) if len(damage) % 2 else ("", "", text)
            for old, new in zip(damage[len(damage) % 2::2], damage[len(damage) % 2 + 1::2]):
                self.assertIn(old, tail)
                tail = tail.replace(old, new, 1)
            damaged = head + marker + tail
            found = faults_of(ElementTree.fromstring(damaged), self.library)
            self.assertTrue(any(fault in line for line in found), f"{fault}: {found[:5]}")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)

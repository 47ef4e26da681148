#!/usr/bin/env python3
"""layout_test.py SOURCE-FOLDER LIBRARY COMPILER...: records, constants and functions of the package are
those of the C headers, for every compiler: GCC for Linux and for Windows.

What ctypes says is written into a C program as assertions, which the compiler checks. It is compiled
only, so that it does not matter for which system.
"""
import ctypes, inspect, re, subprocess, sys, tempfile
import unittest
from pathlib import Path

from package import SOURCE, run, tarvik_dpdu
from tarvik_dpdu import constants, functions, records

COMPILERS = sys.argv[3:]

C_NAMES = {ctypes.c_uint8: "UNUM8", ctypes.c_uint16: "UNUM16", ctypes.c_uint32: "UNUM32",
           ctypes.c_int32: "SNUM32", ctypes.c_char: "CHAR8", ctypes.c_void_p: "void*",
           ctypes.c_char_p: "CHAR8*", functions.EventCallback: "CALLBACKFNC"}


def structures():
    return {name: kind for name, kind in vars(records).items()
            if inspect.isclass(kind) and issubclass(kind, ctypes.Structure)
            and kind is not ctypes.Structure}


def c_name(kind):
    """The C type of a ctypes type: UNUM8, PDU_ITEM*, PDU_ITEM**."""
    if kind in C_NAMES:
        return C_NAMES[kind]
    if issubclass(kind, ctypes._Pointer):
        return c_name(kind._type_) + "*"
    return kind.__name__


def same_type(kind, expression):
    if issubclass(kind, ctypes.Array):
        kind, suffix = kind._type_, f"[{kind._length_}]"
    else:
        suffix = ""
    return f"__builtin_types_compatible_p({c_name(kind)}{suffix}, __typeof__({expression}))"


def assertions():
    """Name and C expression of everything that the package states."""
    for name, kind in structures().items():
        yield f"size of {name}", f"sizeof({name}) == {ctypes.sizeof(kind)}"
        yield f"alignment of {name}", f"_Alignof({name}) == {ctypes.alignment(kind)}"
        for field, field_kind in kind._fields_:
            place, member = getattr(kind, field), f"(({name}*)0)->{field}"
            yield f"offset of {name}.{field}", f"offsetof({name}, {field}) == {place.offset}"
            yield f"size of {name}.{field}", f"sizeof({member}) == {place.size}"
            yield f"type of {name}.{field}", same_type(field_kind, member)
    for name, value in vars(constants).items():
        if name.startswith("PDU_"):
            yield f"value of {name}", f"{name} == {value}U"
    for name, kinds in functions.PROTOTYPES.items():
        parameters = ", ".join(map(c_name, kinds)) or "void"
        yield (f"prototype of {name}",
               f"__builtin_types_compatible_p(T_PDU_ERROR (*)({parameters}), {name}_Fn)")


def program(lines):
    body = "".join(f'_Static_assert({expression}, "{name}");\n' for name, expression in lines)
    return f'#include <stddef.h>\n#include "dpdu_api.h"\n{body}'


def complaints(compiler, text):
    """The names of the assertions that do not hold. Another complaint of the compiler is an error."""
    with tempfile.TemporaryDirectory() as folder:
        source = Path(folder, "layout.c")
        source.write_text(text)
        result = subprocess.run(
            [compiler, "-std=c11", "-fsyntax-only", "-fmax-errors=0", "-I", SOURCE / "include", source],
            stderr=subprocess.PIPE, text=True, timeout=120)
    found = re.findall(r'static assertion failed: "(.*)"', result.stderr)
    if result.returncode != 0 and not found:
        raise AssertionError(result.stderr)
    return found


class Layout(unittest.TestCase):
    def test_every_record_constant_and_prototype_is_that_of_the_headers(self):
        for compiler in COMPILERS:
            with self.subTest(compiler):
                self.assertEqual(complaints(compiler, program(assertions())), [])

    def test_every_statement_that_is_wrong_is_found(self):
        wrong = [(name, f"!({expression})") for name, expression in assertions()]
        self.assertGreater(len(wrong), 500)
        for compiler in COMPILERS:
            with self.subTest(compiler):
                self.assertEqual(complaints(compiler, program(wrong)), [name for name, _ in wrong])

    def test_every_record_and_constant_of_the_headers_is_there(self):
        text = SOURCE.joinpath("include", "dpdu_types.h").read_text()
        names = re.findall(r"^\} (PDU_\w+);", text, re.MULTILINE)
        self.assertEqual(list(structures()), names)
        numbers = re.findall(r"^#define (PDU_[A-Z0-9_]+) +(?:\\\s+)?(?:0x)?[0-9A-F]+U\b", text,
                             re.MULTILINE)
        self.assertEqual(sorted(name for name in vars(constants) if name.startswith("PDU_")),
                         sorted(numbers))

    def test_every_status_and_error_has_a_meaning(self):
        from tarvik_dpdu import errors
        for name in vars(constants):
            if name.startswith("PDU_ERR_EVT_"):
                self.assertIn(name, errors.ERROR_EVENT_MEANINGS)
            elif name.startswith(("PDU_ERR_", "PDU_STATUS_")):
                self.assertIn(name, errors.STATUS_MEANINGS)

    def test_no_field_has_a_type_whose_size_depends_on_the_system(self):
        # Beside pointers. ctypes calls a C int or a C long c_uint32, where they have 32 bits.
        source = inspect.getsource(records)
        self.assertNotRegex(source, r"\bc_(long|ulong|int|uint|size_t|ssize_t|short|ushort)\b")


if __name__ == "__main__":
    run()

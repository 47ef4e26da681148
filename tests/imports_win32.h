// Functions of the system that a program or library imports, replaced by a test's own.

#ifndef TESTS_IMPORTS_WIN32_H
#define TESTS_IMPORTS_WIN32_H

#include <windows.h>

#include <cstring>

template <typename Record>
Record* RecordAt(HMODULE module, DWORD offset) {
    return reinterpret_cast<Record*>(reinterpret_cast<char*>(module) + offset);
}

// The table is read-only once a program runs.
inline void* ReplaceAddress(ULONG_PTR* address, void* function) {
    DWORD protection = 0;
    ::VirtualProtect(address, sizeof *address, PAGE_READWRITE, &protection);
    void* before = reinterpret_cast<void*>(*address);
    *address = reinterpret_cast<ULONG_PTR>(function);
    ::VirtualProtect(address, sizeof *address, protection, &protection);
    return before;
}

// In the module's table of imported functions. Returns what was there; null: it does not import the
// function by name.
inline void* ReplaceImport(HMODULE module, const char* name, void* function) {
    const auto* headers = RecordAt<IMAGE_NT_HEADERS>(
        module, static_cast<DWORD>(RecordAt<IMAGE_DOS_HEADER>(module, 0)->e_lfanew));
    const DWORD table =
        headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* dll = RecordAt<IMAGE_IMPORT_DESCRIPTOR>(module, table); dll->Name != 0; ++dll) {
        auto* entry = RecordAt<IMAGE_THUNK_DATA>(module, dll->OriginalFirstThunk);
        auto* address = RecordAt<IMAGE_THUNK_DATA>(module, dll->FirstThunk);
        for (; entry->u1.AddressOfData != 0; ++entry, ++address) {
            if (IMAGE_SNAP_BY_ORDINAL(entry->u1.Ordinal)) continue;
            const auto* import =
                RecordAt<IMAGE_IMPORT_BY_NAME>(module, static_cast<DWORD>(entry->u1.AddressOfData));
            if (std::strcmp(import->Name, name) == 0) {
                return ReplaceAddress(&address->u1.Function, function);
            }
        }
    }
    return nullptr;
}

#endif  // TESTS_IMPORTS_WIN32_H

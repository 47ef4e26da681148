#include "comparam/comparam_row.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "support/log.h"

namespace tarvik {
namespace {

// The three field records under common names.
struct FieldRecord {
    std::uint32_t struct_type = 0;  // struct fields only
    std::uint32_t max = 0;
    std::uint32_t count = 0;
    const std::uint8_t* elements = nullptr;
};

bool IsField(std::uint32_t data_type) {
    return data_type == PDU_PT_BYTEFIELD || data_type == PDU_PT_LONGFIELD ||
           data_type == PDU_PT_STRUCTFIELD;
}

std::size_t ElementSize(std::uint32_t data_type) {
    switch (data_type) {
        case PDU_PT_LONGFIELD:
            return sizeof(UNUM32);
        case PDU_PT_STRUCTFIELD:
            return kStructEntrySize;
        default:
            return sizeof(UNUM8);
    }
}

template <typename T>
FieldRecord LoadLengthField(const void* data) {
    T field;
    std::memcpy(&field, data, sizeof field);
    return {0, field.ParamMaxLen, field.ParamActLen,
            reinterpret_cast<const std::uint8_t*>(field.pDataArray)};
}

FieldRecord LoadStructField(const void* data) {
    PDU_PARAM_STRUCTFIELD_DATA field;
    std::memcpy(&field, data, sizeof field);
    return {field.ComParamStructType, field.ParamMaxEntries, field.ParamActEntries,
            static_cast<const std::uint8_t*>(field.pStructArray)};
}

FieldRecord LoadField(std::uint32_t data_type, const void* data) {
    switch (data_type) {
        case PDU_PT_LONGFIELD:
            return LoadLengthField<PDU_PARAM_LONGFIELD_DATA>(data);
        case PDU_PT_STRUCTFIELD:
            return LoadStructField(data);
        default:
            return LoadLengthField<PDU_PARAM_BYTEFIELD_DATA>(data);
    }
}

// ParamActLen or ParamActEntries. The application may change it at any time, so it is accessed
// atomically.
std::atomic_ref<UNUM32> VisibleCountOf(const ComParamRow& row) {
    switch (row.description->data_type) {
        case PDU_PT_BYTEFIELD:
            return std::atomic_ref<UNUM32>(row.value->bytes.ParamActLen);
        case PDU_PT_LONGFIELD:
            return std::atomic_ref<UNUM32>(row.value->words.ParamActLen);
        default:
            return std::atomic_ref<UNUM32>(row.value->structs.ParamActEntries);
    }
}

// Writes the field record that the application sees, from what the row itself knows.
void ShowField(ComParamRow& row, std::uint32_t count) {
    switch (row.description->data_type) {
        case PDU_PT_BYTEFIELD:
            row.value->bytes.ParamMaxLen = row.max_elements;
            row.value->bytes.pDataArray = static_cast<UNUM8*>(row.buffer);
            break;
        case PDU_PT_LONGFIELD:
            row.value->words.ParamMaxLen = row.max_elements;
            row.value->words.pDataArray = static_cast<UNUM32*>(row.buffer);
            break;
        default:
            row.value->structs.ComParamStructType = row.struct_type;
            row.value->structs.ParamMaxEntries = row.max_elements;
            row.value->structs.pStructArray = row.buffer;
            break;
    }
    VisibleCountOf(row).store(count);
}

std::size_t Capacity(const ComParamRow& row) {
    return row.buffer == nullptr ? 0 : RequestedSize(row.buffer);
}

// Elements in use as the application sees them. It may have raised the count in place, beyond what
// the buffer holds.
std::uint32_t VisibleCount(const ComParamRow& row) { return VisibleCountOf(row).load(); }

void ClearValue(ComParamRow& row) {
    if (IsField(row.description->data_type)) {
        ShowField(row, 0);
        return;
    }
    std::atomic_ref<UNUM32>(row.value->number).store(0);
}

void ChooseFieldSize(ComParamRow& row) {
    constexpr std::uint32_t kInitialLength = 12;
    if (row.description->data_type != PDU_PT_STRUCTFIELD) {
        row.max_elements = kInitialLength;
        return;
    }
    switch (row.description->id) {
        case kCpSessionTimingOverride:
        case kCpSessionTimingEcu:
            row.struct_type = PDU_CPST_SESSION_TIMING;
            row.max_elements = 255;
            break;
        case kCpAccessTimingOverride:
        case kCpAccessTimingEcu:
            row.struct_type = PDU_CPST_ACCESS_TIMING;
            row.max_elements = 8;
            break;
        default:
            row.struct_type = PDU_CPST_ACCESS_TIMING;
            row.max_elements = 1;
            break;
    }
}

// ---- Setting a field ---------------------------------------------------------------------------

const char* GrowthFailure(std::uint32_t data_type) {
    switch (data_type) {
        case PDU_PT_LONGFIELD:
            return "LONGFIELD";
        case PDU_PT_STRUCTFIELD:
            return "STRUCTFIELD";
        default:
            return "BYTEFIELD";
    }
}

bool AcceptStructType(const ComParamRow& row, std::uint32_t struct_type, const char* function) {
    if (struct_type != row.struct_type) {
        Log(kLogTrace, "[%s]   %s - CANNOT CHANGE STRUCT TYPE, Returning PDU_ERR_FCT_FAILED",
            function, row.description->name);
        return false;
    }
    if (struct_type != PDU_CPST_SESSION_TIMING && struct_type != PDU_CPST_ACCESS_TIMING) {
        Log(kLogTrace, "[%s]   %s - UNKNOWN STRUCT TYPE, Returning PDU_ERR_FCT_FAILED", function,
            row.description->name);
        return false;
    }
    return true;
}

// Makes room for `size` bytes and keeps the contents. The previous buffer moves to `*previous`:
// the value about to be copied may lie in it. False: memory is out, and the row has no buffer.
bool GrowBuffer(ComParamRow& row, std::size_t size, Tracked<void>* previous) {
    const std::size_t old_size = Capacity(row);
    previous->reset(row.buffer);
    row.buffer = AllocateMem(size);
    if (row.buffer == nullptr) return false;
    if (old_size > 0) std::memcpy(row.buffer, previous->get(), old_size);
    return true;
}

// How many of `wanted` bytes at `from` may be read. The application answers for its own memory;
// of a buffer of ours it knows the size only if nobody edited the lengths in place.
std::size_t Readable(const std::uint8_t* from, std::size_t wanted, const void* own,
                     std::size_t own_size) {
    const auto address = reinterpret_cast<std::uintptr_t>(from);
    const auto start = reinterpret_cast<std::uintptr_t>(own);
    if (own == nullptr || address < start || address - start >= own_size) return wanted;
    return std::min(wanted, own_size - static_cast<std::size_t>(address - start));
}

// Without data only the length changes, within the buffer that is there. Returns the new length.
std::uint32_t SetLength(ComParamRow& row, std::uint32_t wanted) {
    const std::size_t room = Capacity(row) / ElementSize(row.description->data_type);
    const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(wanted, room));
    ShowField(row, count);
    return count;
}

// On success `*count` elements are in use.
T_PDU_ERROR SetField(ComParamRow& row, const FieldRecord& source, const char* function,
                     std::uint32_t* count) {
    if (source.elements == nullptr) {
        *count = SetLength(row, source.count);
        return PDU_STATUS_NOERROR;
    }
    const std::uint32_t data_type = row.description->data_type;
    const std::size_t element_size = ElementSize(data_type);

    row.max_elements = std::max(row.max_elements, source.max);
    // Deliberate: the count is not checked against the maximum. The buffer is made to hold it.
    const std::size_t needed = element_size * std::max(row.max_elements, source.count);
    Tracked<void> previous;
    const void* own = row.buffer;
    const std::size_t own_size = Capacity(row);
    if (own_size < needed && !GrowBuffer(row, needed, &previous)) {
        ShowField(row, VisibleCount(row));
        Log(kLogTrace, "[%s] %s allocation failed, Returning PDU_ERR_FCT_FAILED", function,
            GrowthFailure(data_type));
        return PDU_ERR_FCT_FAILED;
    }

    const std::size_t wanted = element_size * source.count;
    if (wanted > 0) {
        std::memmove(row.buffer, source.elements, Readable(source.elements, wanted, own, own_size));
    }
    ShowField(row, source.count);
    *count = source.count;
    return PDU_STATUS_NOERROR;
}

// `count` is what was set: the application may have changed the visible one meanwhile.
void KeepField(const ComParamRow& row, std::uint32_t count, RowSnapshot* snapshot) {
    snapshot->count = count;
    const std::size_t size = ElementSize(row.description->data_type) * count;
    snapshot->elements.reset(static_cast<std::uint8_t*>(AllocateMem(size)));
    if (snapshot->elements != nullptr && size > 0) {
        std::memcpy(snapshot->elements.get(), row.buffer, size);
    }
}

// ---- Log lines ---------------------------------------------------------------------------------

void LogNumber(const ComParamRow& row, std::uint32_t number, const char* function) {
    const char* name = row.description->name;
    switch (row.description->data_type) {
        case PDU_PT_SNUM8:
            Log(kLogTrace, "[%s] %s = %d", function, name, static_cast<SNUM8>(number));
            break;
        case PDU_PT_SNUM16:
            Log(kLogTrace, "[%s] %s = %d", function, name, static_cast<SNUM16>(number));
            break;
        case PDU_PT_SNUM32:
            Log(kLogTrace, "[%s] %s = %d", function, name, static_cast<SNUM32>(number));
            break;
        default:
            Log(kLogTrace, "[%s] %s = %u", function, name, number);
            break;
    }
}

void LogWords(const ComParamRow& row, const RowSnapshot& snapshot, const char* function) {
    const char* name = row.description->name;
    Log(kLogTrace, "[%s]   -> %s PDU_PT_LONGFIELD", function, name);
    for (std::size_t i = 0; i < snapshot.count; ++i) {
        UNUM32 word;
        std::memcpy(&word, snapshot.elements.get() + i * sizeof word, sizeof word);
        Log(kLogTrace, "[%s]     %s: %u", function, name, word);
    }
}

void LogEntries(const ComParamRow& row, const RowSnapshot& snapshot, const char* function) {
    const char* name = row.description->name;
    Log(kLogTrace, "[%s] %s PDU_PT_STRUCTFIELD", function, name);
    for (std::size_t i = 0; i < snapshot.count; ++i) {
        char entry[kStructEntryTextSize];
        FormatStructEntry(row.struct_type, snapshot.elements.get() + i * kStructEntrySize, entry);
        Log(kLogTrace, "[%s]      %s %s", function, name, entry);
    }
}

// Written only when an application has changed it: another of its threads may be handing the item
// to PDUDestroyItem, which reads the type without a lock.
void RestoreItem(ComParamRow& row) {
    const PDU_PARAM_ITEM item = MakeRow(row.description, row.value).item;
    if (std::memcmp(&row.item, &item, sizeof item) != 0) row.item = item;
}

}  // namespace

bool PrepareRow(ComParamRow& row) {
    ReleaseRow(row);
    RestoreItem(row);
    if (!IsField(row.description->data_type)) return true;
    ChooseFieldSize(row);
    row.buffer = AllocateArray(row.max_elements, ElementSize(row.description->data_type));
    if (row.buffer == nullptr) {
        ReleaseRow(row);
        return false;
    }
    ShowField(row, 1);
    return true;
}

void ReleaseRow(ComParamRow& row) {
    FreeMem(row.buffer);
    row.buffer = nullptr;
    row.max_elements = 0;
    row.struct_type = 0;
    row.allocated = false;
    ClearValue(row);
}

T_PDU_ERROR SetRow(ComParamRow& row, const void* data, const char* function,
                   RowSnapshot* snapshot) {
    const std::uint32_t data_type = row.description->data_type;
    if (const std::size_t size = ParamNumberSize(data_type); size != 0) {
        UNUM32 number = 0;
        std::memcpy(&number, data, size);
        std::atomic_ref<UNUM32>(row.value->number).store(number);
        if (snapshot != nullptr) snapshot->number = number;
        return PDU_STATUS_NOERROR;
    }
    if (!IsField(data_type)) {
        Log(kLogTrace, "[%s]   -> UNKNOWN DATA TYPE", function);
        return PDU_ERR_FCT_FAILED;
    }
    const FieldRecord source = LoadField(data_type, data);
    if (data_type == PDU_PT_STRUCTFIELD && !AcceptStructType(row, source.struct_type, function)) {
        ShowField(row, VisibleCount(row));
        return PDU_ERR_FCT_FAILED;
    }
    std::uint32_t count = 0;
    const T_PDU_ERROR status = SetField(row, source, function, &count);
    if (status == PDU_STATUS_NOERROR && snapshot != nullptr) KeepField(row, count, snapshot);
    return status;
}

void LogRowValue(const ComParamRow& row, const RowSnapshot& snapshot, const char* function) {
    const std::uint32_t data_type = row.description->data_type;
    if (!IsField(data_type)) {
        LogNumber(row, snapshot.number, function);
        return;
    }
    if (snapshot.elements == nullptr) return;
    if (data_type == PDU_PT_LONGFIELD) {
        LogWords(row, snapshot, function);
    } else if (data_type == PDU_PT_STRUCTFIELD) {
        LogEntries(row, snapshot, function);
    } else {
        const HexText hex(snapshot.elements.get(), snapshot.count, HexText::Style::kPacked);
        Log(kLogTrace, "[%s] %s PDU_PT_BYTEFIELD(%u) '%s'", function, row.description->name,
            snapshot.count, hex.c_str());
    }
}

std::uint32_t ReadRowNumber(const ComParamRow& row) {
    switch (row.description->data_type) {
        case PDU_PT_UNUM8:
            return std::atomic_ref<UNUM32>(row.value->number).load() & 0xFFu;
        case PDU_PT_UNUM16:
            return std::atomic_ref<UNUM32>(row.value->number).load() & 0xFFFFu;
        case PDU_PT_UNUM32:
            return std::atomic_ref<UNUM32>(row.value->number).load();
        default:
            return 0;
    }
}

std::uint32_t ReadRowBytes(const ComParamRow& row, std::uint8_t* bytes, std::uint32_t capacity) {
    if (row.description->data_type != PDU_PT_BYTEFIELD || row.buffer == nullptr) return 0;
    const std::uint32_t count = VisibleCount(row);
    const std::size_t room = std::min(count, capacity);
    const std::size_t there = std::min(room, Capacity(row));
    if (there > 0) std::memcpy(bytes, row.buffer, there);
    if (room > there) std::memset(bytes + there, 0, room - there);
    return count;
}

ParamCopy CopyRow(const ComParamRow& row, PDU_PARAM_ITEM* copy) {
    PDU_PARAM_ITEM source = MakeRow(row.description, row.value).item;
    PDU_PARAM_BYTEFIELD_DATA field;
    if (row.description->data_type == PDU_PT_BYTEFIELD) {
        // The application may have edited the visible record in place.
        const auto capacity = static_cast<UNUM32>(Capacity(row));
        field = {capacity, std::min(VisibleCount(row), capacity), static_cast<UNUM8*>(row.buffer)};
        source.pComParamData = &field;
    }
    const ParamCopy copied = CopyParamItem(source, copy);
    if (source.pComParamData == &field && copied == ParamCopy::kCopied) {
        static_cast<PDU_PARAM_BYTEFIELD_DATA*>(copy->pComParamData)->ParamMaxLen =
            std::min(row.max_elements, field.ParamMaxLen);
    }
    return copied;
}

}  // namespace tarvik

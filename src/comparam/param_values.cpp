#include "comparam/param_values.h"

#include <algorithm>
#include <cstring>

#include "support/log.h"
#include "support/memory.h"

namespace tarvik {
namespace {

// A record that an item points to. It may be the application's and need not be aligned.
template <typename T>
T LoadRecord(const void* data) {
    T record;
    std::memcpy(&record, data, sizeof record);
    return record;
}

// Text built piece by piece in a block of fixed size.
class TextBlock {
public:
    explicit TextBlock(std::size_t room)
        : text_(static_cast<char*>(AllocateMem(room))), at_(text_.get()), left_(room) {}
    bool Ready() const { return text_ != nullptr; }
    char* At() const { return at_; }
    std::size_t Left() const { return left_; }
    // `written`: what FormatText returned.
    void Advance(int written) {
        if (written <= 0) return;
        at_ += written;
        left_ -= static_cast<std::size_t>(written);
    }
    char* Release() { return text_.release(); }

private:
    Tracked<char> text_;
    char* at_;
    std::size_t left_;
};

constexpr std::size_t kPrefixRoom = 48;  // also holds a number, and the texts without a value

char* FormatPlain(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    auto* copy = static_cast<char*>(AllocateMem(size));
    if (copy != nullptr) std::memcpy(copy, text, size);
    return copy;
}

// The decimal number has the type's sign, the hexadecimal one the type's width.
char* FormatNumber(const PDU_PARAM_ITEM& item) {
    char text[kPrefixRoom] = "";
    const void* data = item.pComParamData;
    switch (item.ComParamDataType) {
        case PDU_PT_UNUM8:
            FormatText(text, sizeof text, "%u (0x%02X)", LoadRecord<UNUM8>(data),
                       LoadRecord<UNUM8>(data));
            break;
        case PDU_PT_SNUM8:
            FormatText(text, sizeof text, "%d (0x%02X)", LoadRecord<SNUM8>(data),
                       LoadRecord<UNUM8>(data));
            break;
        case PDU_PT_UNUM16:
            FormatText(text, sizeof text, "%u (0x%04X)", LoadRecord<UNUM16>(data),
                       LoadRecord<UNUM16>(data));
            break;
        case PDU_PT_SNUM16:
            FormatText(text, sizeof text, "%d (0x%04X)", LoadRecord<SNUM16>(data),
                       LoadRecord<UNUM16>(data));
            break;
        case PDU_PT_UNUM32:
            FormatText(text, sizeof text, "%u (0x%08X)", LoadRecord<UNUM32>(data),
                       LoadRecord<UNUM32>(data));
            break;
        default:
            FormatText(text, sizeof text, "%d (0x%08X)", LoadRecord<SNUM32>(data),
                       LoadRecord<UNUM32>(data));
            break;
    }
    return FormatPlain(text);
}

char* FormatByteField(const void* data) {
    const auto field = LoadRecord<PDU_PARAM_BYTEFIELD_DATA>(data);
    const std::size_t count = field.pDataArray == nullptr ? 0 : field.ParamActLen;
    TextBlock text(kPrefixRoom + count * sizeof "FF");
    if (!text.Ready()) return nullptr;
    text.Advance(FormatText(text.At(), text.Left(), "(BYTEFIELD) "));
    for (std::size_t i = 0; i < count; ++i) {
        text.Advance(FormatText(text.At(), text.Left(), "%02X ", field.pDataArray[i]));
    }
    return text.Release();
}

char* FormatLongField(const void* data) {
    const auto field = LoadRecord<PDU_PARAM_LONGFIELD_DATA>(data);
    const std::size_t count = field.pDataArray == nullptr ? 0 : field.ParamActLen;
    TextBlock text(kPrefixRoom + count * sizeof "4294967295");
    if (!text.Ready()) return nullptr;
    text.Advance(FormatText(text.At(), text.Left(), "(LONGFIELD) "));
    for (std::size_t i = 0; i < count; ++i) {
        const auto word = LoadRecord<UNUM32>(field.pDataArray + i);
        text.Advance(FormatText(text.At(), text.Left(), "%u ", word));
    }
    return text.Release();
}

char* FormatStructField(const void* data) {
    const auto field = LoadRecord<PDU_PARAM_STRUCTFIELD_DATA>(data);
    if (field.ComParamStructType != PDU_CPST_SESSION_TIMING &&
        field.ComParamStructType != PDU_CPST_ACCESS_TIMING) {
        return FormatPlain("(STRUCTFIELD) UNKNOWN STRUCT TYPE");
    }
    const std::size_t count = field.pStructArray == nullptr ? 0 : field.ParamActEntries;
    const auto* entries = static_cast<const std::uint8_t*>(field.pStructArray);
    TextBlock text(kPrefixRoom + count * (kStructEntryTextSize + sizeof "{  } "));
    if (!text.Ready()) return nullptr;
    text.Advance(FormatText(text.At(), text.Left(), "(STRUCTFIELD) "));
    for (std::size_t i = 0; i < count; ++i) {
        char entry[kStructEntryTextSize];
        FormatStructEntry(field.ComParamStructType, entries + i * kStructEntrySize, entry);
        text.Advance(FormatText(text.At(), text.Left(), "{ %s } ", entry));
    }
    return text.Release();
}

// Reads the number that `item` points to, in the width of its type.
template <typename T>
std::uint32_t LoadNumber(const PDU_PARAM_ITEM& item) {
    return LoadRecord<T>(item.pComParamData);
}

void* CopyNumber(const void* data, std::size_t size) {
    void* copy = AllocateMem(size);
    if (copy != nullptr) std::memcpy(copy, data, size);
    return copy;
}

// The application's array has ParamMaxLen bytes. A ParamActLen above that is not refused: the
// copy's buffer also has room for it, and what the array does not have is 0.
void* CopyByteField(const void* data) {
    const auto source = LoadRecord<PDU_PARAM_BYTEFIELD_DATA>(data);
    const std::size_t size = std::max(source.ParamMaxLen, source.ParamActLen);
    auto copy = AllocateRecord<PDU_PARAM_BYTEFIELD_DATA>();
    Tracked<UNUM8> bytes(static_cast<UNUM8*>(AllocateMem(size)));
    if (copy == nullptr || bytes == nullptr) return nullptr;
    if (source.pDataArray != nullptr && source.ParamMaxLen > 0) {
        std::memcpy(bytes.get(), source.pDataArray, source.ParamMaxLen);
    }
    *copy = {source.ParamMaxLen, source.ParamActLen, bytes.release()};
    return copy.release();
}

}  // namespace

bool IsCopyableParam(std::uint32_t data_type) {
    return ParamNumberSize(data_type) != 0 || data_type == PDU_PT_BYTEFIELD;
}

bool IsReleasedParam(std::uint32_t data_type) {
    return IsCopyableParam(data_type) || data_type == PDU_PT_STRUCTFIELD;
}

std::size_t ParamNumberSize(std::uint32_t data_type) {
    switch (data_type) {
        case PDU_PT_UNUM8:
        case PDU_PT_SNUM8:
            return 1;
        case PDU_PT_UNUM16:
        case PDU_PT_SNUM16:
            return 2;
        case PDU_PT_UNUM32:
        case PDU_PT_SNUM32:
            return 4;
        default:
            return 0;
    }
}

std::uint32_t ReadParamItem(const PDU_PARAM_ITEM& item) {
    if (item.pComParamData == nullptr) return 0;
    switch (item.ComParamDataType) {
        case PDU_PT_UNUM8:
            return LoadNumber<UNUM8>(item);
        case PDU_PT_UNUM16:
            return LoadNumber<UNUM16>(item);
        case PDU_PT_UNUM32:
            return LoadNumber<UNUM32>(item);
        default:
            return 0;
    }
}

char* FormatParamValue(const PDU_PARAM_ITEM& item) {
    const bool empty = item.pComParamData == nullptr;
    switch (item.ComParamDataType) {
        case PDU_PT_BYTEFIELD:
            return empty ? FormatPlain("(BYTEFIELD) ") : FormatByteField(item.pComParamData);
        case PDU_PT_LONGFIELD:
            return empty ? FormatPlain("(LONGFIELD) ") : FormatLongField(item.pComParamData);
        case PDU_PT_STRUCTFIELD:
            return empty ? FormatPlain("(STRUCTFIELD) ") : FormatStructField(item.pComParamData);
        default:
            break;
    }
    if (empty || ParamNumberSize(item.ComParamDataType) == 0) return FormatPlain("(unknown) ");
    return FormatNumber(item);
}

bool FormatStructEntry(std::uint32_t struct_type, const void* entry,
                       char (&text)[kStructEntryTextSize]) {
    if (struct_type == PDU_CPST_SESSION_TIMING) {
        const auto timing = LoadRecord<PDU_PARAM_STRUCT_SESS_TIMING>(entry);
        FormatText(text, sizeof text, "%u %u %u %u %u", timing.P2Max_high, timing.P2Max_low,
                   timing.P2Star_high, timing.P2Star_low, timing.session);
        return true;
    }
    if (struct_type == PDU_CPST_ACCESS_TIMING) {
        const auto timing = LoadRecord<PDU_PARAM_STRUCT_ACCESS_TIMING>(entry);
        // Deliberate: each maximum precedes its minimum.
        FormatText(text, sizeof text, "%u %u %u %u %u %u", timing.P2Max, timing.P2Min, timing.P3Max,
                   timing.P3Min, timing.P4Min, timing.TimingSet);
        return true;
    }
    text[0] = '\0';
    return false;
}

ParamCopy CopyParamItem(const PDU_PARAM_ITEM& source, PDU_PARAM_ITEM* copy) {
    *copy = {PDU_IT_PARAM, source.ComParamId, source.ComParamDataType, source.ComParamClass,
             nullptr};
    if (!IsCopyableParam(source.ComParamDataType)) return ParamCopy::kNotCopyable;
    if (source.pComParamData == nullptr) return ParamCopy::kCopied;

    const std::size_t number_size = ParamNumberSize(source.ComParamDataType);
    copy->pComParamData = number_size != 0 ? CopyNumber(source.pComParamData, number_size)
                                           : CopyByteField(source.pComParamData);
    return copy->pComParamData == nullptr ? ParamCopy::kNoMemory : ParamCopy::kCopied;
}

bool FreeParamValue(const PDU_PARAM_ITEM& item) {
    if (!IsReleasedParam(item.ComParamDataType)) return false;
    void* data = item.pComParamData;
    switch (item.ComParamDataType) {
        case PDU_PT_BYTEFIELD:
            if (data != nullptr) FreeMem(static_cast<PDU_PARAM_BYTEFIELD_DATA*>(data)->pDataArray);
            break;
        case PDU_PT_STRUCTFIELD:
            if (data != nullptr) {
                FreeMem(static_cast<PDU_PARAM_STRUCTFIELD_DATA*>(data)->pStructArray);
            }
            break;
        default:
            break;
    }
    FreeMem(data);
    return true;
}

}  // namespace tarvik

#include "report/table.h"

#include <cassert>

namespace dpdu::report {
namespace {

std::size_t PlanesOf(ColumnKind kind) {
    switch (kind) {
        case ColumnKind::kByte:
            return 1;
        case ColumnKind::kNumber:
            return 4;
        case ColumnKind::kTime:
            return 7;
    }
    return 0;
}

void AppendPlanes(const std::vector<std::uint64_t>& values, ColumnKind kind, std::string* bytes) {
    const std::size_t planes = PlanesOf(kind);
    const std::size_t rows = values.size();
    const std::size_t at = bytes->size();
    bytes->resize(at + planes * rows);
    std::uint64_t before = 0;
    for (std::size_t row = 0; row < rows; ++row) {
        const std::uint64_t difference = values[row] - before;
        if (kind != ColumnKind::kByte) before = values[row];
        for (std::size_t plane = 0; plane < planes; ++plane)
            (*bytes)[at + plane * rows + row] = static_cast<char>(difference >> (8 * plane) & 0xFF);
    }
}

}  // namespace

const char* ColumnKindName(ColumnKind kind) {
    switch (kind) {
        case ColumnKind::kByte:
            return "byte";
        case ColumnKind::kNumber:
            return "number";
        case ColumnKind::kTime:
            return "time";
    }
    return "";
}

void Table::Add(std::initializer_list<std::uint64_t> row) {
    assert(row.size() == values_.size());
    auto column = values_.begin();
    for (const std::uint64_t value : row)
        (column++)->push_back(value);
}

void Table::MoveTo(std::string* bytes) {
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        AppendPlanes(values_[i], columns_[i].kind, bytes);
        values_[i].clear();
    }
}

}  // namespace dpdu::report

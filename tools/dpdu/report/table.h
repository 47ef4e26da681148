// Tables of numbers as the report's page reads them: column by column, each as differences from row
// to row with their bytes in planes, which compresses well and is decoded in one pass.

#ifndef TOOLS_DPDU_REPORT_TABLE_H
#define TOOLS_DPDU_REPORT_TABLE_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace dpdu::report {

enum class ColumnKind {
    kByte,    // one plane, as it is
    kNumber,  // 32 bits: four planes of differences
    kTime,    // microseconds: seven planes of differences, in two's complement
};

// "byte", "number" or "time", as the page knows it.
const char* ColumnKindName(ColumnKind kind);

struct Column {
    const char* name;
    ColumnKind kind;
};

class Table {
public:
    Table(const char* name, std::initializer_list<Column> columns)
        : name_(name), columns_(columns), values_(columns_.size()) {}

    const char* Name() const { return name_; }
    const std::vector<Column>& Columns() const { return columns_; }
    std::size_t Rows() const { return values_.front().size(); }

    // One value for each column.
    void Add(std::initializer_list<std::uint64_t> row);
    // Appends the columns' planes and removes the rows.
    void MoveTo(std::string* bytes);

private:
    const char* name_;
    std::vector<Column> columns_;
    std::vector<std::vector<std::uint64_t>> values_;  // by column
};

}  // namespace dpdu::report

#endif  // TOOLS_DPDU_REPORT_TABLE_H

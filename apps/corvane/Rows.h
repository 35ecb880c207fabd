// Rows of a result: a table for people, CSV and JSON for programs.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace corvane
{
enum class RowFormat
{
    table,
    csv,  // RFC 4180, with a header
    json  // an object a line
};

/// One value of a row.
struct RowCell
{
    std::variant<std::nullptr_t, bool, std::int64_t, std::string> value;  // for programs; text is well-formed UTF-8
    std::string shown = {};  // for people; empty: the value itself, "-" for null
};

struct RowColumn
{
    const char* key;    // the name of the value for programs
    const char* title;  // the head of the column for people; null: they don't see it
    int width = 0;      // of the column in a table, at least that of the title; a value that is wider moves its row
    enum
    {
        left,
        right,  // numbers
        last    // behind all others, since it may have any length
    } place = left;
};

/// Writes rows as they come, so that it keeps none of them.
///
/// Errors:  those of the stream.
/// Threads: one.
/// Memory:  the stream must outlive it.
class RowWriter
{
public:
    /// A table without a row is empty; CSV has its header in any case.
    static std::unique_ptr<RowWriter> Make(RowFormat format, std::vector<RowColumn> columns, std::ostream& out);

    RowWriter(std::vector<RowColumn> rowColumns, std::ostream& stream) : columns(std::move(rowColumns)), out(stream) {}
    RowWriter(const RowWriter&) = delete;
    RowWriter& operator=(const RowWriter&) = delete;
    virtual ~RowWriter() = default;

    /// A value for each column.
    virtual void Write(const std::vector<RowCell>& row) = 0;

protected:
    const std::vector<RowColumn> columns;
    std::ostream& out;
};
}  // namespace corvane

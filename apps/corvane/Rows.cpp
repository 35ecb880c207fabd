#include "apps/corvane/Rows.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>

#include "apps/corvane/Texts.h"

namespace
{
using corvane::RowCell;
using corvane::RowColumn;
using corvane::RowWriter;
using Value = decltype(RowCell::value);

constexpr const char* between = "  ";

std::string Plain(const Value& value, const char* none)
{
    if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "true" : "false";
    if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    return none;
}

class JsonRows final : public RowWriter
{
public:
    using RowWriter::RowWriter;

    void Write(const std::vector<RowCell>& row) override
    {
        for (std::size_t i = 0; i < row.size(); ++i)
            out << (i == 0 ? '{' : ',') << '"' << columns[i].key << "\":" << Json(row[i].value);
        out << "}\n";
    }

private:
    static std::string Json(const Value& value)
    {
        const auto* const text = std::get_if<std::string>(&value);
        return text == nullptr ? Plain(value, "null") : nlohmann::json(*text).dump();
    }
};

class CsvRows final : public RowWriter
{
public:
    CsvRows(std::vector<RowColumn> rowColumns, std::ostream& stream) : RowWriter(std::move(rowColumns), stream)
    {
        for (const RowColumn& column : columns) out << (&column == &columns.front() ? "" : ",") << column.key;
        out << "\r\n";
    }

    void Write(const std::vector<RowCell>& row) override
    {
        for (const RowCell& cell : row) out << (&cell == &row.front() ? "" : ",") << Quoted(Plain(cell.value, ""));
        out << "\r\n";
    }

private:
    static std::string Quoted(std::string text)
    {
        if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
        for (std::size_t at = 0; (at = text.find('"', at)) != std::string::npos; at += 2) text.insert(at, 1, '"');
        return '"' + text + '"';
    }
};

class Table final : public RowWriter
{
public:
    using RowWriter::RowWriter;

    void Write(const std::vector<RowCell>& row) override
    {
        if (!begun) WriteLine([this](std::size_t i) { return std::string(columns[i].title); });
        begun = true;
        WriteLine([&row](std::size_t i) { return row[i].shown.empty() ? Plain(row[i].value, "-") : row[i].shown; });
    }

private:
    template <class TextOfColumn>
    void WriteLine(const TextOfColumn& text)
    {
        for (const bool last : {false, true})
            for (std::size_t i = 0; i < columns.size(); ++i)
                if (columns[i].title != nullptr && (columns[i].place == RowColumn::last) == last)
                    Add(columns[i], corvane::OneLine(text(i)));
        EndLine();
    }

    void Add(const RowColumn& column, const std::string& shown)
    {
        const int width = std::max(column.width, corvane::DisplayWidth(column.title));
        const std::string padding(static_cast<std::size_t>(std::max(width - corvane::DisplayWidth(shown), 0)), ' ');
        line += column.place == RowColumn::right ? padding + shown : shown + padding;
        line += between;
    }

    void EndLine()
    {
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
        line.clear();
    }

    bool begun = false;
    std::string line;
};
}  // namespace

std::unique_ptr<RowWriter> corvane::RowWriter::Make(RowFormat format, std::vector<RowColumn> columns, std::ostream& out)
{
    switch (format)
    {
        case RowFormat::csv:
            return std::make_unique<CsvRows>(std::move(columns), out);
        case RowFormat::json:
            return std::make_unique<JsonRows>(std::move(columns), out);
        default:
            return std::make_unique<Table>(std::move(columns), out);
    }
}

#include "bench/log/QuerySql.h"

#include <cstdio>
#include <cstdlib>

namespace
{
constexpr const char* settings =
    "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; PRAGMA cache_size = -4000000; PRAGMA mmap_size = 8000000000;";

constexpr const char* schema =
    "CREATE TABLE records (event INTEGER NOT NULL, id BLOB NOT NULL, time INTEGER NOT NULL, value INTEGER NOT NULL, "
    "annotation TEXT NOT NULL);";

// The activations of a period in their order, and what belongs to an occurrence, each without a look at the table.
constexpr const char* indexes =
    "CREATE INDEX began ON records (value, time, event, id, annotation);"
    "CREATE INDEX completed ON records (id, value, time);"
    "ANALYZE;";

constexpr const char* text =
    "SELECT began.event, began.id, began.time, began.annotation, seen.time - began.time, ended.time - began.time "
    "FROM records AS began "
    "LEFT JOIN records AS seen ON seen.id = began.id AND seen.value = 4 "
    "LEFT JOIN records AS ended ON ended.id = began.id AND ended.value = 2 "
    "WHERE began.value = 1 AND began.time >= ? AND began.time < ? ORDER BY began.time";
}  // namespace

QuerySql::QuerySql(const std::string& directory, const QueryMonth& month)
{
    sqlite3* opened = nullptr;
    const int result = sqlite3_open((directory + "/query.sqlite").c_str(), &opened);
    database.reset(opened);
    Must(result == SQLITE_OK);
    Execute(settings);
    Execute(schema);
    Fill(month);
    Execute(indexes);
    question = Prepare(text);
}

void QuerySql::Fill(const QueryMonth& month) const
{
    Execute("BEGIN");
    const Statement insert = Prepare("INSERT INTO records VALUES (?, ?, ?, ?, ?)");
    for (std::size_t event = 0; event < month.events.size(); ++event)
        for (const QueryMonth::Record& record : month.events[event])
        {
            sqlite3_bind_int64(insert.get(), 1, static_cast<std::int64_t>(event));
            sqlite3_bind_blob(insert.get(), 2, &record.id, sizeof record.id, SQLITE_STATIC);
            sqlite3_bind_int64(insert.get(), 3, record.second);
            sqlite3_bind_int(insert.get(), 4, record.value);
            sqlite3_bind_text(insert.get(), 5, month.annotation.c_str(), -1, SQLITE_STATIC);
            Must(sqlite3_step(insert.get()) == SQLITE_DONE);
            sqlite3_reset(insert.get());
        }
    Execute("COMMIT");
}

QuerySums QuerySql::Ask(std::int64_t begin, std::int64_t end)
{
    sqlite3_stmt* const statement = question.get();
    sqlite3_bind_int64(statement, 1, begin);
    sqlite3_bind_int64(statement, 2, end);
    QuerySums sums;
    int step = sqlite3_step(statement);
    for (; step == SQLITE_ROW; step = sqlite3_step(statement))
    {
        // A user wants the identifiers too.
        if (sqlite3_column_blob(statement, 1) == nullptr || sqlite3_column_int64(statement, 0) < 0) std::abort();
        ++sums.rows;
        sums.seconds += sqlite3_column_int64(statement, 2);
        sums.characters += sqlite3_column_bytes(statement, 3);
        sums.acknowledged += sqlite3_column_int64(statement, 4);
        sums.ended += sqlite3_column_int64(statement, 5);
    }
    Must(step == SQLITE_DONE);
    sqlite3_reset(statement);
    return sums;
}

void QuerySql::Execute(const char* statements) const
{
    Must(sqlite3_exec(database.get(), statements, nullptr, nullptr, nullptr) == SQLITE_OK);
}

QuerySql::Statement QuerySql::Prepare(const char* statement) const
{
    sqlite3_stmt* prepared = nullptr;
    Must(sqlite3_prepare_v2(database.get(), statement, -1, &prepared, nullptr) == SQLITE_OK);
    return Statement(prepared);
}

void QuerySql::Must(bool good) const
{
    if (good) return;
    std::fprintf(stderr, "sqlite: %s\n", sqlite3_errmsg(database.get()));
    std::abort();
}

// The same records in a database, and the same question to it.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>

#include "bench/log/QueryMonth.h"

/// What a walk over the rows of a question adds up.
struct QuerySums
{
    std::int64_t rows = 0;
    std::int64_t seconds = 0;  // of the activations, since the beginning of the month
    std::int64_t acknowledged = 0;
    std::int64_t ended = 0;
    std::int64_t characters = 0;  // of the annotations

    bool operator==(const QuerySums&) const = default;
};

/// SQLite over one table with covering indexes for the question, all of it in memory.
class QuerySql
{
public:
    QuerySql(const std::string& directory, const QueryMonth& month);

    QuerySums Ask(std::int64_t begin, std::int64_t end);

private:
    struct Closer
    {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Closer>;

    void Execute(const char* text) const;
    [[nodiscard]] Statement Prepare(const char* text) const;
    void Fill(const QueryMonth& month) const;
    void Must(bool good) const;

    std::unique_ptr<sqlite3, Closer> database;
    Statement question;
};

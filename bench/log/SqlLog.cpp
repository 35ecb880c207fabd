#include "bench/log/SqlLog.h"

#include <cstdio>
#include <cstdlib>

SqlLog::SqlLog(const std::string& directory)
{
    sqlite3* opened = nullptr;
    const int result = sqlite3_open((directory + "/log.sqlite").c_str(), &opened);
    database.reset(opened);
    Must(result);
    Must(sqlite3_exec(opened,
                      "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
                      "CREATE TABLE records (event INTEGER, date INTEGER, id BLOB, value INTEGER, annotation TEXT)",
                      nullptr, nullptr, nullptr));
    sqlite3_stmt* prepared = nullptr;
    Must(sqlite3_prepare_v2(opened, "INSERT INTO records VALUES (1, ?, ?, ?, ?)", -1, &prepared, nullptr));
    insert.reset(prepared);
}

void SqlLog::Append(const GUID& id, long long seconds, int value, const std::string& annotation)
{
    Must(sqlite3_bind_int64(insert.get(), 1, seconds));
    Must(sqlite3_bind_blob(insert.get(), 2, &id, sizeof id, SQLITE_STATIC));
    Must(sqlite3_bind_int(insert.get(), 3, value));
    Must(sqlite3_bind_text(insert.get(), 4, annotation.c_str(), static_cast<int>(annotation.size()), SQLITE_STATIC));
    if (sqlite3_step(insert.get()) != SQLITE_DONE) Must(SQLITE_ERROR);
    Must(sqlite3_reset(insert.get()));
}

void SqlLog::Must(int result) const
{
    if (result == SQLITE_OK) return;
    std::fprintf(stderr, "sqlite: %s\n", sqlite3_errmsg(database.get()));
    std::abort();
}

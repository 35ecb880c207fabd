// The same records in a database.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>

#include "host/KTGuid.h"

/// SQLite with a write-ahead log and synchronous=FULL: one row a transaction, on the disk when Append returns.
class SqlLog
{
public:
    explicit SqlLog(const std::string& directory);

    void Append(const GUID& id, long long seconds, int value, const std::string& annotation);

private:
    struct Closer
    {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    void Must(int result) const;

    std::unique_ptr<sqlite3, Closer> database;
    std::unique_ptr<sqlite3_stmt, Closer> insert;
};

// SPDX-License-Identifier: MIT
// SQLite with a table of quotes, for the benchmarks that have it as a peer.
#pragma once

#include "support/bench.h"

#include <sqlite3.h>

namespace bench {

inline void check(int code, sqlite3* db)
{
    if (code != SQLITE_OK && code != SQLITE_DONE && code != SQLITE_ROW)
        qFatal("sqlite: %s", sqlite3_errmsg(db));
}

inline void runSql(sqlite3* db, const QByteArray& text)
{
    check(sqlite3_exec(db, text.constData(), nullptr, nullptr, nullptr), db);
}

/// A prepared statement.
class Statement
{
public:
    Statement(sqlite3* database, const QByteArray& text)
        : db(database)
    {
        check(sqlite3_prepare_v3(db, text.constData(), -1, SQLITE_PREPARE_PERSISTENT, &statement,
                                 nullptr),
              db);
    }
    ~Statement() { sqlite3_finalize(statement); }
    Q_DISABLE_COPY(Statement)

    void bind(int at, qint64 value) { sqlite3_bind_int64(statement, at, value); }
    void bind(int at, double value) { sqlite3_bind_double(statement, at, value); }
    /// The text must outlive the run.
    void bind(int at, const char* text)
    {
        sqlite3_bind_text(statement, at, text, -1, SQLITE_STATIC);
    }
    bool step()
    {
        const int code = sqlite3_step(statement);
        check(code, db);
        return code == SQLITE_ROW;
    }
    void run()
    {
        step();
        sqlite3_reset(statement);
    }
    sqlite3_stmt* get() const { return statement; }

private:
    sqlite3* db;
    sqlite3_stmt* statement = nullptr;
};

/// Inserts quotes; makes their table first.
class QuoteInserter
{
public:
    explicit QuoteInserter(sqlite3* db)
        : statement(makeTable(db), "insert into quotes values(?,?,?,?,?,?,?,?,?,?)")
    {}
    void run(const Quote& quote)
    {
        statement.bind(1, quote.id);
        statement.bind(2, qint64(quote.board));
        statement.bind(3, symbolText(quote.symbol));
        statement.bind(4, quote.price);
        statement.bind(5, quote.bid);
        statement.bind(6, quote.ask);
        statement.bind(7, quote.quantity);
        statement.bind(8, quote.volume);
        statement.bind(9, quote.time);
        statement.bind(10, statusText(quote.status));
        statement.run();
    }

private:
    static sqlite3* makeTable(sqlite3* db)
    {
        runSql(db, "create table quotes(id integer primary key, board int, symbol text, price int, "
                   "bid int, ask int, quantity int, volume real, time int, status text)");
        return db;
    }
    Statement statement;
};

} // namespace bench

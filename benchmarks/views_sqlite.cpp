// SPDX-License-Identifier: MIT
// SQLite in memory with prepared statements and four indexes, which are made after the rows.
#include "support/sqlitequotes.h"
#include "views.h"

namespace bench {
namespace {

class Sqlite : public Store
{
public:
    Sqlite()
    {
        check(sqlite3_open(":memory:", &db), db);
        inserting = std::make_unique<QuoteInserter>(db);
        const auto prepare = [this](const QByteArray& text) {
            return std::make_unique<Statement>(db, text);
        };
        begin = prepare("begin");
        commit = prepare("commit");
        updating = prepare("update quotes set price=?, time=? where id=?");
        removing = prepare("delete from quotes where id=?");
        finding = prepare("select quantity from quotes where id=?");
    }

    ~Sqlite() override
    {
        inserting.reset();
        for (auto* statement : {&begin, &commit, &updating, &removing, &finding})
            statement->reset();
        for (auto& statement : pages)
            statement.reset();
        sqlite3_close(db);
    }

    void load(const std::vector<Quote>& quotes) override
    {
        begin->run();
        for (const Quote& quote : quotes)
            inserting->run(quote);
        commit->run();
        for (int view = 0; view < viewCount; ++view) {
            const QByteArray order = orders[view];
            runSql(db,
                   "create index view" + QByteArray::number(view) + " on quotes(" + order + ")");
            pages[view] = std::make_unique<Statement>(
                db, "select symbol, printf('%.2f', price / 100.0), printf('%.2f', bid / 100.0), "
                    "printf('%.2f', ask / 100.0), quantity from quotes indexed by view" +
                        QByteArray::number(view) + " order by " + order + " limit 50");
        }
    }

    void update(const Update& update) override
    {
        updating->bind(1, update.price);
        updating->bind(2, update.time);
        updating->bind(3, update.id);
        updating->run();
    }

    void apply(const Batch& batch) override
    {
        begin->run();
        for (const qint64 id : batch.removals) {
            removing->bind(1, id);
            removing->run();
        }
        for (const Update& one : batch.updates)
            update(one);
        for (const Quote& quote : batch.inserts)
            inserting->run(quote);
        commit->run();
    }

    qint64 page(View view) override
    {
        Statement& statement = *pages[view];
        qint64 length = 0;
        while (statement.step())
            for (int column = 0; column < 5; ++column) {
                sqlite3_column_text(statement.get(), column);
                length += sqlite3_column_bytes(statement.get(), column);
            }
        sqlite3_reset(statement.get());
        return length;
    }

    qint64 find(qint64 id) override
    {
        finding->bind(1, id);
        finding->step();
        const qint64 quantity = sqlite3_column_int64(finding->get(), 0);
        sqlite3_reset(finding->get());
        return quantity;
    }

    void visit(View view, const std::function<void(const Quote&)>& visitor) override
    {
        Statement all(db, QByteArray("select * from quotes indexed by view") +
                              QByteArray::number(view) + " order by " + orders[view]);
        sqlite3_stmt* row = all.get();
        const auto number = [row](int column) { return sqlite3_column_int64(row, column); };
        const auto text = [row](int column) {
            return QString::fromLatin1(
                reinterpret_cast<const char*>(sqlite3_column_text(row, column)));
        };
        while (all.step())
            visitor({number(0), static_cast<int>(number(1)), symbolNumber(text(2)), number(3),
                     number(4), number(5), number(6), sqlite3_column_double(row, 7), number(8),
                     statusNumber(text(9))});
    }

private:
    static constexpr const char* orders[viewCount] = {"price", "symbol, price", "time",
                                                      "quantity desc"};

    sqlite3* db = nullptr;
    std::unique_ptr<Statement> begin, commit, updating, removing, finding;
    std::unique_ptr<QuoteInserter> inserting;
    std::unique_ptr<Statement> pages[viewCount];
};

} // namespace

std::unique_ptr<Store> makeSqlite()
{
    return std::make_unique<Sqlite>();
}

} // namespace bench

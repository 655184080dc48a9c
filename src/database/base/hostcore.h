// SPDX-License-Identifier: MIT
#pragma once

#include "base/icore.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <memory>

/**
 * A ready-made ICore: a registry of tables by name, a list of joins and a switch for compressed
 * files. Enough for most programs.
 *
 * Ownership: tables and joins stay the caller's; each must be removed here before it is destroyed.
 * Threads: every function may be called from any thread; each call is atomic on its own. That a
 * returned table still lives is the caller's business. Errors: none are thrown.
 *
 * @code
 * HostCore core;
 * ICore::setInstance(&core);
 * core.addTable(orders.name(), &orders);
 * core.setCompressTables(true);
 * @endcode
 */
class LIVETABLE_EXPORT HostCore : public ICore
{
public:
    /// No tables, no joins, plain files. Not installed: see ICore::setInstance().
    HostCore();
    ~HostCore() override;

    bool hasTable(const QString& name) const override;
    Table* table(const QString& name) const override;
    bool compressTables() const override;

    /// Keeps the join in joins(), once however often it is registered. Null is ignored.
    void registerJoin(TableJoin* join) override;

    /// Makes the table known under this name (compared exactly, empty allowed), in place of the one
    /// that had the name. A null table removes the name.
    void addTable(const QString& name, Table* table);

    /// Forgets the name; unknown names are ignored.
    void removeTable(const QString& name);

    /// The known names, in the order of their UTF-16 units.
    QStringList tableNames() const;

    /// What compressTables() answers from now on; false at the start.
    void setCompressTables(bool compress);

    /// The registered joins, in the order of their registration.
    QList<TableJoin*> joins() const;

    /// Forgets the join; unknown joins are ignored.
    void unregisterJoin(TableJoin* join);

private:
    struct Private;
    const std::unique_ptr<Private> d;
};

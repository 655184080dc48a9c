// SPDX-License-Identifier: MIT
#include "model.h"

#include "table/field.h"
#include "value/datetime.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Model {

namespace {

// In the order of their UTF-16 units; some share more units than a 64-bit sort key holds.
const char16_t* const texts[codeCount] = {u"",     u"A",   u"AAAA", u"AAAAA", u"AAAAB",
                                          u"AAAb", u"AAb", u"b",    u"я"};

double doubleOf(int code)
{
    return code == 1 ? std::numeric_limits<double>::quiet_NaN() : (code - zeroCode) * 0.5;
}

qint64 integerOf(int code)
{
    return code - zeroCode;
}
qint64 bigOf(int code)
{
    return (code - zeroCode) * Q_INT64_C(5'000'000'000);
}
qint64 timeOf(int code)
{
    return (code - zeroCode) * Q_INT64_C(100'000'000'000) + 1;
}

template <typename Container>
void removeLast(Container& rows, Row* row)
{
    const int at = rows.lastIndexOf(row);
    if (at != -1)
        rows.remove(at);
}

} // namespace

void setCell(Field field, const Column& column, int code, unsigned spelling)
{
    if (code == 0) {
        field = QString();
        return;
    }
    switch (column.type) {
    case FieldType::Integer:
        field = int(integerOf(code));
        break;
    case FieldType::Integer64:
        field = static_cast<long long>(bigOf(code));
        break;
    case FieldType::Double:
        field = code == zeroCode && spelling % 2 ? -0.0 : doubleOf(code);
        break;
    case FieldType::Decimal:
        field = spelling % 2 ? decimal(integerOf(code) * 250, 3) : decimal(integerOf(code) * 25, 2);
        break;
    case FieldType::DateTime:
        field = datetime(timeOf(code));
        break;
    default:
        field = QString::fromUtf16(texts[code]);
    }
}

bool cellIs(const Field& field, const Column& column, int code)
{
    if (field.isNull() || code == 0)
        return field.isNull() && code == 0;
    switch (column.type) {
    case FieldType::Integer:
        return field.toInteger() == integerOf(code);
    case FieldType::Integer64:
        return field.toInteger64() == bigOf(code);
    case FieldType::Double:
        return code == 1 ? std::isnan(field.toDouble()) : field.toDouble() == doubleOf(code);
    case FieldType::Decimal:
        return field.toDecimal() == decimal(integerOf(code) * 25, 2);
    case FieldType::DateTime:
        return field.toDatetime() == datetime(timeOf(code));
    default:
        return field.toString() == QString::fromUtf16(texts[code]);
    }
}

bool cellBelow(const Field& field, const Column& column, int code)
{
    switch (column.type) {
    case FieldType::Integer:
        return field.toInteger() < integerOf(code);
    case FieldType::Integer64:
        return field.toInteger64() < bigOf(code);
    case FieldType::Double:
        return std::isnan(field.toDouble()) ? code > 1 : field.toDouble() < doubleOf(code);
    case FieldType::Decimal:
        return field.toDecimal() < decimal(integerOf(code) * 25, 2);
    case FieldType::DateTime:
        return field.toDatetime() < datetime(timeOf(code));
    default:
        return field.toString() < QString::fromUtf16(texts[code]);
    }
}

// --- transactions ---

Transaction::Operation* Transaction::find(const Row* row)
{
    for (Operation& operation : operations) {
        if (operation.row == row)
            return &operation;
    }
    return nullptr;
}

void Transaction::insert(Row* row)
{
    if (Operation* held = find(row))
        *held = {row, Insert, {}};
    else
        operations.push_back({row, Insert, {}});
}

void Transaction::remove(Row* row)
{
    if (Operation* held = find(row))
        *held = {row, Remove, {}};
    else
        operations.push_back({row, Remove, {}});
}

void Transaction::update(Row* row, const Cells& cells)
{
    Operation* held = find(row);
    if (!held) {
        operations.push_back({row, Update, cells});
    } else if (held->kind == Insert && !row->inTable) {
        for (auto it = cells.cbegin(); it != cells.cend(); ++it)
            row->codes[it.key()] = it.value();
    } else if (held->kind != Remove) {
        held->kind = Update;
        for (auto it = cells.cbegin(); it != cells.cend(); ++it)
            held->cells[it.key()] = it.value();
    }
}

void Transaction::merge(const Transaction& other)
{
    for (const Operation& operation : other.operations) {
        if (operation.kind == Insert)
            insert(operation.row);
        else if (operation.kind == Remove)
            remove(operation.row);
        else
            update(operation.row, operation.cells);
    }
}

int Transaction::code(const Row* row, int column)
{
    const Operation* held = find(row);
    return held ? held->cells.value(column, row->codes.at(column)) : row->codes.at(column);
}

QString Transaction::toString() const
{
    QString text;
    for (const Operation& operation : operations) {
        text += QStringLiteral(" %1%2")
                    .arg(QLatin1String("?+-*").at(operation.kind))
                    .arg(operation.row->id);
        for (auto it = operation.cells.cbegin(); it != operation.cells.cend(); ++it)
            text += QStringLiteral(" [%1]=%2").arg(it.key()).arg(it.value());
    }
    return text;
}

// --- views ---

// As Index::process: removals, updates, insertions; of a row both removed and updated only the
// removal.
void View::process(const Rows& removed, const Rows& updated, const Rows& inserted)
{
    for (Row* row : removed)
        remove(row);
    for (Row* row : updated) {
        if (!removed.contains(row))
            update(row);
    }
    for (Row* row : inserted) {
        if (filter(*row))
            add(row);
    }
}

void ExactView::reset(const Rows& masterOrder)
{
    expected.clear();
    for (Row* row : masterOrder) {
        if (filter(*row))
            add(row);
    }
}

void ExactView::add(Row* row)
{
    auto place = expected.end();
    if (compare)
        place = std::find_if(expected.begin(), expected.end(),
                             [&](const Row* other) { return compare(*other, *row) > 0; });
    expected.insert(place, row);
}

void ExactView::remove(Row* row)
{
    removeLast(expected, row);
}

void ExactView::update(Row* row)
{
    remove(row);
    if (filter(*row))
        add(row);
}

void ExactView::process(const Rows& removed, const Rows& updated, const Rows& inserted)
{
    if (compare) { // an order among rows that are to move yet would mean nothing
        for (Row* row : updated)
            remove(row);
    }
    View::process(removed, updated, inserted);
}

void ExactView::check(Findings& findings)
{
    findings.check(read() == expected, name, "content or order");
}

void SortedModel::reset(const Rows& masterOrder)
{
    order.clear();
    std::copy_if(masterOrder.begin(), masterOrder.end(), std::back_inserter(order),
                 [this](const Row* row) { return filter(*row); });
    std::stable_sort(order.begin(), order.end(),
                     [this](const Row* a, const Row* b) { return compared(a, b) < 0; });
    gone.clear();
    touched.clear();
    fresh.clear();
    isExact = true;
}

void SortedModel::add(Row* row)
{
    isExact = false;
    fresh.append(row);
}

void SortedModel::remove(Row* row)
{
    isExact = false;
    fresh.removeOne(row);
    touched.removeOne(row);
    gone.append(row);
}

void SortedModel::update(Row* row)
{
    process({}, {row}, {});
}

// Marks instead of searches: these lists may be long.
void SortedModel::process(const Rows& removed, const Rows& updated, const Rows& inserted)
{
    isExact = false;
    for (Row* row : updated)
        row->mark = Row::Fresh; // unless found below
    for (Row* row : qAsConst(order))
        row->mark = Row::Touched;
    for (Row* row : inserted) {
        if (filter(*row))
            fresh.append(row);
        row->mark = Row::Still;
    }
    for (Row* row : removed) {
        gone.append(row);
        row->mark = Row::Still;
    }
    for (Row* row : updated) {
        if (row->mark == Row::Still)
            continue;
        if (!filter(*row))
            gone.append(row);
        else if (row->mark == Row::Fresh)
            fresh.append(row);
        else if (compare)
            touched.append(row);
        row->mark = Row::Still; // it may be named again
    }
}

void SortedModel::check(Findings& findings)
{
    Rows actual;
    actual.reserve(sorted->count());
    for (const Record& record : *sorted)
        actual.append(toRow(record));
    if (isExact) {
        findings.check(actual == order, name, "content or order after a build");
    } else {
        if (checkContent(actual, findings)) {
            checkPlaces(actual, findings);
            checkArrival(actual, findings);
        }
        order = actual;
    }
    gone.clear();
    touched.clear();
    fresh.clear();
    isExact = true;
    checkPartitions(*sorted, name, findings);
}

// Each row that belongs here is here once, in order.
bool SortedModel::checkContent(const Rows& actual, Findings& findings) const
{
    for (Row* row : order) {
        row->mark = Row::Still;
        row->count = 1;
    }
    for (Row* row : touched)
        row->mark = Row::Touched;
    for (Row* row : gone) {
        row->mark = Row::Gone;
        row->count = 0;
    }
    for (Row* row : fresh) {
        row->mark = Row::Fresh;
        row->count = 1;
    }
    int expected = fresh.size();
    for (const Row* row : order)
        expected += row->mark != Row::Gone && row->mark != Row::Fresh;
    bool isRight = actual.size() == expected;
    for (Row* row : actual)
        isRight = isRight && row->count-- == 1;
    for (int i = 1; i < actual.size(); ++i)
        findings.check(compared(actual[i - 1], actual[i]) <= 0, name, "order");
    return findings.check(isRight, name, "content");
}

// Rows that were not updated keep their order. Another one stands behind all of them that are not
// greater, or, when it was here before, has not moved among them.
void SortedModel::checkPlaces(const Rows& actual, Findings& findings) const
{
    const auto isStill = [](const Row* row) { return row->mark == Row::Still; };
    Rows still;
    std::copy_if(order.begin(), order.end(), std::back_inserter(still), isStill);
    Rows stillNow;
    std::copy_if(actual.begin(), actual.end(), std::back_inserter(stillNow), isStill);
    if (!findings.check(still == stillNow, name, "order of untouched rows"))
        return;

    int rank = 0;
    for (int i = 0; i < order.size(); ++i) {
        Row* row = order[i];
        row->rank = rank;
        rank += isStill(row);
        const Row* const before = i > 0 ? order[i - 1] : nullptr;
        const Row* const after = i + 1 < order.size() ? order[i + 1] : nullptr;
        row->count = (!before || (isStill(before) && compared(before, row) <= 0)) &&
                     (!after || (isStill(after) && compared(row, after) <= 0));
    }
    rank = 0;
    for (const Row* row : actual) {
        if (isStill(row)) {
            ++rank;
            continue;
        }
        const auto upper = std::partition_point(still.begin(), still.end(), [&](const Row* other) {
            return compared(other, row) <= 0;
        });
        const bool isBehind = rank == int(upper - still.begin());
        const bool isUnmoved = row->mark == Row::Touched && row->rank == rank;
        const bool fits = row->mark == Row::Touched && row->count;
        findings.check(isBehind || isUnmoved, name, "place of a changed row");
        findings.check(isUnmoved || !fits, name, "moved though in order");
    }
}

// Equal new rows stand in the order of their arrival.
void SortedModel::checkArrival(const Rows& actual, Findings& findings) const
{
    for (int i = 0; i < actual.size(); ++i)
        actual[i]->rank = i;
    Rows arrived = fresh;
    std::stable_sort(arrived.begin(), arrived.end(),
                     [&](const Row* a, const Row* b) { return compared(a, b) < 0; });
    for (int i = 1; i < arrived.size(); ++i)
        findings.check(arrived[i - 1]->rank < arrived[i]->rank, name, "order of new rows");
}

void SortedModel::checkSearches(const Row& key, int after, Findings& findings) const
{
    int first = -1;
    int last = -1;
    int upper = 0;
    for (int i = 0; i < order.size(); ++i) {
        const int compares = compared(order[i], &key);
        if (compares <= 0)
            upper = i + 1;
        if (compares == 0 && i > after) {
            first = first == -1 ? i : first;
            last = i;
        }
    }
    const auto check = [&](bool condition, const char* what) {
        findings.check(condition, name, what);
    };
    const Record& record = key.record;
    check(sorted->search(record, after) == first, "search");
    check(sorted->searchLast(record, after) == last, "searchLast");
    check(sorted->searchFull(record, after) == (first == -1 ? -1 : first - after - 1),
          "searchFull");
    check(sorted->searchBinary(record, after, IndexSort::Compare(sorted)) == first, "searchBinary");
    check(sorted->find(record, after) == (first == -1 ? Record() : order[first]->record), "find");
    check(sorted->indexOfAdd(record) == upper, "indexOfAdd");
    const int position = order.indexOf(const_cast<Row*>(&key));
    check(sorted->indexOf(record) == position, "indexOf");
    check(sorted->contains(record) == (position != -1), "contains");
    check(sorted->at(position) == (position == -1 ? Record() : record), "at");

    QList<Record> some;
    QMap<Record, int> positions;
    for (int i = std::max(after, 0); i < order.size(); i += 1 + i % 3) {
        some.append(order[i]->record);
        positions.insert(order[i]->record, i);
    }
    if (position == -1)
        some.append(record);
    std::reverse(some.begin(), some.end());
    check(sorted->indexOfs(some) == positions, "indexOfs");
}

void WatchModel::reset(const Rows&)
{
    for (Rows& list : lists)
        list.clear();
}

void WatchModel::add(Row* row)
{
    lists[lists[1].removeOne(row) ? 2 : 0].append(row);
}
void WatchModel::remove(Row* row)
{
    lists[1].append(row);
}
void WatchModel::update(Row* row)
{
    lists[2].append(row);
}

void WatchModel::check(Findings& findings)
{
    const QList<Record>* const actual[] = {&watch->added(), &watch->removed(), &watch->updated()};
    for (int i = 0; i < 3; ++i) {
        Rows rows;
        for (const Record& record : *actual[i])
            rows.append(toRow(record));
        findings.check(rows == lists[i], name, i == 0 ? "added" : i == 1 ? "removed" : "updated");
    }
}

void checkPartitions(const IndexList& list, const QString& name, Findings& findings)
{
    const auto& partitions = list.records().partitions();
    int sum = 0;
    for (int i = 0; i + 1 < partitions.size(); ++i) {
        const int count = partitions.at(i)->count();
        findings.check(count > 0 && count < 10000, name, "size of a partition");
        sum += count;
    }
    findings.check(!partitions.isEmpty() && !partitions.last(), name, "end of the partitions");
    findings.check(sum == list.count(), name, "sum of the partitions");
}

// --- observers ---

Mirror::Mirror(QString label, IndexList* list, Findings* sink)
    : name(std::move(label) + QStringLiteral(", as told to observers"))
    , observed(list)
    , findings(sink)
    , copy(contents(*list))
{
    observed->addObserver(this);
}

Mirror::~Mirror()
{
    if (observed)
        observed->removeObserver(this);
}

std::vector<const unsigned char*> Mirror::contents(const IndexList& list)
{
    std::vector<const unsigned char*> rows;
    for (const Record& record : list)
        rows.push_back(record.row());
    return rows;
}

void Mirror::indexChanged(const IndexList& list, const IndexChange& change)
{
    QMap<int, const unsigned char*> out;
    const auto takeOut = [&](int position) {
        if (check(position >= 0 && position < int(copy.size()) && !out.contains(position),
                  "a position taken out"))
            out.insert(position, copy[std::size_t(position)]);
    };
    for (int i = 0; i < change.removedCount; ++i)
        takeOut(change.removed[i]);
    QMap<int, const unsigned char*> in;
    for (int i = 0; i < change.movedCount; ++i) {
        takeOut(change.moved[i].from);
        in.insert(change.moved[i].to, out.value(change.moved[i].from));
    }
    for (int i = 0; i < change.insertedCount; ++i)
        in.insert(change.inserted[i], list.at(change.inserted[i]).row());
    check(in.size() == change.movedCount + change.insertedCount, "a position put in twice");

    std::vector<const unsigned char*> next;
    for (std::size_t i = 0; i < copy.size(); ++i) {
        if (!out.contains(int(i)))
            next.push_back(copy[i]);
    }
    for (auto it = in.cbegin(); it != in.cend(); ++it) {
        if (!check(it.key() <= int(next.size()), "a gap"))
            return;
        next.insert(next.begin() + it.key(), it.value());
        told.insert(it.value());
    }
    copy.swap(next);
    for (int i = 0; i < change.changedCount; ++i) {
        const int at = change.changed[i];
        if (check(at >= 0 && at < int(copy.size()), "a position changed"))
            told.insert(copy[std::size_t(at)]);
    }
    check();
}

void Mirror::indexReset(const IndexList& list)
{
    copy = contents(list);
    told = QSet<const unsigned char*>(copy.begin(), copy.end());
}

void Mirror::indexDestroyed(const IndexList&)
{
    observed = nullptr;
}

bool Mirror::holds(const Record& record) const
{
    return std::find(copy.begin(), copy.end(), record.row()) != copy.end();
}

void Mirror::check()
{
    check(!observed || copy == contents(*observed), "content");
}

} // namespace Model

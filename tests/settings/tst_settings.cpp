// SPDX-License-Identifier: MIT
#include "base/fileio_p.h" // excuse(private): the call that is made to fail is behind it
#include "base/icore.h"
#include "settings/appsettings.h"
#include "settings/mapsettings.h"
#include "settings/qtjsonsettings.h"
#include "settings/workplacesettings.h"
#include "support/files.h"
#include "value/datetime.h"
#include "value/decimal.h"
#include "value/xdecimal.h"

#include <QtTest>

#include <thread>

using Map = QMap<QString, QVariant>;

namespace {

QByteArray compact(const QByteArray& json)
{
    return QJsonDocument::fromJson(json).toJson(QJsonDocument::Compact);
}

QStringList messages; // of the category "QGuiLog"

void keepMessage(QtMsgType, const QMessageLogContext& context, const QString& text)
{
    if (qstrcmp(context.category, "QGuiLog") == 0)
        messages.append(text);
}

} // namespace

class tst_Settings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { ICore::setProgramDir(QString()); }
    void valuesComeBack();
    void filesByHand();
    void writtenForm();
    void damagedFilesAreKept();
    void opensWithWords();
    void processesAndThreadsShareAFile();
    void everyOrderOfDeaths();
    void layers();
    void workplaces();
    void mapSettings();

private:
    std::unique_ptr<QTemporaryDir> dir;
};

void tst_Settings::init()
{
    dir = std::make_unique<QTemporaryDir>();
    ICore::setProgramDir(dir->path());
    qInstallMessageHandler(keepMessage);
    messages.clear();
}

void tst_Settings::valuesComeBack()
{
    QString controls;
    QByteArray bytes;
    for (int c = 0; c < 256; ++c) {
        controls += QString(QChar(c)) + "a0\"";
        bytes += QByteArray(1, char(c)) + "7)";
    }
    const char32_t emoji[] = {0x1F600, 'f', 0x10FFFF};
    const QString half(QChar(0xD83D)), mark(QChar(0xFEFF));
    const QDateTime time(QDate(2020, 1, 6), QTime(9, 30, 0, 250), Qt::OffsetFromUTC, 3600);
    const QVariant price = QVariant::fromValue(decimal(QString("-12.50")));
    const QVariantMap nested{{"a", 1}, {"b", QVariantMap{{"c/d", QVariantList{1.5, "x", true}}}}};
    QVariantList values;
    const auto add = [&values](std::initializer_list<QVariant> more) {
        for (const QVariant& value : more)
            values.append(value);
    };
    for (const char* text : {"", " ", "  a b ", "\t", "@", "@@x", "@Invalid()", "@Rect(1 2 3 4)",
                             "a, b;c=d", "\"", "\\x41\\", "null", ",", "Доска, цены"})
        add({QString(text)});
    for (const double number : {0.1, 1. / 3, -0.0, 1e300, 5e-324})
        add({number});
    add({controls, QString::fromUcs4(emoji, 3), half + "f" + mark + QChar(0xFFFF), mark, bytes});
    add({true, std::numeric_limits<qlonglong>::min(), std::numeric_limits<qulonglong>::max()});
    add({QVariant(), QByteArray(""), QRect(-1, 2, 0, 4), QSize(-1, 1 << 30), QPoint(1, -2)});
    add({QPointF(0.1, -2), QDate(-500, 2, 28), QTime(23, 59, 59, 999), time, time.toUTC()});
    add({QDateTime(time.date(), time.time(), QTimeZone("Europe/Moscow")), QChar(0x451), 0.1F});
    add({QUrl("http://a/b?c=d#e"), price, QVariant::fromValue(xdecimal(QString("1234567890.25")))});
    add({QStringList{"a, b", "", " ", "@x", "Ж"}, QStringList{half, mark + "b"}, QStringList{""}});
    add({QStringList(), QVariantList(), QVariantMap(), nested, QVariantList{1, nested}});
    add({QVariantList{1, 2.5, "a", QVariantList{QVariantMap{{"b", 2}}}, false}});
    add({QVariantList{QByteArray("\xFF"), QVariant(), QRect(1, 2, 3, 4), time, price}});
    add({QVariantMap{{"a", QPoint(1, 2)}, {"", QByteArray("\0", 1)}}});
    add({QVariantHash{{"a", QVariantMap{{"b", QByteArray("c")}}}}});

    const QString path = dir->filePath("a.json");
    const QString key = QString("g/Ж \\ @ключ") + QChar(0xD800);
    {
        QSettings settings(path, SettingsInitializer::jsonFormat());
        for (int i = 0; i < values.size(); ++i)
            settings.setValue(key + QString::number(i), values.at(i));
    }
    QFile::copy(path, path + "2"); // so that Qt knows nothing of it
    const QSettings settings(path + "2", SettingsInitializer::jsonFormat());
    QCOMPARE(settings.allKeys().size(), values.size());
    const QList<int> texts{QMetaType::Bool, QMetaType::Double, QMetaType::LongLong,
                           QMetaType::ULongLong, QMetaType::QStringList};
    for (int i = 0; i < values.size(); ++i) {
        const QVariant& value = values.at(i);
        QVariant back = settings.value(key + QString::number(i), "no value");
        if (texts.contains(value.userType()))
            back.convert(value.userType());
        const QByteArray what = QByteArray::number(i) + ": " + value.typeName();
        QVERIFY2(back.userType() == value.userType() && back == value, what);
        QVERIFY2(back.toDouble() == value.toDouble(), what);
        QCOMPARE(back.toDateTime().offsetFromUtc(), value.toDateTime().offsetFromUtc());
    }
    QCOMPARE(messages, QStringList());
}

void tst_Settings::filesByHand()
{
    const QRegularExpression form(
        "^Ошибка при чтении настроек JSON:\n QBuffer \n [^\n]+ в строке (\\d+)$");
    // With the offset of the error, -1 without one, -2 when it does not matter.
    const auto good = [&form](QByteArray bytes, const Map& expected, int offset = -1) {
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::ReadOnly);
        Map map;
        messages.clear();
        const QByteArray what = bytes.left(60);
        QVERIFY2(QtJsonSettings::readJsonFile(buffer, map) == (offset == -1), what);
        QVERIFY2(map == expected, what);
        QVERIFY2(messages.size() == (offset == -1 ? 0 : 1), what);
        const QRegularExpressionMatch match = form.match(messages.value(0));
        QVERIFY2(match.hasMatch() == messages.size(), qPrintable(messages.value(0)));
        QVERIFY2(offset < 0 || match.captured(1).toInt() == offset, what);
    };
    const auto bad = [&good](const QByteArray& bytes, int offset) { good(bytes, {}, offset); };
    const QByteArray text = "{\r\n  \"a\": {\r\n    \"b\": \"1\"\r\n  }\r\n}\r\n";
    const Map nothing{{"v", QVariant()}};
    for (const char* mark : {"", "\xEF\xBB\xBF", "\xFE\xFF", "\xFF\xFE"})
        good(mark + text, {{"a/b", "1"}});
    good("{\"n\":5,\"d\":0.5,\"t\":true,\"l\":[1,[{}]],\"b\":123456789012345678901234567890}",
         {{"n", 5},
          {"d", 0.5},
          {"t", true},
          {"b", 123456789012345678901234567890.},
          {"l", QVariantList{1, QVariantList{QVariantMap()}}}});
    good("{\"arr\":[{\"x\":\"1\"},{\"x\":\"2\"},3]}",
         {{"arr/size", 3}, {"arr/1/x", "1"}, {"arr/2/x", "2"}, {"arr/3", 3}});
    good("{\"g\":{\"@Map_m\":{\"k\":\"@Rect(\"},\"@Map_s\":\"2\"}}",
         {{"g/m", QVariantMap{{"k", "@Rect("}}}, {"g/@Map_s", "2"}});
    good(R"j({"l":"a,\" b,\", \\x41g\\x1\\x31,\\101\\z","b":"  a\\t \" c \"  "})j",
         {{"l", QStringList{"a", " b,", QString("Ag\x1") + "1", "A"}}, {"b", "a\t  c "}});
    good(R"j({"r":"@Rect(1 2 x 4)","v":"@Variant(\u0000)","i":"@Invalid()","e":"@Size(1 2 3)"})j",
         {{"r", "@Rect(1 2 x 4)"}, {"v", QVariant()}, {"i", QVariant()}, {"e", "@Size(1 2 3)"}});
    // A function's address in a curve, a list of 2^31 texts, lists in one another.
    good(R"j({"v":"@Variant(\u0000\u0000\u0000\u001D\u0001AAAAAAAA)"})j", nothing);
    good(R"j({"v":"@Variant(\u0000\u0000\u0000\u000B\u007F\u00FF\u00FF\u00FF)"})j", nothing);
    const QString list = "\\u0000\\u0000\\u0000\\u0009\\u0000\\u0000\\u0000\\u0001";
    good("{\"v\":\"@Variant(" + list.repeated(100000).toLatin1() + ")\"}", nothing);
    good(R"j({"a":{"x":[1]},"b":{"c":1,"c":[2],"\u0063":3},"\u0061":2})j", {{"a", 2}, {"b/c", 3}});
    good("[1]", {});
    bad("\xFF\xFE{\0}\0" + QByteArray("\0", 1), 2);
    bad(QByteArray(119, ' ') + "x", 120);
    bad(text.left(20), 20);
    bad("{\"a\":\"\xC3(\"}", 6);
    bad(QByteArray(100000, '['), 1025);
    bad("\n", 1);
    QByteArray members; // below a long name: a multiple of the file
    for (int i = 0; i < 200; ++i)
        members += '"' + QByteArray::number(i) + "\":1,";
    bad("{\"" + QByteArray(200000, 'n') + "\":{" + members + "\"z\":1}}", -2);
}

void tst_Settings::writtenForm()
{
    const auto add = [](const Map& map, const QByteArray& json, int warnings = 0) {
        QBuffer buffer;
        buffer.open(QIODevice::WriteOnly);
        messages.clear();
        QVERIFY(QtJsonSettings::writeJsonFile(buffer, map));
        QCOMPARE(compact(buffer.data()), json);
        QVERIFY2(messages.size() == warnings, json);
    };
    add({}, "{}");
    add({{"a/b", 5}, {"a/c", QString()}, {"t", true}, {"", 1}},
        R"j({"a":{"b":"5","c":""},"t":"true"})j");
    add({{"g/m", QVariantMap{{"k", 1}}}, {"l", QVariantList{QVariantMap{{"k", 2}}}}},
        R"j({"g":{"@Map_m":{"k":1}},"l":[{"k":2}]})j", 1);
    add({{"r/1/x", 1}, {"r/2/x", 2}, {"r/size", 2}},
        R"j({"r":{"1":{"x":"1"},"2":{"x":"2"},"size":"2"}})j");
    add({{"r/1/x", 1}, {"r/size", 2}}, R"j({"r":[{"x":"1"},null]})j");
    add({{"r/size", 1}}, R"j({"r":[null]})j", 1);
    add({{"r/font", 3}, {"r/size", 1}, {"size", 1}}, R"j({"r":[null],"size":"1"})j", 2);
    add({{"r/size", 2147483647}}, R"j({"r":{"size":"2147483647"}})j");
    add({{"a", 1}, {"a/b", 2}}, R"j({"a":{"b":"2"}})j", 1);
    add({{QString("a/").repeated(100000), 1}, {"b", 1}}, R"j({"b":"1"})j", 1);
    add({{"t", QVariant::fromValue<QObject*>(this)}}, R"j({"t":"@Invalid()"})j", 1);
    add({{"t", QVariant::fromValue(datetime(QString("2020-01-06")))}},
        R"j({"t":"2020.01.06 00:00:00.000"})j");
}

void tst_Settings::damagedFilesAreKept()
{
    struct NoSync : LiveTable::FileIo
    {
        NoSync() { setInstance(this); }
        ~NoSync() override { setInstance(nullptr); }
        int sync(int) override { return -EIO; }
    };
    for (const QByteArray text :
         {"{\"a\": \"1", "[1]", "{\"k\":[],\"k\":1}", "{\"k\":{\"x\":1},\"k/x\":1}"}) {
        init();
        const QString path = dir->filePath("s.json");
        for (const char* number : {"1", "2"}) {
            const QByteArray damaged = text + (number[0] == '2' ? " " : "");
            putContent(path, damaged);
            Settings settings{QFileInfo(path)};
            const bool isJson = !QJsonDocument::fromJson(damaged).isNull();
            QCOMPARE(settings.status() == QSettings::NoError, isJson);
            QCOMPARE(Settings(QFileInfo(path)).status(),
                     settings.status()); // Qt tells one of them
            {
                const NoSync noSync;
                settings.remove("k");
                settings.setValue("k", 5);
                settings.sync();
                QVERIFY(settings.status() != QSettings::NoError);
                QCOMPARE(contentOf(path), damaged);
            }
            settings.sync();
            QCOMPARE(compact(contentOf(path)), QByteArray("{\"k\":\"5\"}"));
            QCOMPARE(contentOf(path + ".damaged-" + number), damaged);
            QCOMPARE(Settings(QFileInfo(path)).status(), QSettings::NoError);
        }
        QCOMPARE(QDir(dir->path()).entryList(QDir::Files | QDir::Hidden).size(), 3);
    }
}

void tst_Settings::opensWithWords()
{
    QCOMPARE(SettingsInitializer::jsonFormat(), QSettings::CustomFormat1);
    QCOMPARE(SettingsInitializer::mapFormat(), QSettings::CustomFormat2);
    const QString path = dir->filePath("100%2.json");
    putContent(path, "{,}");
    QCOMPARE(Settings(QFileInfo(path), "g").group(), QString("g"));
    QVERIFY2(messages.takeFirst().contains(path + " \n "), qPrintable(path));
    QCOMPARE(Settings(QFileInfo(dir->path())).status(), QSettings::AccessError);
    const QString start = "Файл конфигурации не может быть загружен.";
    QCOMPARE(messages, QStringList({start, "Формат файла не соответствует заданному.", path, start,
                                    "Невозможно открыть файл.", dir->path()}));
}

void tst_Settings::processesAndThreadsShareAFile()
{
    const QString path = dir->filePath("s.json");
    constexpr int keys = 100;
    const QStringList names{"first", "second", "third"};
    {
        Settings settings{QFileInfo(path)};
        for (const QString& name : names)
            for (int i = 0; i < keys; ++i)
                settings.setValue(name + '/' + QString::number(i), 0);
        putContent(path + ".lock",
                   ""); // of a process that was killed before it wrote who it is
        QElapsedTimer timer;
        timer.start();
        settings.sync();
        QVERIFY(timer.elapsed() < 10000 && QFile::exists(path));
    }
    QProcess processes[2];
    for (int i = 0; i < 2; ++i)
        processes[i].start(SETTINGS_LOOP, {"mark", dir->path(), names[i]});
    const auto mark = [&](int first) {
        Settings settings(QFileInfo(path), names[2]);
        for (int i = first; i < keys; i += 2) {
            settings.setValue(QString::number(i), 1);
            settings.sync();
        }
    };
    std::thread threads[] = {std::thread(mark, 0), std::thread(mark, 1)};
    for (std::thread& thread : threads)
        thread.join();
    for (QProcess& process : processes)
        QVERIFY(process.waitForFinished(120000) && process.exitCode() == 0);
    QCOMPARE(contentOf(path).count("\": \"1\""), 3 * keys);
    // A file is told by its time from the one that it replaces, whatever the clock says.
    const QDateTime later = QDateTime::currentDateTime().addSecs(3600);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(later, QFileDevice::FileModificationTime));
    Settings(QFileInfo(path)).setValue("k", 1);
    QCOMPARE(QFileInfo(path).lastModified(), later.addMSecs(1));
}

// A copy and another over one file, each with a change not yet written, and settings in memory.
void tst_Settings::everyOrderOfDeaths()
{
    std::vector<int> order{0, 1, 2, 3};
    for (int n = 0; n < 24; ++n, std::next_permutation(order.begin(), order.end())) {
        const QFileInfo path(dir->filePath(QString::number(n)));
        auto* const file = new Settings(path);
        auto* const copy = new Settings(*file);
        auto* const other = new Settings(path, "g");
        auto* const map = new MapSettings;
        std::shared_ptr<void> objects[] = {
            std::shared_ptr<Settings>(file), std::shared_ptr<Settings>(copy),
            std::shared_ptr<Settings>(other), std::shared_ptr<MapSettings>(map)};
        file->setValue("0", 0);
        copy->setValue("1", 1);
        other->setValue("2", 2);
        map->setValue("3", 3);
        const MapSettings kept(*map);
        for (const int who : order)
            objects[who].reset();
        QCOMPARE(compact(contentOf(path.filePath())),
                 QByteArray(R"j({"0":"0","1":"1","g":{"2":"2"}})j"));
        QCOMPARE(kept.allKeys(), QStringList("3"));
    }
}

void tst_Settings::layers()
{
    const QString home = dir->filePath("home");
    qputenv("XDG_DATA_HOME", QFile::encodeName(home));
    for (const QString& user : {dir->filePath("user"), home + "/tst_settings"}) {
        if (user.startsWith(home))
            putContent(dir->filePath(".installed"), "");
        const QString shipped = dir->filePath("user_defaults/settings.json");
        putContent(shipped, R"j({"A":{"x":"shipped"},"B":{"x":"shipped"}})j");
        putContent(dir->filePath("user_defaults/default.json"), R"j({"A":{"x":"shipped"}})j");
        QVERIFY(AppSettings::isReset());
        QCOMPARE(AppSettings::createReadOnly("A").value("x").toString(), QString("shipped"));
        QVERIFY(!AppSettings::isReset());
        AppSettings::createReadWrite("A").setValue("y", "own");
        QCOMPARE(contentOf(user + "/settings/settings.json").simplified(),
                 QByteArray(R"j({ "A": { "y": "own" } })j"));
        QCOMPARE(AppSettings::createReadOnly("A").allKeys(), QStringList("y"));
        QCOMPARE(AppSettings::createReadOnly("B").value("x").toString(), QString("shipped"));
        QCOMPARE(AppSettings::createDefault("A").allKeys(), QStringList("x"));
        QFile::remove(shipped); // without it the user's file has every group
        QCOMPARE(AppSettings::createReadOnly("B").allKeys(), QStringList());

        DefaultSettings defaults = DefaultSettings::createReadWrite("A");
        for (const char* key : {"z", "g/z", "g/h/z"})
            defaults.setValue(key, 1);
        DefaultSettings("C").setValue("z", 1);
        defaults.beginGroup("g");
        defaults.clear();
        QCOMPARE(defaults.group(), QString("A/g"));
        defaults.endGroup();
        QCOMPARE(defaults.allKeys(), QStringList("z"));
        defaults.clear();
        QCOMPARE(DefaultSettings::createReadOnly("A").value("x").toString(), QString("shipped"));
        QCOMPARE(DefaultSettings("C").allKeys(), QStringList("z"));
    }
}

void tst_Settings::workplaces()
{
    const QString shipped = dir->filePath("user_distrib/workplaces/");
    for (const char* name : {"b.json", "a.b.json", "c.txt"})
        putContent(shipped + name, "{\"x\":\"shipped\"}");
    QCOMPARE(WorkplaceSettings::workplaces(false).size(), 2);
    QCOMPARE(WorkplaceSettings("b").value("x").toString(), QString("shipped"));
    WorkplaceSettings("new").setValue("x", "own");
    auto workplace = WorkplaceSettings::workplace("new", true);
    for (const char* no : {"", "../new2", "a/b", "new"})
        QVERIFY2(!WorkplaceSettings::rename(workplace, no), no);
    QVERIFY(WorkplaceSettings::rename(workplace, "b"));
    QCOMPARE(workplace, WorkplaceSettings::workplace("b", true));
    QCOMPARE(WorkplaceSettings("b").value("x").toString(), QString("own"));
    auto missing = WorkplaceSettings::workplace("missing", true);
    QVERIFY(!WorkplaceSettings::rename(missing, "b"));
    QVERIFY(WorkplaceSettings::rename(missing, "empty"));
    QCOMPARE(contentOf(missing.second.filePath()), QByteArray());
    auto moved = WorkplaceSettings::workplaces(false).first();
    QCOMPARE(moved.first, QString("a.b"));
    QVERIFY(WorkplaceSettings::rename(moved, "a.c") && !QFile::exists(shipped + "a.b.json"));
    QCOMPARE(QDir(dir->filePath("user/workplaces")).entryList(QDir::Files),
             QStringList({"a.c.json", "b.json", "empty.json"}));
    QCOMPARE(WorkplaceSettings::fallbackName()("b"), QString("b 2"));
    QCOMPARE(WorkplaceSettings::fallbackName()("d"), QString("d"));
}

void tst_Settings::mapSettings()
{
    MapSettings a;
    a.setValue("k", "a");
    QCoreApplication::processEvents(); // finds no reason to look for a file
    QCOMPARE(a.status(), QSettings::NoError);
    alignas(MapSettings) char place[sizeof(MapSettings)];
    for (const char* key : {"k", "other"}) {
        auto* const b = new (place) MapSettings;
        QCOMPARE(b->allKeys(), QStringList());
        b->setValue(key, "b");
        QCOMPARE(b->value(key).toString() + a.value("k").toString(), QString("ba"));
        b->~MapSettings();
    }
    QCOMPARE(a.group(), QString("0x%1").arg(quintptr(&a), 16, 16, QChar('0')));
    a.setValue("g/m", QVariantMap{{"x", 1}});
    Settings file{QFileInfo(dir->filePath("s.json"))};
    for (const char* key : {"top/old", "top/k/under", "beside"})
        file.setValue(key, 0);
    a.storeAdd(*file.getQSettings(), "top");
    QCOMPARE(file.allKeys(), QStringList({"beside", "top/g/m", "top/k", "top/old"}));
    a.store(file, "top");
    QCOMPARE(file.allKeys(), QStringList({"beside", "top/g/m", "top/k"}));

    MapSettings c(file);
    c.restore(file, "top");
    QCOMPARE(c.allKeys(), QStringList({"beside", "g/m", "k", "top/g/m", "top/k"}));
    QVERIFY(file.group().isEmpty());
    c.store(c, "inner");
    c.beginGroup("inner/g");
    QCOMPARE(MapSettings(c).allKeys(), QStringList("m"));
    c.endAllGroups();
    c = *&c;
    QCOMPARE(c.allKeys().size(), 10);
    c = a;
    QCOMPARE(c.allKeys(), QStringList({"g/m", "k"}));
    c.asSetRef().beginGroup("g");
    c.clear();
    c.setValue("z", 1);
    c.sync();
    QCOMPARE(c.asSetRef().allKeys(), QStringList("z"));
}

QTEST_GUILESS_MAIN(tst_Settings)
#include "tst_settings.moc"

// SPDX-License-Identifier: MIT
#include "base/fileio_p.h" // excuse(private): the call that is made to fail is behind it
#include "base/icore.h"
#include "settings/appsettings.h"
#include "settings/mapsettings.h"
#include "settings/qjson.h"
#include "settings/qtjsonsettings.h"
#include "settings/workplacesettings.h"
#include "value/datetime.h"
#include "value/decimal.h"
#include "value/xdecimal.h"

#include <QtTest>

#include <new>
#include <thread>

using Map = QMap<QString, QVariant>;

namespace {

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("no file");
}

void putContent(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
}

bool read(QByteArray bytes, Map& map)
{
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    return QtJsonSettings::readJsonFile(buffer, map);
}

QByteArray written(const Map& map)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    QtJsonSettings::writeJsonFile(buffer, map);
    return buffer.data();
}

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
    void valuesComeBack_data();
    void valuesComeBack();
    void filesByHand_data();
    void filesByHand();
    void writtenForm_data();
    void writtenForm();
    void damagedFilesAreKept_data();
    void damagedFilesAreKept();
    void opensWithWords();
    void processesAndThreadsShareAFile();
    void fullDisk();
    void layers_data();
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

void tst_Settings::valuesComeBack_data()
{
    QTest::addColumn<QVariant>("value");
    const auto add = [](const char* name, const QVariant& value) { QTest::newRow(name) << value; };
    QString controls;
    for (ushort c = 0; c < 256; ++c)
        controls += QString(QChar(c)) + QLatin1String("a0\"");
    QByteArray bytes;
    for (int c = 0; c < 256; ++c)
        bytes += QByteArray(1, char(c)) + "7)";
    const char32_t emoji[] = {0x1F600, 'f', 0x10FFFF};
    const QDateTime time(QDate(2020, 1, 6), QTime(9, 30, 0, 250), Qt::OffsetFromUTC, 3600);
    const QVariantMap nested{{"a", 1}, {"b", QVariantMap{{"c/d", QVariantList{1.5, "x", true}}}}};
    add("controls", controls);
    add("Cyrillic", QString("Доска, цены"));
    add("emoji", QString::fromUcs4(emoji, 3));
    add("half a pair, marks",
        QString(QChar(0xD83D)) + "f" + QChar(0xDE00) + QChar(0xFEFF) + QChar(0xFFFF));
    add("only a mark", QString(QChar(0xFEFF)));
    for (const char* text : {"", " ", "  a b ", "\t", "@", "@@x", "@Invalid()", "@Rect(1 2 3 4)",
                             "a, b;c=d", "\"", "\\x41\\", "null", ","})
        add(text, QString(text));
    for (const double number : {0.1, -0.0, 1e300, 5e-324})
        add("double", number);
    add("64 bits", std::numeric_limits<qlonglong>::min());
    add("64 bits, no sign", std::numeric_limits<qulonglong>::max());
    add("bool", true);
    add("none", QVariant());
    add("bytes", bytes);
    add("no bytes", QByteArray(""));
    add("rectangle", QRect(-1, 2, 0, 4));
    add("size", QSize(-1, 1 << 30));
    add("point", QPoint(1, -2));
    add("real point", QPointF(0.1, -2));
    add("date", QDate(-500, 2, 28));
    add("time", QTime(23, 59, 59, 999));
    add("time with offset", time);
    add("time of a zone", QDateTime(time.date(), time.time(), QTimeZone("Europe/Moscow")));
    add("time in UTC", time.toUTC());
    add("character", QChar(0x451));
    add("float", 0.1F);
    add("URL", QUrl("http://a/b?c=d#e"));
    add("decimal", QVariant::fromValue(decimal(QString("-12.50"))));
    add("xdecimal", QVariant::fromValue(xdecimal(QString("123456789012345678901.25"))));
    add("texts", QStringList{"a, b", "", " ", "@x", "Ж"});
    add("texts with half a pair", QStringList{QString(QChar(0xD800)), "b"});
    add("one text", QStringList{""});
    add("no texts", QStringList());
    add("list", QVariantList{1, 2.5, "a", QVariantList{QVariantMap{{"b", 2}}}, false});
    add("list of types", QVariantList{QByteArray("\xFF"), QVariant(), QRect(1, 2, 3, 4), time,
                                      QVariant::fromValue(decimal(QString("1.10")))});
    add("list of maps", QVariantList{nested, nested});
    add("no list", QVariantList());
    add("map", nested);
    add("map of types", QVariantMap{{"a", QPoint(1, 2)}, {"", QByteArray("\0", 1)}});
    add("empty map", QVariantMap());
    add("hash", QVariantHash{{"a", QVariantMap{{"b", QByteArrayList{"c"}.join()}}}});
}

void tst_Settings::valuesComeBack()
{
    QFETCH(QVariant, value);
    const QString path = dir->filePath("a.json");
    const QString key = QStringLiteral("g/Ж \\ @ключ");
    {
        QSettings settings(path, SettingsInitializer::jsonFormat());
        settings.setValue(key, value);
        settings.setValue("g/other", 1);
        settings.sync();
        QCOMPARE(settings.status(), QSettings::NoError);
    }
    QFile::copy(path, path + "2"); // so that Qt knows nothing of it
    const QSettings settings(path + "2", SettingsInitializer::jsonFormat());
    QVERIFY(settings.contains(key));
    const QVariant back = settings.value(key);
    QCOMPARE(settings.allKeys().size(), 2);
    const bool isNumber =
        value.userType() == QMetaType::Bool || value.userType() == QMetaType::Double ||
        value.userType() == QMetaType::LongLong || value.userType() == QMetaType::ULongLong;
    if (isNumber)
        QCOMPARE(back.toString(), value.toString());
    else if (value.userType() == QMetaType::QStringList)
        QCOMPARE(back.toStringList(), value.toStringList());
    else
        QCOMPARE(back.userType(), value.userType());
    if (value.userType() == QMetaType::QDateTime)
        QCOMPARE(back.toDateTime().offsetFromUtc(), value.toDateTime().offsetFromUtc());
    if (isNumber)
        QVERIFY(QVariant(back).convert(value.userType()));
    else
        QVERIFY(back == value);
    QVERIFY(messages.isEmpty());
}

void tst_Settings::filesByHand_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Map>("expected");
    QTest::addColumn<int>("offset"); // of the error, -1 without one
    const auto good = [](const char* name, const QByteArray& bytes, const Map& expected) {
        QTest::newRow(name) << bytes << expected << -1;
    };
    const auto bad = [](const char* name, const QByteArray& bytes, int offset) {
        QTest::newRow(name) << bytes << Map() << offset;
    };
    const QByteArray text = "{\r\n  \"a\": {\r\n    \"b\": \"1\"\r\n  }\r\n}\r\n";
    const Map one{{"a/b", "1"}};
    good("Windows line ends", text, one);
    good("mark of UTF-8", "\xEF\xBB\xBF" + text, one);
    good("mark of UTF-16, big", "\xFE\xFF" + text, one);
    good("mark of UTF-16, little", "\xFF\xFE" + text, one);
    good("own types", "{\"n\":5,\"d\":0.5,\"t\":true,\"o\":null,\"l\":[1,[{}]]}",
         {{"n", 5},
          {"d", 0.5},
          {"t", true},
          {"o", QVariant::fromValue(nullptr)},
          {"l", QVariantList{1, QVariantList{QVariantMap()}}}});
    good("array", "{\"arr\":[{\"x\":\"1\"},{\"x\":\"2\"},3]}",
         {{"arr/size", 3}, {"arr/1/x", "1"}, {"arr/2/x", "2"}, {"arr/3", 3}});
    good("map", "{\"g\":{\"@Map_m\":{\"k\":\"@Rect(\"},\"@Map_s\":\"2\"}}",
         {{"g/m", QVariantMap{{"k", "@Rect("}}}, {"g/@Map_s", "2"}});
    good("list text", R"j({"l":"a,\" b,\", \\x41g\\x1\\x31,\\101\\z"})j",
         {{"l", QStringList{"a", " b,", QString("Ag\x1") + "1", "A"}}});
    good("blanks", R"j({"b":"  a\\t \" c \"  "})j", {{"b", "a\t  c "}});
    good("no values", R"j({"r":"@Rect(1 2 x 4)","v":"@Variant(\u0000)","i":"@Invalid()","e":"@"
})j",
         {{"r", "@Rect(1 2 x 4)"}, {"v", QVariant()}, {"i", QVariant()}, {"e", "@"}});
    good("a curve's address", R"j({"v":"@Variant(\u0000\u0000\u0000\u001D\u0001AAAAAAAA)"
    })j",
         {{"v", QVariant()}});
    good("a list of many",
         R"j({"v":"@Variant(\u0000\u0000\u0000\u000B\u007F\u00FF\u00FF\u00FF)"
    })j",
         {{"v", QVariant()}});
    good("same name twice", R"j({"a":{"x":[1]},"b":{"c":1,"c":[2],"\u0063":3},"\u0061":2})j",
         {{"a", 2}, {"b/c", 3}});
    good("huge numbers", "{\"b\":123456789012345678901234567890}",
         {{"b", 123456789012345678901234567890.0}});
    good("an array alone", "[1]", {});
    QString deep; // lists in one another, as many as an 8 KB file takes
    for (int i = 0; i < 1000; ++i)
        deep += "\\u0000\\u0000\\u0000\\u0009\\u0000\\u0000\\u0000\\u0001";
    good("deep value", "{\"v\":\"@Variant(" + deep.toLatin1() + ")\"}", {{"v", QVariant()}});
    bad("UTF-16", "\xFF\xFE{\0}\0" + QByteArray("\0", 1), 2);
    bad("place of the error", QByteArray(119, ' ') + "x", 120);
    bad("cut", text.left(20), 20);
    bad("bad UTF-8", "{\"a\":\"\xC3(\"}", 6);
    bad("deep", QByteArray(100000, '['), 1025);
    bad(
        "long name of many",
        "{\"" + QByteArray(200000, 'n') + "\":{" +
            [] {
                QByteArray members;
                for (int i = 0; i < 200; ++i)
                    members += '"' + QByteArray::number(i) + "\":1,";
                return members;
            }() +
            "\"z\":1}}",
        -2);
    bad("blank", "\n", 1);
}

void tst_Settings::filesByHand()
{
    QFETCH(QByteArray, bytes);
    QFETCH(Map, expected);
    QFETCH(int, offset);
    Map map;
    QCOMPARE(read(bytes, map), offset == -1);
    if (offset > -2)
        QCOMPARE(map, expected);
    if (offset == -1)
        return;
    QCOMPARE(messages.size(), 1);
    const QRegularExpression form(
        QStringLiteral("^Ошибка при чтении настроек JSON:\n QBuffer \n [^\n]+ в строке (\\d+)$"));
    const QRegularExpressionMatch match = form.match(messages.first());
    QVERIFY2(match.hasMatch(), qPrintable(messages.first()));
    if (offset >= 0)
        QCOMPARE(match.captured(1).toInt(), offset);
}

void tst_Settings::writtenForm_data()
{
    QTest::addColumn<Map>("map");
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("warnings");
    const auto add = [](const char* name, const Map& map, const QByteArray& json, int warnings) {
        QTest::newRow(name) << map << json << warnings;
    };
    add("nothing", {}, "{}", 0);
    add("values", {{"a/b", 5}, {"a/c", QString()}, {"t", true}, {"", 1}},
        R"j({"a":{"b":"5","c":""},"t":"true"})j", 0);
    add("map", {{"g/m", QVariantMap{{"k", 1}}}}, R"j({"g":{"@Map_m":{"k":1}}})j", 0);
    add("array", {{"r/1/x", 1}, {"r/2/x", 2}, {"r/size", 2}},
        R"j({"r":{"1":{"x":"1"},"2":{"x":"2"},"size":"2"}})j", 0);
    add("array without one", {{"r/1/x", 1}, {"r/size", 2}}, R"j({"r":[{"x":"1"},null]})j", 0);
    add("size one, alone", {{"r/size", 1}}, R"j({"r":[null]})j", 1);
    add("size beside another", {{"r/font", 3}, {"r/size", 1}, {"size", 1}},
        R"j({"r":{"font":"3","size":"1"},"size":"1"})j", 0);
    add("huge size", {{"r/size", 2147483647}}, R"j({"r":{"size":"2147483647"}})j", 0);
    add("key and group", {{"a", 1}, {"a/b", 2}}, R"j({"a":{"b":"2"}})j", 1);
    add("too many levels", {{QString("a/").repeated(100000), 1}, {"b", 1}}, R"j({"b":"1"})j", 1);
    add("time of ours", {{"t", QVariant::fromValue(datetime(QString("2020-01-06")))}},
        R"j({"t":"2020.01.06 00:00:00.000"})j", 0);
}

void tst_Settings::writtenForm()
{
    QFETCH(Map, map);
    QFETCH(QByteArray, json);
    QTEST(compact(written(map)), "json");
    QTEST(messages.size(), "warnings");
}

void tst_Settings::damagedFilesAreKept_data()
{
    QTest::addColumn<QByteArray>("damaged");
    QTest::addColumn<QSettings::Status>("status");
    QTest::newRow("cut") << QByteArray("{\"a\": \"1") << QSettings::FormatError;
    QTest::newRow("no object") << QByteArray("[1]") << QSettings::NoError;
    QTest::newRow("same name twice") << QByteArray("{\"k\":[],\"k\":1}") << QSettings::NoError;
    QTest::newRow("zeros") << QByteArray(4096, '\0') << QSettings::FormatError;
}

void tst_Settings::damagedFilesAreKept()
{
    struct NoSync : LiveTable::FileIo
    {
        NoSync() { setInstance(this); }
        ~NoSync() override { setInstance(nullptr); }
        int sync(int) override { return -EIO; }
    };
    QFETCH(QByteArray, damaged);
    const QString path = dir->filePath("s.json");
    for (const char* number : {"1", "2"}) {
        damaged += number[0] == '2' ? " " : "";
        putContent(path, damaged);
        Settings settings{QFileInfo(path)};
        QTEST(settings.status(), "status");
        QTEST(Settings(QFileInfo(path)).status(), "status"); // Qt tells the first one only
        {
            const NoSync noSync;
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

void tst_Settings::opensWithWords()
{
    const QString path = dir->filePath("100%2.json");
    putContent(path, "{,}");
    const Settings settings(QFileInfo(path), "g");
    QCOMPARE(settings.group(), QString("g"));
    QCOMPARE(messages.size(), 4);
    QVERIFY2(messages[0].contains(path + " \n "), qPrintable(messages[0]));
    QCOMPARE(messages.mid(1), QStringList({"Файл конфигурации не может быть загружен.",
                                           "Формат файла не соответствует заданному.", path}));
    messages.clear();
    const Settings folder{QFileInfo(dir->path())};
    QCOMPARE(messages.mid(0, 2), QStringList({"Файл конфигурации не может быть загружен.",
                                              "Невозможно открыть файл."}));
}

void tst_Settings::processesAndThreadsShareAFile()
{
    const QString path = dir->filePath("s.json");
    constexpr int keys = 200;
    const QStringList names{"first", "second", "third"};
    {
        Settings settings{QFileInfo(path)};
        for (const QString& name : names)
            for (int i = 0; i < keys; ++i)
                settings.setValue(name + '/' + QString::number(i), 0);
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
    for (QProcess& process : processes) {
        QVERIFY(process.waitForFinished(120000));
        QCOMPARE(process.exitCode(), 0);
    }
    Map map;
    QVERIFY(read(contentOf(path), map));
    QCOMPARE(map.size(), 3 * keys);
    QCOMPARE(map.keys("0"), QStringList());
}

// LIVETABLE_FULL_DISK: see scripts/full-disk.sh.
void tst_Settings::fullDisk()
{
    const QString place = qEnvironmentVariable("LIVETABLE_FULL_DISK");
    if (place.isEmpty())
        QSKIP("needs a small file system");
    const QByteArray damaged(100000, '[');
    for (const bool isDamaged : {false, true}) {
        const QString path = place + (isDamaged ? "/damaged.json" : "/s.json");
        putContent(path, isDamaged ? damaged : QByteArray("{\"k\":\"1\"}"));
        const QByteArray old = contentOf(path);
        Settings settings{QFileInfo(path)};
        settings.setValue("large", QString(400000, 'x'));
        settings.sync();
        QCOMPARE(settings.status(), isDamaged ? QSettings::FormatError : QSettings::AccessError);
        QCOMPARE(contentOf(path), old);
        settings.remove("large");
        settings.setValue("k", 2);
        settings.sync();
        QCOMPARE(compact(contentOf(path)), QByteArray("{\"k\":\"2\"}"));
        if (isDamaged)
            QCOMPARE(contentOf(path + ".damaged-1"), damaged);
    }
}

void tst_Settings::layers_data()
{
    QTest::addColumn<bool>("isInstalled");
    QTest::newRow("portable") << false;
    QTest::newRow("installed") << true;
}

void tst_Settings::layers()
{
    QFETCH(bool, isInstalled);
    const QString home = dir->filePath("home");
    qputenv("XDG_DATA_HOME", QFile::encodeName(home));
    if (isInstalled)
        putContent(dir->filePath(".installed"), "");
    const QString user = isInstalled ? home + "/tst_settings" : dir->filePath("user");
    const QString shipped = dir->filePath("user_defaults");
    putContent(shipped + "/settings.json", R"j({"A":{"x":"shipped"},"B":{"x":"shipped"}})j");
    putContent(shipped + "/default.json", R"j({"A":{"x":"shipped"}})j");
    QVERIFY(AppSettings::isReset());
    QCOMPARE(AppSettings::createReadOnly("A").value("x").toString(), QString("shipped"));
    QVERIFY(!AppSettings::isReset());
    QCOMPARE(AppSettings::customPath().filePath(), user + "/settings/settings.json");
    AppSettings::createReadWrite("A").setValue("y", "own");
    QCOMPARE(AppSettings::createReadOnly("A").allKeys(), QStringList("y"));
    QCOMPARE(AppSettings::createReadOnly("B").value("x").toString(), QString("shipped"));
    QCOMPARE(AppSettings::createDefault("A").allKeys(), QStringList("x"));
    QCOMPARE(compact(contentOf(user + "/settings/settings.json")),
             QByteArray(R"j({"A":{"y":"own"}})j"));

    DefaultSettings defaults = DefaultSettings::createReadWrite("A");
    defaults.setValue("z", 1);
    defaults.setValue("g/z", 1);
    defaults.beginGroup("g");
    DefaultSettings("C").setValue("z", 1);
    QCOMPARE(DefaultSettings::createReadOnly("A").allKeys(), QStringList({"g/z", "z"}));
    defaults.clear();
    QCOMPARE(defaults.group(), QString("A/g"));
    defaults.endGroup();
    QCOMPARE(defaults.allKeys(), QStringList("z"));
    defaults.clear();
    defaults.sync();
    QCOMPARE(DefaultSettings::createReadOnly("A").value("x").toString(), QString("shipped"));
    QCOMPARE(DefaultSettings("C").allKeys(), QStringList("z"));
    QFile::remove(shipped + "/settings.json"); // without it the user's file has every group
    QCOMPARE(AppSettings::createReadOnly("B").allKeys(), QStringList());
    QVERIFY(QFileInfo::exists(home) == isInstalled);
}

void tst_Settings::workplaces()
{
    const QString shipped = dir->filePath("user_distrib/workplaces/");
    const QString own = dir->filePath("user/workplaces/");
    for (const char* name : {"b.json", "a.b.json", "c.txt"})
        putContent(shipped + name, "{\"x\":\"shipped\"}");
    QCOMPARE(WorkplaceSettings::workplaces(false).size(), 2);
    QCOMPARE(WorkplaceSettings::workplaces(false).first().first, QString("a.b"));
    QCOMPARE(WorkplaceSettings("b").value("x").toString(), QString("shipped"));
    WorkplaceSettings("new").setValue("x", "own");
    auto workplace = WorkplaceSettings::workplace("new", true);
    for (const char* no : {"", "../new2", "a/b", "new"})
        QVERIFY2(!WorkplaceSettings::rename(workplace, no), no);
    QVERIFY(WorkplaceSettings::rename(workplace, "b"));
    QCOMPARE(workplace.first, QString("b"));
    QCOMPARE(workplace.second.filePath(), own + "b.json");
    QCOMPARE(WorkplaceSettings("b").value("x").toString(), QString("own"));
    auto missing = WorkplaceSettings::workplace("missing", true);
    QVERIFY(!WorkplaceSettings::rename(missing, "b"));
    QVERIFY(WorkplaceSettings::rename(missing, "empty"));
    QCOMPARE(contentOf(own + "empty.json"), QByteArray());
    auto moved = WorkplaceSettings::workplaces(false).first();
    QVERIFY(WorkplaceSettings::rename(moved, "a.c"));
    QVERIFY(!QFile::exists(shipped + "a.b.json"));
    QStringList names;
    for (const auto& one : WorkplaceSettings::workplaces(true))
        names.append(one.first);
    QCOMPARE(names, QStringList({"a.c", "b", "empty"}));
    QCOMPARE(WorkplaceSettings::fallbackName()("b"), QString("b 2"));
    QCOMPARE(WorkplaceSettings::fallbackName()("d"), QString("d"));
}

void tst_Settings::mapSettings()
{
    MapSettings a;
    a.setValue("k", "a");
    QCoreApplication::processEvents(); // finds no reason to look for a file
    QCOMPARE(a.asSetRef().status(), QSettings::NoError);
    alignas(MapSettings) char place[sizeof(MapSettings)];
    for (const char* key : {"k", "other"}) {
        auto* const b = new (place) MapSettings;
        QCOMPARE(b->allKeys(), QStringList());
        b->setValue(key, "b");
        QCOMPARE(b->value(key).toString(), QString("b"));
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
    QVERIFY(file.group().isEmpty());

    MapSettings c(file);
    QCOMPARE(c.allKeys(), file.allKeys());
    c.restore(file, "top");
    QCOMPARE(c.allKeys(), QStringList({"beside", "g/m", "k", "top/g/m", "top/k"}));
    c.store(c, "inner");
    QCOMPARE(c.allKeys().size(), 10);
    c.beginGroup("inner/g");
    MapSettings part(c);
    QCOMPARE(part.allKeys(), QStringList("m"));
    c.endAllGroups();
    c = *&c;
    QCOMPARE(c.allKeys().size(), 10);
    c = a;
    QCOMPARE(c.allKeys(), QStringList({"g/m", "k"}));
    c.asSetRef().beginGroup("g");
    c.clear();
    c.setValue("z", 1);
    QCOMPARE(c.asSetRef().allKeys(), QStringList("z"));
    c.sync();
    QCOMPARE(c.value("z").toInt(), 1);
}

QTEST_GUILESS_MAIN(tst_Settings)
#include "tst_settings.moc"

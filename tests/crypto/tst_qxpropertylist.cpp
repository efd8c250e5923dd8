#include "platform/QXPropertyList_p.h"

#include <QtTest>

#include <cmath>
#include <limits>
#include <random>

using QXPropertyList::Format;

namespace {

QDateTime utc(const char *iso)
{
    QDateTime date = QDateTime::fromString(QString::fromLatin1(iso), Qt::ISODateWithMs);
    return date.toTimeZone(QTimeZone::utc());
}

std::optional<QVariant> roundTrip(const QVariant &value, Format format)
{
    Format read = format == Format::Binary ? Format::Xml : Format::Binary;
    const QByteArray bytes = QXPropertyList::serialize(value, format);
    if (bytes.isNull())
        return std::nullopt;
    std::optional<QVariant> parsed = QXPropertyList::parse(bytes, &read);
    if (parsed && read != format)
        return std::nullopt;
    return parsed;
}

// Numbers compare by value across integer types; pin the type as well.
bool sameTree(const QVariant &a, const QVariant &b)
{
    if (a.typeId() == QMetaType::QVariantList && b.typeId() == QMetaType::QVariantList) {
        const QVariantList x = a.toList(), y = b.toList();
        if (x.size() != y.size())
            return false;
        for (qsizetype i = 0; i < x.size(); ++i)
            if (!sameTree(x.at(i), y.at(i)))
                return false;
        return true;
    }
    if (a.typeId() == QMetaType::QVariantMap && b.typeId() == QMetaType::QVariantMap) {
        const QVariantMap x = a.toMap(), y = b.toMap();
        if (x.keys() != y.keys())
            return false;
        for (auto it = x.cbegin(); it != x.cend(); ++it)
            if (!sameTree(it.value(), y.value(it.key())))
                return false;
        return true;
    }
    return a.typeId() == b.typeId() && a == b;
}

} // namespace

class tst_QXPropertyList : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void roundTripsInBothFormats();
    void readsDocumentsWrittenElsewhere();
    void integersAndDatesAtTheEdges();
    void refusesWhatItCannotCarry();
    void survivesDamagedInput();
};

void tst_QXPropertyList::roundTripsInBothFormats()
{
    const QVariantMap tree{
        {QStringLiteral("text"), QStringLiteral("Grüße 😀")},
        {QStringLiteral(""), QStringLiteral("an empty key")},
        {QStringLiteral("count"), qlonglong(-42)},
        {QStringLiteral("ratio"), 0.1},
        {QStringLiteral("yes"), true},
        {QStringLiteral("no"), false},
        {QStringLiteral("when"), utc("2024-03-05T13:07:09Z")},
        {QStringLiteral("bytes"), QByteArray("\0\1\2\xFF", 4)},
        {QStringLiteral("nothing"), QByteArray("")},
        {QStringLiteral("list"), QVariantList{qlonglong(1), QStringLiteral("two"), QVariantList{}, QVariantMap{}}},
        {QStringLiteral("nested"), QVariantMap{{QStringLiteral("deeper"), QVariantMap{{QStringLiteral("x"), 2.5}}}}},
    };
    for (const Format format : {Format::Binary, Format::Xml}) {
        const QByteArray bytes = QXPropertyList::serialize(tree, format);
        if (format == Format::Binary)
            QVERIFY(bytes.startsWith("bplist00"));
        else
            QVERIFY(bytes.contains("<plist"));
        const std::optional<QVariant> back = roundTrip(tree, format);
        QVERIFY(back);
        QVERIFY2(sameTree(*back, tree), format == Format::Binary ? "binary" : "XML");
    }
    // What the reading side gives for the other integer, string and map types.
    const QVariantList written{int(7), uint(8), short(-9), float(0.5f), QStringList{QStringLiteral("a")},
                               QVariantHash{{QStringLiteral("h"), 1}}};
    const QVariantList expected{qlonglong(7), qlonglong(8), qlonglong(-9), 0.5,
                                QVariantList{QStringLiteral("a")}, QVariantMap{{QStringLiteral("h"), qlonglong(1)}}};
    const std::optional<QVariant> back = roundTrip(written, Format::Binary);
    QVERIFY(back);
    QVERIFY(sameTree(*back, expected));
}

void tst_QXPropertyList::readsDocumentsWrittenElsewhere()
{
    const QByteArray xml(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\">\n<dict>\n"
        "\t<key>Name</key>\n\t<string>Jörg &amp; Anna</string>\n"
        "\t<key>Count</key>\n\t<integer>-3</integer>\n"
        "\t<key>Big</key>\n\t<integer>18446744073709551615</integer>\n"
        "\t<key>Pi</key>\n\t<real>3.25</real>\n"
        "\t<key>On</key>\n\t<true/>\n"
        "\t<key>Since</key>\n\t<date>2009-02-13T23:31:30Z</date>\n"
        "\t<key>Blob</key>\n\t<data>\n\tAAEC/w==\n\t</data>\n"
        "\t<key>Items</key>\n\t<array><string>a</string><false/></array>\n"
        "</dict>\n</plist>\n");
    Format format = Format::Binary;
    const std::optional<QVariant> parsed = QXPropertyList::parse(xml, &format);
    QVERIFY(parsed);
    QCOMPARE(format, Format::Xml);
    const QVariantMap expected{
        {QStringLiteral("Name"), QStringLiteral("Jörg & Anna")},
        {QStringLiteral("Count"), qlonglong(-3)},
        {QStringLiteral("Big"), qulonglong(std::numeric_limits<quint64>::max())},
        {QStringLiteral("Pi"), 3.25},
        {QStringLiteral("On"), true},
        {QStringLiteral("Since"), QDateTime::fromSecsSinceEpoch(1234567890, QTimeZone::utc())},
        {QStringLiteral("Blob"), QByteArray("\0\1\2\xFF", 4)},
        {QStringLiteral("Items"), QVariantList{QStringLiteral("a"), false}},
    };
    QVERIFY(sameTree(*parsed, expected));

    // A binary document laid out by hand: {"a": 1, "u": UID 5, "d": date 1.5 s before 2001}.
    const QByteArray binary = QByteArray::fromHex(
        "62706c6973743030"             // "bplist00"
        "d3010203040506"               // 0 @8:  dict, keys 1 2 3, values 4 5 6
        "5161" "5175" "5164"           // 1..3 @15: "a" "u" "d"
        "1001"                         // 4 @21: integer 1
        "8005"                         // 5 @23: UID 5
        "33bff8000000000000"           // 6 @25: date -1.5
        "080f1113151719"               // offsets @34
        "000000000000" "0101"          // trailer: offset and reference sizes
        "0000000000000007" "0000000000000000" "0000000000000022");
    const std::optional<QVariant> handmade = QXPropertyList::parse(binary, &format);
    QVERIFY(handmade);
    QCOMPARE(format, Format::Binary);
    const QVariantMap expectedBinary{
        {QStringLiteral("a"), qlonglong(1)},
        {QStringLiteral("u"), QVariantMap{{QStringLiteral("CF$UID"), qulonglong(5)}}},
        {QStringLiteral("d"), utc("2000-12-31T23:59:58.500Z")},
    };
    QVERIFY(sameTree(*handmade, expectedBinary));
}

void tst_QXPropertyList::integersAndDatesAtTheEdges()
{
    const QVariantList integers{qlonglong(-1), std::numeric_limits<qlonglong>::min(),
                                std::numeric_limits<qlonglong>::max(), std::numeric_limits<qulonglong>::max(),
                                qulonglong(1) << 63};
    // Sub-second dates on both sides of 2001, and far ones beyond 32-bit seconds.
    const QVariantList dates{utc("2000-12-31T23:59:58.750Z"), utc("1990-05-17T12:00:00.250Z"),
                             utc("2001-01-01T00:00:00.001Z"), utc("2038-01-19T03:14:08.999Z"),
                             utc("4001-01-01T00:00:00Z"), utc("1600-02-29T12:34:56Z"), utc("0100-03-01T00:00:00Z")};
    for (const Format format : {Format::Binary, Format::Xml}) {
        const std::optional<QVariant> backIntegers = roundTrip(integers, format);
        QVERIFY(backIntegers);
        QVERIFY(sameTree(*backIntegers, integers));

        const std::optional<QVariant> backDates = roundTrip(dates, format);
        QVERIFY(backDates);
        const QVariantList read = backDates->toList();
        QCOMPARE(read.size(), dates.size());
        for (qsizetype i = 0; i < dates.size(); ++i) {
            const QDateTime want = dates.at(i).toDateTime();
            // XML writes dates to the second.
            const QDateTime expected = format == Format::Xml
                ? QDateTime::fromSecsSinceEpoch(qint64(std::floor(want.toMSecsSinceEpoch() / 1000.0)), QTimeZone::utc())
                : want;
            QCOMPARE(read.at(i).toDateTime(), expected);
        }
    }
}

void tst_QXPropertyList::refusesWhatItCannotCarry()
{
    const QList<QVariant> refused{
        QVariant(),
        QVariant::fromValue(nullptr),
        QVariant(QPoint(1, 2)),
        QVariant(QString(QStringLiteral("x")) + QChar(0) + QStringLiteral("y")),
        QVariant(QVariantMap{{QString(QChar(0)), 1}}),
        QVariant(QDateTime()),
        QVariant(QVariantList{1, QVariantMap{{QStringLiteral("deep"), QVariant::fromValue(nullptr)}}}),
    };
    for (const QVariant &value : refused) {
        QVERIFY2(QXPropertyList::serialize(value, Format::Binary).isNull(), value.typeName());
        QVERIFY2(QXPropertyList::serialize(value, Format::Xml).isNull(), value.typeName());
    }

    QVariant deep = QVariantList{};
    for (int i = 0; i < QXPropertyList::maxDepth + 5; ++i)
        deep = QVariantList{deep};
    QVERIFY(QXPropertyList::serialize(deep, Format::Binary).isNull());
}

void tst_QXPropertyList::survivesDamagedInput()
{
    for (const QByteArray &bad : {QByteArray(), QByteArray(""), QByteArray("bplist00"), QByteArray("hello"),
                                  QByteArray("<plist><dict><key>a</key></plist>"), QByteArray("<plist><integer>")})
        QVERIFY2(!QXPropertyList::parse(bad), bad.constData());

    // An array that contains itself.
    QVERIFY(!QXPropertyList::parse(QByteArray::fromHex("62706c6973743030" // "bplist00"
                                                       "a100"             // 0 @8: array holding object 0
                                                       "08"               // offsets @10
                                                       "000000000000" "0101"
                                                       "0000000000000001" "0000000000000000" "000000000000000a")));

    // Nesting beyond the limit is refused rather than recursed into.
    QByteArray deep = "<plist>";
    for (int i = 0; i < 100000; ++i)
        deep += "<array>";
    for (int i = 0; i < 100000; ++i)
        deep += "</array>";
    deep += "</plist>";
    QVERIFY(!QXPropertyList::parse(deep));

    // Damaged copies of good documents parse or fail, but never crash.
    const QVariantMap tree{{QStringLiteral("list"), QVariantList{1, 2.5, QStringLiteral("three"), QByteArray("4")}},
                           {QStringLiteral("when"), utc("2020-01-01T00:00:00Z")}};
    std::mt19937 random(20240305);
    for (const Format format : {Format::Binary, Format::Xml}) {
        const QByteArray good = QXPropertyList::serialize(tree, format);
        QVERIFY(!good.isNull());
        for (int i = 0; i < 3000; ++i) {
            QByteArray damaged = good;
            for (int n = 1 + int(random() % 4); n > 0; --n)
                damaged[8 + qsizetype(random() % quint32(damaged.size() - 8))] = char(random());
            if (random() % 4 == 0)
                damaged.truncate(8 + qsizetype(random() % quint32(damaged.size() - 8)));
            const std::optional<QVariant> parsed = QXPropertyList::parse(damaged);
            if (parsed)
                QVERIFY(parsed->isValid());
        }
    }
}

QTEST_GUILESS_MAIN(tst_QXPropertyList)
#include "tst_qxpropertylist.moc"

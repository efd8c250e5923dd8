#include <QXFoundation/QXDictionary.h>

#include <QTimer>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
const QVariant jsonNull = QVariant::fromValue(nullptr);
}

class tst_QXDictionary : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void queryStringParsing();
    void queryStringBuilding();
    void typedLookups();
    void nullRemovalInMaps();
};

void tst_QXDictionary::queryStringParsing()
{
    const QVariantMap parsed = qx_dictionaryWithURLParameterString(u"x=1&y=a%20b&z&=5&&w=p=q"_s);
    const QVariantMap expected{{u"x"_s, u"1"_s}, {u"y"_s, u"a b"_s}, {u"z"_s, u""_s}, {u""_s, u"5"_s}, {u"w"_s, u"p=q"_s}};
    QCOMPARE(parsed, expected);
    QVERIFY(!parsed.value(u"z"_s).toString().isNull());
    QCOMPARE(parsed.value(u"x"_s).metaType(), QMetaType::fromType<QString>());

    // The first of a repeated name wins; "+" is not a space; escapes are UTF-8;
    // an escaped "=" or "&" belongs to the name or value.
    QCOMPARE(qx_dictionaryWithURLParameterString(u"a=1&a=2"_s), (QVariantMap{{u"a"_s, u"1"_s}}));
    QCOMPARE(qx_dictionaryWithURLParameterString(u"q=a+b&city=K%C3%B6ln&k%3D1=v%26w"_s),
             (QVariantMap{{u"q"_s, u"a+b"_s}, {u"city"_s, u"Köln"_s}, {u"k=1"_s, u"v&w"_s}}));
    // A part that does not decode (bad escape, not UTF-8) becomes the empty string.
    QCOMPARE(qx_dictionaryWithURLParameterString(u"bad=%zz&latin=%E9&%=x"_s),
             (QVariantMap{{u"bad"_s, u""_s}, {u"latin"_s, u""_s}, {u""_s, u"x"_s}}));
    QCOMPARE(qx_dictionaryWithURLParameterString(QString()), QVariantMap());
    QCOMPARE(qx_dictionaryWithURLParameterString(u"&&&"_s), QVariantMap());
}

void tst_QXDictionary::queryStringBuilding()
{
    QCOMPARE(qx_URLParameterString({{u"name"_s, u"a b&c"_s}}), u"name=a%20b%26c"_s);
    const QString empty = qx_URLParameterString({});
    QVERIFY(empty.isEmpty() && !empty.isNull());

    // Numbers as their digits, bools as 1 and 0, nulls and containers empty.
    const QVariantMap values{{u"int"_s, 42}, {u"double"_s, 2.5}, {u"yes"_s, true}, {u"no"_s, false},
                             {u"null"_s, jsonNull}, {u"list"_s, QVariantList{1}}};
    QCOMPARE(qx_URLParameterString(values), u"double=2.5&int=42&list=&no=0&null=&yes=1"_s);

    // Whatever the names and values, parsing gives the map back.
    const QVariantMap tricky{{u"a&b"_s, u"c=d"_s}, {u"plus+"_s, u"100%"_s}, {u"ключ"_s, u"значение 😀"_s},
                             {u"empty"_s, u""_s}, {u""_s, u"no name"_s}};
    QCOMPARE(qx_dictionaryWithURLParameterString(qx_URLParameterString(tricky)), tricky);
}

void tst_QXDictionary::typedLookups()
{
    QTimer timer;
    const QVariantMap map{{u"string"_s, u"text"_s},
                          {u"digits"_s, u"42"_s},
                          {u"int"_s, 42},
                          {u"double"_s, 0.5},
                          {u"bool"_s, true},
                          {u"list"_s, QVariantList{1, 2}},
                          {u"strings"_s, QStringList{u"a"_s}},
                          {u"map"_s, QVariantMap{{u"k"_s, 1}}},
                          {u"hash"_s, QVariantHash{{u"k"_s, 2}}},
                          {u"null"_s, jsonNull},
                          {u"timer"_s, QVariant::fromValue(&timer)}};

    QCOMPARE(qx_stringForKey(map, u"string"_s), u"text"_s);
    QVERIFY(qx_stringForKey(map, u"int"_s).isNull());
    QVERIFY(qx_stringForKey(map, u"missing"_s).isNull());

    QCOMPARE(qx_numberForKey(map, u"int"_s), QVariant(42));
    QCOMPARE(qx_numberForKey(map, u"double"_s), QVariant(0.5));
    QCOMPARE(qx_numberForKey(map, u"bool"_s), QVariant(true));
    QVERIFY(!qx_numberForKey(map, u"digits"_s).isValid());
    QVERIFY(!qx_numberForKey(map, u"null"_s).isValid());

    QCOMPARE(qx_arrayForKey(map, u"list"_s), std::optional<QVariantList>(QVariantList{1, 2}));
    QCOMPARE(qx_arrayForKey(map, u"strings"_s), std::optional<QVariantList>(QVariantList{u"a"_s}));
    QCOMPARE(qx_arrayForKey(map, u"string"_s), std::nullopt);
    QCOMPARE(qx_arrayForKey(map, u"map"_s), std::nullopt);

    QCOMPARE(qx_dictionaryForKey(map, u"map"_s), std::optional<QVariantMap>(QVariantMap{{u"k"_s, 1}}));
    QCOMPARE(qx_dictionaryForKey(map, u"hash"_s), std::optional<QVariantMap>(QVariantMap{{u"k"_s, 2}}));
    QCOMPARE(qx_dictionaryForKey(map, u"list"_s), std::nullopt);

    QCOMPARE(qx_objectForKey(map, u"int"_s, QMetaType::fromType<int>()), QVariant(42));
    QVERIFY(!qx_objectForKey(map, u"int"_s, QMetaType::fromType<double>()).isValid());
    QVERIFY(!qx_objectForKey(map, u"missing"_s, QMetaType::fromType<int>()).isValid());
    // A subclass counts: a QTimer is a QObject, but not a QThread.
    QCOMPARE(qx_objectForKey(map, u"timer"_s, QMetaType::fromType<QObject *>()).value<QObject *>(), &timer);
    QCOMPARE(qx_objectForKey(map, u"timer"_s, QMetaType::fromType<QTimer *>()).value<QTimer *>(), &timer);
    QVERIFY(!qx_objectForKey(map, u"timer"_s, QMetaType::fromType<QThread *>()).isValid());
}

void tst_QXDictionary::nullRemovalInMaps()
{
    const QVariantMap tree{{u"a"_s, jsonNull},
                           {u"b"_s, QVariantList{1, jsonNull, QVariantMap{{u"c"_s, jsonNull}, {u"d"_s, 2}}}},
                           {u"e"_s, QVariantMap{{u"f"_s, jsonNull}, {u"g"_s, QVariantList{jsonNull}}}},
                           {u"h"_s, u"kept"_s}};

    QVariantMap cleaned = tree;
    qx_recursivelyRemoveNulls(cleaned);
    const QVariantMap expected{{u"b"_s, QVariantList{1, QVariantMap{{u"d"_s, 2}}}},
                               {u"e"_s, QVariantMap{{u"g"_s, QVariantList()}}},
                               {u"h"_s, u"kept"_s}};
    QCOMPARE(cleaned, expected);
    QCOMPARE(tree.size(), 4); // the shared original is untouched

    // Null values of maps go whatever the flag says, also in maps inside lists.
    QVariantMap ignoring = tree;
    qx_recursivelyRemoveNullsIgnoringArrays(ignoring, true);
    const QVariantMap expectedIgnoring{{u"b"_s, QVariantList{1, jsonNull, QVariantMap{{u"d"_s, 2}}}},
                                       {u"e"_s, QVariantMap{{u"g"_s, QVariantList{jsonNull}}}},
                                       {u"h"_s, u"kept"_s}};
    QCOMPARE(ignoring, expectedIgnoring);
}

QTEST_GUILESS_MAIN(tst_QXDictionary)
#include "tst_qxdictionary.moc"

#include <QXFoundation/QXArray.h>

#include <QObject>
#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>
#include <map>

using namespace Qt::StringLiterals;

namespace {

QStringList letters(const char *text)
{
    QStringList list;
    for (const char *c = text; *c; ++c)
        list.append(QString(QLatin1Char(*c)));
    return list;
}

const QVariant jsonNull = QVariant::fromValue(nullptr);

} // namespace

class tst_QXArray : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void deduplicationKeepsLastOccurrences();
    void setOperations();
    void identityAndEqualityOfPointers();
    void copiesWithElementsInsertedOrRemoved();
    void inPlaceEditing();
    void shuffleIsAUniformPermutation();
    void nullRemovalInLists();
};

void tst_QXArray::deduplicationKeepsLastOccurrences()
{
    QCOMPARE(qx_uniqueMembers(letters("abac")), letters("bac"));
    QCOMPARE(qx_uniqueMembers(letters("aaa")), letters("a"));
    QCOMPARE(qx_uniqueMembers(QStringList()), QStringList());

    // Hashed lists (int) and pairwise-compared ones (QVariant) must agree,
    // and every value must stand where it occurs last.
    QRandomGenerator random(7);
    QList<int> numbers;
    QVariantList variants;
    for (int i = 0; i < 2000; ++i) {
        numbers.append(int(random.bounded(300)));
        variants.append(numbers.last());
    }
    const QList<int> unique = qx_uniqueMembers(numbers);
    const QVariantList uniqueVariants = qx_uniqueMembers(variants);
    QCOMPARE(uniqueVariants.size(), unique.size());
    for (qsizetype i = 0; i < unique.size(); ++i)
        QCOMPARE(uniqueVariants.at(i).toInt(), unique.at(i));
    QCOMPARE(QSet<int>(unique.cbegin(), unique.cend()).size(), unique.size());
    QCOMPARE(QSet<int>(unique.cbegin(), unique.cend()), QSet<int>(numbers.cbegin(), numbers.cend()));
    for (qsizetype i = 1; i < unique.size(); ++i)
        QVERIFY(numbers.lastIndexOf(unique.at(i - 1)) < numbers.lastIndexOf(unique.at(i)));
}

void tst_QXArray::setOperations()
{
    QCOMPARE(qx_unionWithArray(letters("ab"), letters("bc")), letters("abc"));
    QCOMPARE(qx_unionWithArray(letters("bab"), QStringList()), letters("ab"));
    // Without another list the receiver comes back as it is, duplicates included.
    QCOMPARE(qx_unionWithArray(letters("abab"), nullptr), letters("abab"));

    QCOMPARE(qx_intersectionWithArray(letters("abcb"), letters("bcd")), letters("cb"));
    QCOMPARE(qx_intersectionWithArray(letters("abcb"), QStringList()), QStringList());
    QCOMPARE(qx_intersectionWithArray(letters("abcb"), nullptr), QStringList());

    QCOMPARE(qx_differenceWithArray(letters("abca"), letters("b")), letters("ca"));
    QCOMPARE(qx_differenceWithArray(letters("abca"), nullptr), letters("bca"));
    QCOMPARE(qx_differenceWithArray(letters("abca"), QStringList()), letters("bca"));

    // JSON-like lists compare by value.
    const QVariantList mixed{1, u"1"_s, 2.5, 1, QVariantList{1}};
    QCOMPARE(qx_intersectionWithArray(mixed, QVariantList{QVariantList{1}, 1}), (QVariantList{1, QVariantList{1}}));
}

void tst_QXArray::identityAndEqualityOfPointers()
{
    // Two distinct but equal strings: de-duplication keeps both (identity),
    // the set operations and removal treat them as one (equality).
    QString first = u"x"_s;
    QString second = u"x"_s;
    QString other = u"y"_s;
    const QList<QString *> both{&first, &second, &first};
    QCOMPARE(qx_uniqueMembers(both), (QList<QString *>{&second, &first}));
    QCOMPARE(qx_unionWithArray(QList<QString *>{&first}, QList<QString *>{&second}),
             (QList<QString *>{&first, &second}));
    QCOMPARE(qx_intersectionWithArray(QList<QString *>{&first, &other}, QList<QString *>{&second}),
             QList<QString *>{&first});
    QCOMPARE(qx_differenceWithArray(QList<QString *>{&first, &other}, QList<QString *>{&second}),
             QList<QString *>{&other});
    QCOMPARE(qx_arrayByRemovingObject(both, &second), QList<QString *>());
    QCOMPARE(qx_arrayByRemovingObjectsFromArray(QList<QString *>{&first, &other, &second}, QList<QString *>{&second}),
             QList<QString *>{&other});

    // Shared pointers behave as raw pointers.
    const auto shared = QSharedPointer<QString>::create(u"x"_s);
    const auto twin = QSharedPointer<QString>::create(u"x"_s);
    QCOMPARE(qx_uniqueMembers(QList<QSharedPointer<QString>>{shared, twin, shared}).size(), 2);
    QCOMPARE(qx_arrayByRemovingObject(QList<QSharedPointer<QString>>{shared, twin}, twin).size(), 0);

    // QObject has no operator==: equality falls back to identity.
    QObject a;
    QObject b;
    QCOMPARE(qx_intersectionWithArray(QList<QObject *>{&a, &b, &a}, QList<QObject *>{&a}), QList<QObject *>{&a});
    QCOMPARE(qx_arrayByRemovingObject(QList<QObject *>{&a, &b}, &a), QList<QObject *>{&b});

    // A null pointer equals only a null pointer.
    QCOMPARE(qx_arrayByRemovingObject(QList<QString *>{nullptr, &first, nullptr}, nullptr), QList<QString *>{&first});
}

void tst_QXArray::copiesWithElementsInsertedOrRemoved()
{
    const QStringList abc = letters("abc");
    QCOMPARE(qx_arrayByInsertingObjectsFromArray(abc, letters("xy"), 1), letters("axybc"));
    QCOMPARE(qx_arrayByInsertingObjectsFromArray(abc, letters("xy"), 3), letters("abcxy"));
    QCOMPARE(qx_arrayByInsertingObjectsFromArray(abc, letters("xy"), 0), letters("xyabc"));
    QCOMPARE(qx_arrayByInsertingObjectsFromArray(abc, QStringList(), 1), abc);
    QCOMPARE(qx_arrayByInsertingObjectsFromArray(abc, letters("xy"), 4), abc);
    QCOMPARE(qx_arrayByInsertingObjectsFromArray(abc, letters("xy"), -1), abc);

    QCOMPARE(qx_arrayByRemovingFirstObject(abc), letters("bc"));
    QCOMPARE(qx_arrayByRemovingLastObject(abc), letters("ab"));
    QCOMPARE(qx_arrayByRemovingFirstObject(QStringList()), QStringList());
    QCOMPARE(qx_arrayByRemovingLastObject(QStringList()), QStringList());

    QCOMPARE(qx_arrayByRemovingObjectAtIndex(abc, 1), letters("ac"));
    QCOMPARE(qx_arrayByRemovingObjectAtIndex(abc, 3), abc);
    QCOMPARE(qx_arrayByRemovingObjectsInRange(letters("abcde"), QXRange(1, 3)), letters("ae"));
    QCOMPARE(qx_arrayByRemovingObjectsInRange(letters("abcde"), QXRange(5, 0)), letters("abcde"));
    QCOMPARE(qx_arrayByRemovingObjectsInRange(letters("abcde"), QXRange(3, 3)), letters("abcde"));
    // A length that would wrap around past the location is still outside.
    QCOMPARE(qx_arrayByRemovingObjectsInRange(letters("abcde"), QXRange(2, ~quint64(0))), letters("abcde"));

    QCOMPARE(qx_arrayByRemovingObject(letters("abcab"), u"b"_s), letters("aca"));
    // Numbers compare by value, a string is never a number.
    QCOMPARE(qx_arrayByRemovingObject(QVariantList{1, 1.0, u"1"_s, true}, 1), QVariantList{u"1"_s});
    QCOMPARE(qx_uniqueMembers(QVariantList{u"1"_s, 1, QVariantList{u"2"_s}, QVariantList{2}}).size(), 4);
    QCOMPARE(qx_arrayByRemovingObjectsFromArray(letters("abcabd"), letters("bdz")), letters("aca"));

    QCOMPARE(qx_reverseArray(letters("abcd")), letters("dcba"));
    QCOMPARE(abc, letters("abc")); // every copy left the receiver alone
}

void tst_QXArray::inPlaceEditing()
{
    for (const char *text : {"", "a", "abc", "abcd"}) {
        QStringList list = letters(text);
        qx_reverse(list);
        QStringList expected = letters(text);
        std::reverse(expected.begin(), expected.end());
        QCOMPARE(list, expected);
    }

    const auto moved = [](qsizetype from, qsizetype to) {
        QStringList list = letters("abcd");
        qx_moveObjectFromIndex(list, from, to);
        return list;
    };
    QCOMPARE(moved(0, 2), letters("bcad"));
    QCOMPARE(moved(3, 0), letters("dabc"));
    QCOMPARE(moved(1, 10), letters("acdb"));
    QCOMPARE(moved(1, 3), letters("acdb"));
    QCOMPARE(moved(2, 2), letters("abcd"));
    QCOMPARE(moved(4, 0), letters("abcd"));
    QCOMPARE(moved(-1, 0), letters("abcd"));
    QCOMPARE(moved(0, -1), letters("abcd"));

    QStringList list = letters("abc");
    qx_insertObjects(list, letters("xy"), 1);
    QCOMPARE(list, letters("axybc"));
    qx_insertObjects(list, letters("z"), 5);
    QCOMPARE(list, letters("axybcz"));
    qx_insertObjects(list, letters("q"), 7);
    QCOMPARE(list, letters("axybcz"));
    QStringList self = letters("ab");
    qx_insertObjects(self, self, 1);
    QCOMPARE(self, letters("aabb"));
}

void tst_QXArray::shuffleIsAUniformPermutation()
{
    QList<int> empty;
    qx_shuffle(empty);
    QVERIFY(empty.isEmpty());
    QList<int> single{42};
    qx_shuffle(single);
    QCOMPARE(single, QList<int>{42});

    QList<int> many(1000);
    std::iota(many.begin(), many.end(), 0);
    QList<int> shuffled = many;
    qx_shuffle(shuffled);
    QVERIFY(shuffled != many); // 1 in 1000! to fail
    std::sort(shuffled.begin(), shuffled.end());
    QCOMPARE(shuffled, many);

    // The same seed gives the same shuffle.
    QRandomGenerator first(99);
    QRandomGenerator second(99);
    QList<int> a = many;
    QList<int> b = many;
    qx_shuffle(a, first);
    qx_shuffle(b, second);
    QCOMPARE(a, b);

    // All 24 orders of four elements, equally often: a chi-square test over
    // 24000 shuffles with a fixed seed, so the verdict is the same every run.
    // A biased shuffle (swapping with any index, or never with itself) lands
    // in the hundreds; the bound is the 99.9999th percentile for 23 degrees
    // of freedom.
    QRandomGenerator generator(20240611);
    std::map<QList<int>, int> counts;
    const int rounds = 24000;
    for (int round = 0; round < rounds; ++round) {
        QList<int> four{0, 1, 2, 3};
        qx_shuffle(four, generator);
        ++counts[four];
    }
    QCOMPARE(int(counts.size()), 24);
    const double expected = rounds / 24.0;
    double chiSquare = 0;
    for (const auto &[order, count] : counts)
        chiSquare += (count - expected) * (count - expected) / expected;
    QVERIFY2(chiSquare < 60.0, qPrintable(QString::number(chiSquare)));
}

void tst_QXArray::nullRemovalInLists()
{
    const QVariantMap inner{{u"a"_s, jsonNull}, {u"b"_s, QVariantList{jsonNull, 1}}};
    const QVariantList tree{1, jsonNull, QVariantList{jsonNull, inner}, QVariantMap{{u"c"_s, jsonNull}}, QVariant()};

    QVariantList cleaned = tree;
    qx_recursivelyRemoveNulls(cleaned);
    const QVariantList expected{1, QVariantList{QVariantMap{{u"b"_s, QVariantList{1}}}}, QVariantMap(), QVariant()};
    QCOMPARE(cleaned, expected);
    // The copy the tree shared its data with is untouched.
    QCOMPARE(tree.at(1), jsonNull);
    QCOMPARE(tree.at(2).toList().at(1).toMap().size(), 2);

    // Ignoring arrays keeps null elements at every depth, but null values
    // of maps inside those arrays still go.
    QVariantList keptNulls = tree;
    qx_recursivelyRemoveNullsIgnoringArrays(keptNulls, true);
    const QVariantList expectedKept{1, jsonNull, QVariantList{jsonNull, QVariantMap{{u"b"_s, QVariantList{jsonNull, 1}}}},
                                    QVariantMap(), QVariant()};
    QCOMPARE(keptNulls, expectedKept);

    // Hashes nested in lists are maps too.
    QVariantList withHash{QVariantHash{{u"k"_s, jsonNull}, {u"v"_s, 1}}};
    qx_recursivelyRemoveNulls(withHash);
    QCOMPARE(withHash.at(0).toHash(), (QVariantHash{{u"v"_s, 1}}));
}

QTEST_GUILESS_MAIN(tst_QXArray)
#include "tst_qxarray.moc"

#include <QXFoundation/QXIndexPath.h>
#include <QXFoundation/QXRange.h>
#include <QXFoundation/QXSortedList.h>

#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>
#include <ranges>

namespace {

// A value that remembers when it was inserted, to tell equal values apart.
struct Tagged
{
    int value = 0;
    int tag = 0;
    friend bool operator==(const Tagged &a, const Tagged &b) { return a.value == b.value && a.tag == b.tag; }
};

QXSortDescriptor<Tagged> byValue(bool ascending, int *comparisons = nullptr)
{
    return [ascending, comparisons](const Tagged &a, const Tagged &b) {
        if (comparisons)
            ++*comparisons;
        const int order = ascending ? a.value - b.value : b.value - a.value;
        return order < 0 ? QXComparisonResult::OrderedAscending
                         : order > 0 ? QXComparisonResult::OrderedDescending : QXComparisonResult::OrderedSame;
    };
}

QList<int> values(const QList<Tagged> &list)
{
    QList<int> result;
    for (const Tagged &t : list)
        result.append(t.value);
    return result;
}

static_assert(std::bidirectional_iterator<QXSortedList<int>::const_iterator>);
static_assert(std::ranges::bidirectional_range<const QXSortedList<int>>);

} // namespace

class tst_QXSortedList : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keepsTheReverseOfTheDescriptorsOrder();
    void largeListsStaySortedWithLogarithmicSearch();
    void lookupAndRemoval();
    void iterationAndCopies();
    void rangeValues();
    void indexPaths();
};

void tst_QXSortedList::keepsTheReverseOfTheDescriptorsOrder()
{
    QXSortedList<Tagged> ascending(byValue(true));
    for (const int value : {5, 3, 4})
        ascending.insertObject({value, value});
    QCOMPARE(values(ascending.allObjects()), (QList<int>{5, 4, 3}));
    QCOMPARE(ascending.indexForInsertingObject({4, 0}), 1);
    ascending.insertObject({4, 99});
    QCOMPARE(ascending.objectAtIndex(1), (Tagged{4, 99})); // the newest of equals first
    QCOMPARE(ascending.objectAtIndex(2), (Tagged{4, 4}));

    QXSortedList<Tagged> descending(byValue(false));
    for (const int value : {5, 3, 4})
        descending.insertObject({value, 0});
    QCOMPARE(values(descending.allObjects()), (QList<int>{3, 4, 5}));

    QXSortedList<int> unsorted;
    QVERIFY(!unsorted.sortDescriptor());
    for (const int value : {5, 3, 4, 3}) {
        QCOMPARE(unsorted.indexForInsertingObject(value), unsorted.count());
        unsorted.insertObject(value);
    }
    QCOMPARE(unsorted.allObjects(), (QList<int>{5, 3, 4, 3}));

    QXSortedList<int> byOperator(QXSortDescriptors::byValue<int>(false));
    for (const int value : {2, 9, 1})
        byOperator.insertObject(value);
    QCOMPARE(byOperator.allObjects(), (QList<int>{1, 2, 9}));
}

void tst_QXSortedList::largeListsStaySortedWithLogarithmicSearch()
{
    // Enough objects for many chunks, few distinct values for many ties,
    // checked against a stable sort of the same insertions: largest value
    // first, the newest first among equals.
    int comparisons = 0;
    QXSortedList<Tagged> list(byValue(true, &comparisons));
    QList<Tagged> inserted;
    QRandomGenerator random(5);
    int worstComparisons = 0;
    for (int tag = 0; tag < 20000; ++tag) {
        const Tagged object{int(random.bounded(500)), tag};
        comparisons = 0;
        list.insertObject(object);
        worstComparisons = std::max(worstComparisons, comparisons);
        inserted.append(object);
    }
    const int log2Count = int(std::ceil(std::log2(20000.0)));
    QVERIFY2(worstComparisons <= log2Count + 2, qPrintable(QString::number(worstComparisons)));

    QList<Tagged> expected(inserted.crbegin(), inserted.crend());
    std::stable_sort(expected.begin(), expected.end(), [](const Tagged &a, const Tagged &b) { return a.value > b.value; });
    QCOMPARE(list.count(), expected.size());
    QVERIFY(list.allObjects() == expected);
    for (qsizetype i = 0; i < expected.size(); i += 97)
        QCOMPARE(list.objectAtIndex(i), expected.at(i));

    // Removals by index keep indexes right across chunks.
    for (int round = 0; round < 3000; ++round) {
        const qsizetype index = qsizetype(random.bounded(quint64(expected.size())));
        list.removeObjectAtIndex(index);
        expected.removeAt(index);
    }
    QVERIFY(list.allObjects() == expected);
    for (qsizetype i = 0; i < expected.size(); i += 89)
        QCOMPARE(list.objectAtIndex(i), expected.at(i));
    const Tagged probe{250, -1};
    const auto firstNotAfter = std::find_if(expected.cbegin(), expected.cend(), [](const Tagged &t) { return t.value <= 250; });
    QCOMPARE(list.indexForInsertingObject(probe), qsizetype(firstNotAfter - expected.cbegin()));
}

void tst_QXSortedList::lookupAndRemoval()
{
    QXSortedList<int> list(QXSortDescriptors::byValue<int>());
    QCOMPARE(list.firstObject(), std::nullopt);
    QCOMPARE(list.lastObject(), std::nullopt);
    QCOMPARE(list.indexOfObject(1), QXNotFound);
    QCOMPARE(list.indexForInsertingObject(1), 0);
    QCOMPARE(list.objectAtIndex(0), 0);

    for (const int value : {3, 7, 3, 1, 3})
        list.insertObject(value);
    QCOMPARE(list.firstObject(), std::optional<int>(7));
    QCOMPARE(list.lastObject(), std::optional<int>(1));
    QCOMPARE(list.indexOfObject(3), 1);
    QCOMPARE(list.indexOfObject(4), QXNotFound);
    QCOMPARE(list.objectAtIndex(5), 0);
    QCOMPARE(list.objectAtIndex(-1), 0);

    list.removeObjectAtIndex(5);
    list.removeObjectAtIndex(-1);
    QCOMPARE(list.count(), 5);
    list.removeObject(3);
    QCOMPARE(list.allObjects(), (QList<int>{7, 1}));
    list.removeObjectAtIndex(0);
    QCOMPARE(list.allObjects(), QList<int>{1});
    list.removeAllObjects();
    QVERIFY(list.isEmpty());
    list.insertObject(2);
    QCOMPARE(list.allObjects(), QList<int>{2});

    // Equality for pointers compares the pointees.
    QString a = QStringLiteral("a");
    QString twin = QStringLiteral("a");
    QXSortedList<QString *> pointers;
    pointers.insertObject(&a);
    QCOMPARE(pointers.indexOfObject(&twin), 0);
}

void tst_QXSortedList::iterationAndCopies()
{
    QXSortedList<int> list(QXSortDescriptors::byValue<int>());
    QList<int> expected;
    for (int value = 0; value < 3000; ++value) {
        list.insertObject(value);
        expected.prepend(value);
    }
    QList<int> forward;
    for (const int value : list)
        forward.append(value);
    QCOMPARE(forward, expected);

    QList<int> backward(list.rbegin(), list.rend());
    std::reverse(expected.begin(), expected.end());
    QCOMPARE(backward, expected);
    QList<int> viewed;
    for (const int value : std::views::reverse(list))
        viewed.append(value);
    QCOMPARE(viewed, expected);

    const QXSortedList<int> empty;
    QVERIFY(empty.begin() == empty.end());

    QXSortedList<int> copy = list;
    copy.removeObjectAtIndex(0);
    copy.insertObject(-5);
    QCOMPARE(list.count(), 3000);
    QCOMPARE(list.objectAtIndex(0), 2999);
    QCOMPARE(list.lastObject(), std::optional<int>(0));
    QCOMPARE(copy.lastObject(), std::optional<int>(-5));

    // Removing every equal object across many chunks, in a copy only.
    QXSortedList<int> residues(QXSortDescriptors::byValue<int>());
    for (int value = 0; value < 5000; ++value)
        residues.insertObject(value % 7);
    QXSortedList<int> withoutThrees = residues;
    withoutThrees.removeObject(3);
    QCOMPARE(withoutThrees.count(), 5000 - 714);
    QCOMPARE(withoutThrees.indexOfObject(3), QXNotFound);
    // 6, 5 and 4 come first, 714 of each; the 2s now follow the 4s.
    QCOMPARE(withoutThrees.indexOfObject(2), 3 * 714);
    QCOMPARE(withoutThrees.objectAtIndex(3 * 714 - 1), 4);
    QCOMPARE(residues.count(), 5000);
    QCOMPARE(residues.indexOfObject(3), 3 * 714);
}

void tst_QXSortedList::rangeValues()
{
    QCOMPARE(QXRange::range().location(), 0u);
    QCOMPARE(QXRange::range().length(), 0u);
    QXRange range = QXRange::rangeAtLocation(3, 4);
    QCOMPARE(range, QXRange(3, 4));
    range.setLocation(10);
    range.setLength(~quint64(0));
    QCOMPARE(range.location(), 10u);
    QCOMPARE(range.length(), ~quint64(0));

    QVERIFY(QXRange(0, 5).liesWithin(5));
    QVERIFY(QXRange(5, 0).liesWithin(5));
    QVERIFY(!QXRange(5, 1).liesWithin(5));
    QVERIFY(!QXRange(6, 0).liesWithin(5));
    QVERIFY(!QXRange(1, ~quint64(0)).liesWithin(5)); // would wrap past zero
    QCOMPARE(QXNotFound, std::numeric_limits<qint64>::max());
}

void tst_QXSortedList::indexPaths()
{
    const QXIndexPath path{1, 2, 3};
    QCOMPARE(qx_firstIndex(path), 1u);
    QCOMPARE(qx_lastIndex(path), 3u);
    QCOMPARE(qx_indexPathByInsertingIndex(path, 9, 0), (QXIndexPath{9, 1, 2, 3}));
    QCOMPARE(qx_indexPathByInsertingIndex(path, 9, 1), (QXIndexPath{1, 9, 2, 3}));
    QCOMPARE(qx_indexPathByInsertingIndex(path, 9, 3), (QXIndexPath{1, 2, 3, 9}));
    QCOMPARE(qx_indexPathByInsertingIndex(path, 9, 4), (QXIndexPath{1, 2, 3, 9})); // beyond the end appends
    QCOMPARE(path, (QXIndexPath{1, 2, 3}));

    const QXIndexPath empty;
    QCOMPARE(qx_firstIndex(empty), quint64(QXNotFound));
    QCOMPARE(qx_lastIndex(empty), quint64(QXNotFound));
    QCOMPARE(qx_indexPathByInsertingIndex(empty, 7, 0), QXIndexPath(7));

    QCOMPARE(path.length(), 3);
    QCOMPARE(path.indexAtPosition(3), quint64(QXNotFound));
    QCOMPARE(path.indexPathByAddingIndex(4).indexPathByRemovingLastIndex(), path);
}

QTEST_GUILESS_MAIN(tst_QXSortedList)
#include "tst_qxsortedlist.moc"

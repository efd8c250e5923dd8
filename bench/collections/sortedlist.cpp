// QXSortedList against std::multiset: one million random integers inserted
// one by one, and a flat list with binary-search insertion for scale.

#include <QXFoundation/QXSortedList.h>

#include "QxBench.h"

#include <QRandomGenerator>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <set>
#include <vector>

namespace {

std::vector<int> randomIntegers(int count)
{
    QRandomGenerator random(42);
    std::vector<int> values(size_t(count), 0);
    for (int &value : values)
        value = int(random.generate() & 0x7fffffff);
    return values;
}

struct Figures
{
    double sortedList = 0;
    double multiset = 0;
};

Figures measure(const std::vector<int> &values, int repeats)
{
    Figures figures;
    QList<int> listOrder;
    figures.sortedList = QxBench::bestOf(repeats, [&] {
        QXSortedList<int> list(QXSortDescriptors::byValue<int>());
        for (const int value : values)
            list.insertObject(value);
        listOrder = list.allObjects();
    });
    std::vector<int> setOrder;
    // The sorted list holds the largest first: the same order as a multiset
    // ordered by std::greater.
    figures.multiset = QxBench::bestOf(repeats, [&] {
        std::multiset<int, std::greater<int>> set;
        for (const int value : values)
            set.insert(value);
        setOrder.assign(set.cbegin(), set.cend());
    });
    if (!std::equal(listOrder.cbegin(), listOrder.cend(), setOrder.cbegin(), setOrder.cend())) {
        std::fprintf(stderr, "the sorted list and the multiset disagree\n");
        std::exit(1);
    }
    return figures;
}

double flatList(const std::vector<int> &values)
{
    return QxBench::bestOf(1, [&] {
        QList<int> list;
        for (const int value : values) {
            const auto at = std::partition_point(list.cbegin(), list.cend(), [value](int listed) { return value < listed; });
            list.insert(at - list.cbegin(), value);
        }
        QxBench::keep(list);
    });
}

} // namespace

int main()
{
    const std::vector<int> million = randomIntegers(1000000);
    const Figures large = measure(million, 3);
    std::printf("insert 1,000,000 random ints:  QXSortedList %.3f s   std::multiset %.3f s   ratio %.2fx (goal: within 3x)\n",
                large.sortedList, large.multiset, large.sortedList / large.multiset);

    const std::vector<int> small(million.cbegin(), million.cbegin() + 100000);
    const Figures scale = measure(small, 3);
    std::printf("insert   100,000 random ints:  QXSortedList %.3f s   std::multiset %.3f s   flat QList %.3f s\n",
                scale.sortedList, scale.multiset, flatList(small));
    return 0;
}

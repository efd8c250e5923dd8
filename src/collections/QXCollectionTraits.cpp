#include <QXFoundation/QXCollectionTraits.h>

#include "QXVariantKinds_p.h"

#include <QVariantHash>
#include <QVariantList>
#include <QVariantMap>

namespace {

template<typename Map>
bool mapsEqual(const Map &a, const Map &b)
{
    if (a.size() != b.size())
        return false;
    for (auto it = a.cbegin(); it != a.cend(); ++it) {
        const auto found = b.constFind(it.key());
        if (found == b.cend() || !QXCollectionTraits::variantsEqual(it.value(), found.value()))
            return false;
    }
    return true;
}

} // namespace

bool QXCollectionTraits::variantsEqual(const QVariant &a, const QVariant &b)
{
    const int typeA = a.metaType().id();
    const int typeB = b.metaType().id();
    if (QXVariantKinds::isNumber(typeA) && QXVariantKinds::isNumber(typeB))
        return a == b;
    if (typeA != typeB)
        return false;
    switch (typeA) {
    case QMetaType::QVariantList: {
        const QVariantList listA = a.toList();
        const QVariantList listB = b.toList();
        return std::equal(listA.cbegin(), listA.cend(), listB.cbegin(), listB.cend(), variantsEqual);
    }
    case QMetaType::QVariantMap:
        return mapsEqual(a.toMap(), b.toMap());
    case QMetaType::QVariantHash:
        return mapsEqual(a.toHash(), b.toHash());
    default:
        return a == b;
    }
}

// Recursive removal of JSON nulls from QVariant trees.

#include <QXFoundation/QXArray.h>
#include <QXFoundation/QXDictionary.h>

#include <QVariantHash>

namespace {

bool isJsonNull(const QVariant &value)
{
    return value.metaType().id() == QMetaType::Nullptr;
}

template<typename Map>
void cleanMap(Map &map, bool ignoreArrays);

void cleanList(QVariantList &list, bool ignoreArrays);

// Cleans a nested container where it lives. QVariant::data() detaches the
// variant, so only this tree's copy changes.
void cleanNested(QVariant &value, bool ignoreArrays)
{
    switch (value.metaType().id()) {
    case QMetaType::QVariantList:
        cleanList(*static_cast<QVariantList *>(value.data()), ignoreArrays);
        break;
    case QMetaType::QVariantMap:
        cleanMap(*static_cast<QVariantMap *>(value.data()), ignoreArrays);
        break;
    case QMetaType::QVariantHash:
        cleanMap(*static_cast<QVariantHash *>(value.data()), ignoreArrays);
        break;
    default:
        break;
    }
}

void cleanList(QVariantList &list, bool ignoreArrays)
{
    if (!ignoreArrays)
        list.removeIf(isJsonNull);
    for (QVariant &element : list)
        cleanNested(element, ignoreArrays);
}

template<typename Map>
void cleanMap(Map &map, bool ignoreArrays)
{
    map.removeIf([](const typename Map::iterator &entry) { return isJsonNull(entry.value()); });
    for (auto it = map.begin(); it != map.end(); ++it)
        cleanNested(it.value(), ignoreArrays);
}

} // namespace

void qx_recursivelyRemoveNulls(QVariantList &array)
{
    cleanList(array, false);
}

void qx_recursivelyRemoveNullsIgnoringArrays(QVariantList &array, bool ignoreArrays)
{
    cleanList(array, ignoreArrays);
}

void qx_recursivelyRemoveNulls(QVariantMap &dictionary)
{
    cleanMap(dictionary, false);
}

void qx_recursivelyRemoveNullsIgnoringArrays(QVariantMap &dictionary, bool ignoreArrays)
{
    cleanMap(dictionary, ignoreArrays);
}

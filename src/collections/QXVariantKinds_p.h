#pragma once

#include <QMetaType>

namespace QXVariantKinds {

// Whether a QVariant of this type holds a number: a bool, an integer of any
// width or a floating-point value (characters are not numbers).
inline bool isNumber(int typeId)
{
    switch (typeId) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Double:
    case QMetaType::Float:
        return true;
    default:
        return false;
    }
}

} // namespace QXVariantKinds

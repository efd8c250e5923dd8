// JSON parsing with null removal, over QJsonDocument.

#include <QXFoundation/QXArray.h>
#include <QXFoundation/QXDictionary.h>
#include <QXFoundation/QXJSON.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>

const QString QXJSONErrorDomain = QStringLiteral("QXJSONErrorDomain");
const QString QXJSONErrorOffsetKey = QStringLiteral("QXJSONErrorOffset");

namespace {

bool isJsonSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool endsBareValue(char c)
{
    return isJsonSpace(c) || c == ',' || c == ':' || c == '[' || c == ']' || c == '{' || c == '}' || c == '"';
}

QXError parseError(QJsonParseError::ParseError code, qsizetype offset)
{
    QJsonParseError parseError;
    parseError.error = code;
    return QXError(QXJSONErrorDomain, code,
                   {{QXLocalizedDescriptionKey, QStringLiteral("%1 at offset %2").arg(parseError.errorString()).arg(offset)},
                    {QXJSONErrorOffsetKey, qint64(offset)}});
}

bool parseDocument(const QByteArray &data, QJsonDocument *document, QXError *error, qsizetype offsetShift = 0,
                   qsizetype maximumOffset = -1)
{
    QJsonParseError result;
    *document = QJsonDocument::fromJson(data, &result);
    if (result.error == QJsonParseError::NoError)
        return true;
    qsizetype offset = result.offset + offsetShift;
    if (maximumOffset >= 0)
        offset = qBound(qsizetype(0), offset, maximumOffset);
    qxSetError(error, parseError(result.error, offset));
    return false;
}

// Where a bare string, number or literal that starts at `start` ends.
qsizetype bareValueEnd(const QByteArray &data, qsizetype start)
{
    const qsizetype size = data.size();
    if (data.at(start) == '"') {
        for (qsizetype i = start + 1; i < size; ++i) {
            if (data.at(i) == '\\')
                ++i;
            else if (data.at(i) == '"')
                return i + 1;
        }
        return size;
    }
    qsizetype i = start;
    while (i < size && !endsBareValue(data.at(i)))
        ++i;
    return i;
}

/*!
  Parses a whole document. QJsonDocument reads only objects and arrays; a
  bare value (when fragments are allowed) is handed to it as the only
  element of an array, and its error offsets are carried back.
*/
bool parse(const QByteArray &data, QXJSONReadingOptions options, QJsonValue *value, QXError *error)
{
    qsizetype start = data.startsWith("\xEF\xBB\xBF") ? 3 : 0;
    while (start < data.size() && isJsonSpace(data.at(start)))
        ++start;
    const bool bare = options.testFlag(QXJSONReadingOption::FragmentsAllowed) && start < data.size()
        && data.at(start) != '{' && data.at(start) != '[';
    const qsizetype end = bare ? bareValueEnd(data, start) : start;
    QJsonDocument document;
    if (!bare || end == start) {
        if (!parseDocument(data, &document, error))
            return false;
        *value = document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
        return true;
    }
    qsizetype rest = end;
    while (rest < data.size() && isJsonSpace(data.at(rest)))
        ++rest;
    if (rest < data.size()) {
        qxSetError(error, parseError(QJsonParseError::GarbageAtEnd, rest));
        return false;
    }
    const QByteArray wrapped = '[' + data.mid(start, end - start) + ']';
    if (!parseDocument(wrapped, &document, error, start - 1, end))
        return false;
    const QJsonArray array = document.array();
    if (array.size() != 1) {
        qxSetError(error, parseError(QJsonParseError::IllegalValue, start));
        return false;
    }
    *value = array.first();
    return true;
}

void removeNulls(QJsonArray &array, bool ignoreArrays);
void removeNulls(QJsonObject &object, bool ignoreArrays);

// Takes a nested container out of its parent while cleaning it, so that
// the container is not shared and changes in place instead of being copied.
template<typename Ref>
void removeNestedNulls(Ref ref, bool ignoreArrays)
{
    if (ref.isArray()) {
        QJsonArray nested = ref.toArray();
        ref = QJsonValue();
        removeNulls(nested, ignoreArrays);
        ref = nested;
    } else if (ref.isObject()) {
        QJsonObject nested = ref.toObject();
        ref = QJsonValue();
        removeNulls(nested, ignoreArrays);
        ref = nested;
    }
}

void removeNulls(QJsonArray &array, bool ignoreArrays)
{
    for (qsizetype i = 0; i < array.size();) {
        QJsonValueRef element = array[i];
        if (!ignoreArrays && element.isNull()) {
            array.removeAt(i);
            continue;
        }
        removeNestedNulls(element, ignoreArrays);
        ++i;
    }
}

void removeNulls(QJsonObject &object, bool ignoreArrays)
{
    for (auto it = object.begin(); it != object.end();) {
        if (it->isNull()) {
            it = object.erase(it);
            continue;
        }
        removeNestedNulls(*it, ignoreArrays);
        ++it;
    }
}

QByteArray compactJson(const QJsonValue &value)
{
    if (value.isArray())
        return QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact);
    if (value.isObject())
        return QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact);
    // A bare value: written as the only element of an array, brackets cut off.
    const QByteArray wrapped = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return wrapped.sliced(1, wrapped.size() - 2);
}

} // namespace

QVariant qx_JSONObjectWithData(const QByteArray &data, QXJSONReadingOptions options, QXError *error,
                               bool removingNulls, bool ignoreArrays)
{
    QJsonValue value;
    if (!parse(data, options, &value, error))
        return QVariant();
    QVariant object = value.toVariant();
    value = QJsonValue();
    if (removingNulls) {
        if (object.metaType().id() == QMetaType::QVariantList)
            qx_recursivelyRemoveNullsIgnoringArrays(*static_cast<QVariantList *>(object.data()), ignoreArrays);
        else if (object.metaType().id() == QMetaType::QVariantMap)
            qx_recursivelyRemoveNullsIgnoringArrays(*static_cast<QVariantMap *>(object.data()), ignoreArrays);
    }
    return object;
}

QByteArray qx_JSONDataByRemovingNulls(const QByteArray &data, QXJSONReadingOptions options, QXError *error,
                                      bool ignoreArrays)
{
    QJsonValue value;
    if (!parse(data, options, &value, error))
        return QByteArray();
    if (value.isArray()) {
        QJsonArray array = value.toArray();
        value = QJsonValue();
        removeNulls(array, ignoreArrays);
        return QJsonDocument(array).toJson(QJsonDocument::Compact);
    }
    if (value.isObject()) {
        QJsonObject object = value.toObject();
        value = QJsonValue();
        removeNulls(object, ignoreArrays);
        return QJsonDocument(object).toJson(QJsonDocument::Compact);
    }
    return compactJson(value);
}

QByteArray qx_JSONDataWithObject(const QVariant &object)
{
    return compactJson(QJsonValue::fromVariant(object));
}

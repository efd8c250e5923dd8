#include <QXFoundation/QXString.h>

#include <QXFoundation/QXBundle.h>

#include "platform/QXDigest_p.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStringDecoder>
#include <QStringList>

QString qx_userDirectoryPathForSearchPath(QXSearchPathDirectory directory)
{
    auto location = [](QStandardPaths::StandardLocation kind) {
        const QString path = QStandardPaths::writableLocation(kind);
        return path.isEmpty() ? QString() : path;
    };
    switch (directory) {
    case QXSearchPathDirectory::Document: return location(QStandardPaths::DocumentsLocation);
    case QXSearchPathDirectory::Caches: return location(QStandardPaths::GenericCacheLocation);
    case QXSearchPathDirectory::ApplicationSupport: return location(QStandardPaths::GenericDataLocation);
    case QXSearchPathDirectory::Desktop: return location(QStandardPaths::DesktopLocation);
    case QXSearchPathDirectory::Downloads: return location(QStandardPaths::DownloadLocation);
    case QXSearchPathDirectory::Movies: return location(QStandardPaths::MoviesLocation);
    case QXSearchPathDirectory::Music: return location(QStandardPaths::MusicLocation);
    case QXSearchPathDirectory::Pictures: return location(QStandardPaths::PicturesLocation);
    case QXSearchPathDirectory::Library: {
        const QString data = location(QStandardPaths::GenericDataLocation);
        return data.isNull() ? QString() : QFileInfo(data).path();
    }
    case QXSearchPathDirectory::Trash: {
        const QString data = location(QStandardPaths::GenericDataLocation);
        return data.isNull() ? QString() : data + QStringLiteral("/Trash");
    }
    }
    return QString();
}

QString qx_documentsDirectoryPath()
{
    return qx_userDirectoryPathForSearchPath(QXSearchPathDirectory::Document);
}

QString qx_cachesDirectoryPath()
{
    return qx_userDirectoryPathForSearchPath(QXSearchPathDirectory::Caches);
}

QString qx_applicationSupportDirectoryPath()
{
    return qx_userDirectoryPathForSearchPath(QXSearchPathDirectory::ApplicationSupport);
}

QString qx_libraryDirectoryPath()
{
    return qx_userDirectoryPathForSearchPath(QXSearchPathDirectory::Library);
}

QString qx_temporaryDirectoryPath()
{
    return QDir::tempPath();
}

namespace {

QStringList pathComponents(const QString &path)
{
    QStringList components;
    if (path.isEmpty())
        return components;
    if (path.startsWith(QLatin1Char('/')))
        components.append(QStringLiteral("/"));
    const QStringList parts = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    components.append(parts);
    if (path.size() > 1 && path.endsWith(QLatin1Char('/')) && !parts.isEmpty())
        components.append(QStringLiteral("/"));
    return components;
}

QString pathWithComponents(const QStringList &components)
{
    QString path;
    for (qsizetype i = 0; i < components.size(); ++i) {
        const QString &component = components.at(i);
        if (component == QLatin1String("/")) {
            if (i == 0)
                path = QStringLiteral("/");
            continue; // a later "/" (a trailing slash) adds nothing
        }
        if (!path.isEmpty() && !path.endsWith(QLatin1Char('/')))
            path.append(QLatin1Char('/'));
        path.append(component);
    }
    return path;
}

} // namespace

QString qx_stringWithPathRelativeTo(const QString &path, const QString &basePath)
{
    const QStringList target = pathComponents(path);
    const QStringList base = pathComponents(basePath);
    const qsizetype shorter = qMin(target.size(), base.size());
    qsizetype common = 0;
    while (common < shorter && target.at(common) == base.at(common))
        ++common;

    QStringList relative;
    for (qsizetype i = common; i < base.size(); ++i)
        relative.append(QStringLiteral(".."));
    for (qsizetype i = common; i < target.size(); ++i)
        relative.append(target.at(i));
    return pathWithComponents(relative);
}

QString qx_stringWithPathRelativeToMainBundle(const QString &path)
{
    return qx_stringWithPathRelativeTo(path, QXBundle::mainBundle().bundlePath());
}

static QString digest(QXDigest::Algorithm algorithm, const QString &string)
{
    const QByteArray bytes = string.toUtf8();
    return QXDigest::hex(algorithm, bytes.constData(), std::size_t(bytes.size()));
}

QString qx_md5Hash(const QString &string)
{
    return digest(QXDigest::Algorithm::MD5, string);
}

QString qx_sha1Hash(const QString &string)
{
    return digest(QXDigest::Algorithm::SHA1, string);
}

QString qx_sha256Hash(const QString &string)
{
    return digest(QXDigest::Algorithm::SHA256, string);
}

namespace {

// ASCII characters that pass unescaped: letters, digits and _ . ! ~ * ( ) / @ $ ,
constexpr bool passesUnescaped(unsigned char c)
{
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
        return true;
    switch (c) {
    case '_': case '.': case '!': case '~': case '*': case '(': case ')':
    case '/': case '@': case '$': case ',':
        return true;
    default:
        return false;
    }
}

int hexValue(QChar c)
{
    const char16_t u = c.unicode();
    if (u >= '0' && u <= '9')
        return u - '0';
    if (u >= 'a' && u <= 'f')
        return u - 'a' + 10;
    if (u >= 'A' && u <= 'F')
        return u - 'A' + 10;
    return -1;
}

} // namespace

QString qx_URLEncodeString(const QString &string)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    const QByteArray bytes = string.toUtf8();
    QString encoded;
    encoded.reserve(bytes.size() * 3);
    for (const char ch : bytes) {
        const auto c = static_cast<unsigned char>(ch);
        if (passesUnescaped(c)) {
            encoded.append(QLatin1Char(char(c)));
        } else {
            encoded.append(QLatin1Char('%'));
            encoded.append(QLatin1Char(digits[c >> 4]));
            encoded.append(QLatin1Char(digits[c & 0x0F]));
        }
    }
    return encoded;
}

QString qx_URLDecodeString(const QString &string)
{
    QString decoded;
    decoded.reserve(string.size());
    const qsizetype n = string.size();
    qsizetype i = 0;
    while (i < n) {
        if (string.at(i) != QLatin1Char('%')) {
            decoded.append(string.at(i++));
            continue;
        }
        // A run of consecutive escapes is one byte sequence that must be UTF-8.
        QByteArray bytes;
        while (i < n && string.at(i) == QLatin1Char('%')) {
            if (i + 2 >= n)
                return QString();
            const int high = hexValue(string.at(i + 1));
            const int low = hexValue(string.at(i + 2));
            if (high < 0 || low < 0)
                return QString();
            bytes.append(char(high * 16 + low));
            i += 3;
        }
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        const QString text = decoder(bytes);
        if (decoder.hasError())
            return QString();
        decoded.append(text);
    }
    // An empty input decodes to an empty (not null) string.
    return decoded.isNull() ? QStringLiteral("") : decoded;
}

QString qx_URLStringByAppendingParameter(const QString &urlString, const QString &parameter, const QString &value)
{
    if (parameter.isEmpty() || value.isEmpty())
        return urlString;
    const QChar separator = urlString.contains(QLatin1Char('?')) ? QLatin1Char('&') : QLatin1Char('?');
    return urlString + separator + qx_URLEncodedString(parameter) + QLatin1Char('=') + qx_URLEncodedString(value);
}

static bool isWhitespace(QChar c)
{
    return c == QLatin1Char('\t') || c.category() == QChar::Separator_Space;
}

QString qx_trimedString(const QString &string)
{
    qsizetype begin = 0;
    qsizetype end = string.size();
    while (begin < end && isWhitespace(string.at(begin)))
        ++begin;
    while (end > begin && isWhitespace(string.at(end - 1)))
        --end;
    if (begin == 0 && end == string.size())
        return string;
    return string.mid(begin, end - begin);
}

QString qx_stringByRemovingPrefix(const QString &string, const QString &prefix)
{
    if (!prefix.isEmpty() && string.startsWith(prefix))
        return string.mid(prefix.size());
    return string;
}

QString qx_stringByRemovingSuffix(const QString &string, const QString &suffix)
{
    if (!suffix.isEmpty() && string.endsWith(suffix))
        return string.left(string.size() - suffix.size());
    return string;
}

#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QMetaType>
#include <QString>
#include <QVariantMap>

// Key of QXError::userInfo() that holds the localized description.
QXFOUNDATION_EXPORT extern const QString QXLocalizedDescriptionKey;
// Domain of errors that carry a POSIX errno value as their code.
QXFOUNDATION_EXPORT extern const QString QXPOSIXErrorDomain;
// Domain of network failures: the code is a QNetworkReply::NetworkError value,
// the description the reply's error text.
QXFOUNDATION_EXPORT extern const QString QXNetworkErrorDomain;
// Domain of JSON parse failures: the code is a QJsonParseError::ParseError value.
QXFOUNDATION_EXPORT extern const QString QXJSONErrorDomain;

/*!
  An error as the library reports it: a domain, an integer code and a
  user-information map whose QXLocalizedDescriptionKey entry is the text
  shown to people. A default-constructed QXError is "no error" (isNull()).

  Nothing in the library throws; operations that can say why they failed
  take an optional `QXError *error = nullptr` out-parameter or hand an error
  to a callback.
*/
class QXFOUNDATION_EXPORT QXError
{
public:
    QXError() = default;
    QXError(const QString &domain, qint64 code, const QVariantMap &userInfo = {});
    // Convenience for the common case of a bare description.
    static QXError withDescription(const QString &domain, qint64 code, const QString &description);
    // An error in QXPOSIXErrorDomain whose description is strerror(errnum).
    static QXError fromErrno(int errnum);

    bool isNull() const { return m_domain.isEmpty(); }
    explicit operator bool() const { return !isNull(); }

    QString domain() const { return m_domain; }
    qint64 code() const { return m_code; }
    QVariantMap userInfo() const { return m_userInfo; }
    // The QXLocalizedDescriptionKey entry, or a generic text naming domain and code.
    QString localizedDescription() const;

    friend bool operator==(const QXError &a, const QXError &b)
    {
        return a.m_domain == b.m_domain && a.m_code == b.m_code && a.m_userInfo == b.m_userInfo;
    }
    friend bool operator!=(const QXError &a, const QXError &b) { return !(a == b); }

private:
    QString m_domain;
    qint64 m_code = 0;
    QVariantMap m_userInfo;
};

// Writes `error` to `out` when the caller asked for it (out may be null).
inline void qxSetError(QXError *out, const QXError &error)
{
    if (out)
        *out = error;
}

Q_DECLARE_METATYPE(QXError)

QXFOUNDATION_EXPORT QDebug operator<<(QDebug debug, const QXError &error);

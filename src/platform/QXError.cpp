#include <QXFoundation/QXError.h>

#include <QDebug>

#include <cstring>

const QString QXLocalizedDescriptionKey = QStringLiteral("NSLocalizedDescription");
const QString QXPOSIXErrorDomain = QStringLiteral("NSPOSIXErrorDomain");
const QString QXNetworkErrorDomain = QStringLiteral("QXNetworkErrorDomain");
const QString QXJSONErrorDomain = QStringLiteral("QXJSONErrorDomain");

QXError::QXError(const QString &domain, qint64 code, const QVariantMap &userInfo)
    : m_domain(domain)
    , m_code(code)
    , m_userInfo(userInfo)
{
}

QXError QXError::withDescription(const QString &domain, qint64 code, const QString &description)
{
    return QXError(domain, code, {{QXLocalizedDescriptionKey, description}});
}

QXError QXError::fromErrno(int errnum)
{
    return withDescription(QXPOSIXErrorDomain, errnum, QString::fromLocal8Bit(std::strerror(errnum)));
}

QString QXError::localizedDescription() const
{
    const QVariant description = m_userInfo.value(QXLocalizedDescriptionKey);
    if (description.isValid())
        return description.toString();
    if (isNull())
        return QString();
    return QStringLiteral("The operation couldn’t be completed. (%1 error %2.)").arg(m_domain).arg(m_code);
}

QDebug operator<<(QDebug debug, const QXError &error)
{
    QDebugStateSaver saver(debug);
    if (error.isNull())
        debug.nospace() << "QXError()";
    else
        debug.nospace() << "QXError(" << error.domain() << ", " << error.code() << ", "
                        << error.localizedDescription() << ')';
    return debug;
}

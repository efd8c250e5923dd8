#include <QXFoundation/QXData.h>

#include "platform/QXDigest_p.h"

QString qx_md5Hash(const QByteArray &data)
{
    return QXDigest::hex(QXDigest::Algorithm::MD5, data.constData(), size_t(data.size()));
}

QString qx_sha1Hash(const QByteArray &data)
{
    return QXDigest::hex(QXDigest::Algorithm::SHA1, data.constData(), size_t(data.size()));
}

QString qx_sha256Hash(const QByteArray &data)
{
    return QXDigest::hex(QXDigest::Algorithm::SHA256, data.constData(), size_t(data.size()));
}

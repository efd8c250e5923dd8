#include <QXFoundation/QXFoundation.h>

#include <cstdio>

int main()
{
    const QString digest = qx_md5Hash(QStringLiteral("avatar-42"));
    std::printf("%s %.1f\n", qPrintable(digest), QXFoundationVersionNumber);
    return digest == QLatin1String("018d16023be51c8939fc73a793564140") ? 0 : 1;
}

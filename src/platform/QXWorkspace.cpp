#include "platform/QXWorkspace_p.h"

#include "platform/QXPlatform_p.h"

#include <QDesktopServices>
#include <QGuiApplication>
#include <QMutexLocker>

QXWorkspaceBackend::~QXWorkspaceBackend() = default;

QXWorkspace::QXWorkspace()
    : m_backend(qxCreatePlatformWorkspaceBackend())
{
}

QXWorkspace::~QXWorkspace() = default;

QXWorkspace &QXWorkspace::sharedWorkspace()
{
    static QXWorkspace workspace;
    return workspace;
}

bool QXWorkspace::openURL(const QUrl &url) const
{
    // QDesktopServices reaches the platform integration, which only a GUI application has.
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        qCWarning(lcQXFoundation, "QXWorkspace::openURL needs a QGuiApplication; %s is not opened",
                  qUtf8Printable(url.toString()));
        return false;
    }
    return QDesktopServices::openUrl(url);
}

QStringList QXWorkspace::runningApplications() const
{
    QMutexLocker locker(&m_mutex);
    const std::shared_ptr<QXWorkspaceBackend> backend = m_backend;
    locker.unlock();
    return backend->runningApplications();
}

bool QXWorkspace::canRunApplication(const QString &bundleIdentifier) const
{
    QMutexLocker locker(&m_mutex);
    const std::shared_ptr<QXWorkspaceBackend> backend = m_backend;
    locker.unlock();
    return backend->canRunApplication(bundleIdentifier);
}

void QXWorkspace::setBackend(std::unique_ptr<QXWorkspaceBackend> backend)
{
    std::shared_ptr<QXWorkspaceBackend> replacement =
        backend ? std::shared_ptr<QXWorkspaceBackend>(std::move(backend)) : qxCreatePlatformWorkspaceBackend();
    QMutexLocker locker(&m_mutex);
    m_backend.swap(replacement);
    // The old backend goes away outside the lock.
    locker.unlock();
}

#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QMutex>
#include <QStringList>
#include <QUrl>

#include <memory>

/*!
  What the workspace asks the system about other applications. One backend
  per kind of system; tests install their own.
*/
class QXFOUNDATION_EXPORT QXWorkspaceBackend
{
public:
    virtual ~QXWorkspaceBackend();

    // Bundle identifiers of the applications running now.
    virtual QStringList runningApplications() const = 0;
    // Whether an application with this identifier can exist on this system
    // at all. Waiting for one that cannot would never end.
    virtual bool canRunApplication(const QString &bundleIdentifier) const = 0;
};

// The backend of this kind of system.
std::unique_ptr<QXWorkspaceBackend> qxCreatePlatformWorkspaceBackend();

/*!
  The desktop the application runs on: opening URLs in the applications that
  handle them, and the other applications that are running.
*/
class QXFOUNDATION_EXPORT QXWorkspace
{
public:
    static QXWorkspace &sharedWorkspace();

    QXWorkspace(const QXWorkspace &) = delete;
    QXWorkspace &operator=(const QXWorkspace &) = delete;

    // Opens `url` through QDesktopServices (so handlers registered with
    // QDesktopServices::setUrlHandler() see it). False without a GUI application.
    bool openURL(const QUrl &url) const;

    QStringList runningApplications() const;
    bool canRunApplication(const QString &bundleIdentifier) const;

    // Replaces the backend; null restores the platform's own.
    void setBackend(std::unique_ptr<QXWorkspaceBackend> backend);

private:
    QXWorkspace();
    ~QXWorkspace();

    mutable QMutex m_mutex;
    std::shared_ptr<QXWorkspaceBackend> m_backend;
};

#pragma once

// What the rating prompt's suites share: a scratch settings store, a main
// bundle that looks like an installed application, and a local HTTPS server
// that plays the store's lookup service.

#include <QXFoundation/QXAppStoreLookup.h>
#include <QXFoundation/QXBundle.h>
#include <QXFoundation/QXNotificationCenter.h>
#include <QXFoundation/QXRate.h>
#include <QXFoundation/QXRateDelegate.h>

#include "rate/QXRate_p.h"

#include <QFile>
#include <QPointer>
#include <QProcess>
#include <QRegularExpression>
#include <QThread>
#include <QSettings>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <functional>
#include <memory>

namespace RateTest {

// Settings in Qt's test location under a scratch organisation, emptied.
inline void isolateSettings(const char *application)
{
    QStandardPaths::setTestModeEnabled(true);
    QCoreApplication::setOrganizationName(QStringLiteral("qxfoundation-tests"));
    QCoreApplication::setApplicationName(QString::fromLatin1(application));
    QSettings settings;
    settings.clear();
    settings.sync();
}

// The application as the store knows it: com.example.app, version 1.0.
inline void installBundle()
{
    QXBundle &bundle = QXBundle::mainBundle();
    bundle.resetInfoValues();
    bundle.setInfoValue(QXBundleIdentifierKey, QStringLiteral("com.example.app"));
    bundle.setInfoValue(QXBundleShortVersionStringKey, QStringLiteral("1.0"));
    bundle.setInfoValue(QXBundleVersionKey, QStringLiteral("100"));
    bundle.setInfoValue(QXBundleDisplayNameKey, QStringLiteral("Example"));
    bundle.setInfoValue(QXBundleNameKey, QStringLiteral("example"));
}

// A port on 127.0.0.1 where nothing listens: connections are refused at once.
inline quint16 refusingPort()
{
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost, 0))
        return 0;
    const quint16 port = server.serverPort();
    server.close();
    return port;
}

inline QUrl refusingStoreURL()
{
    return QUrl(QStringLiteral("https://127.0.0.1:%1").arg(refusingPort()));
}

// Runs what is queued (a new instance's launch, which starts a lookup),
// then waits until every lookup has delivered its outcome.
inline bool waitForLookups(int timeoutMsec = 10000)
{
    QCoreApplication::processEvents();
    return QTest::qWaitFor([] { return QXRatePrivate::runningLookups() == 0; }, timeoutMsec);
}

// JSON text written with single quotes, which stand for double quotes.
inline QString json(const char *text)
{
    return QString::fromUtf8(text).replace(QLatin1Char('\''), QLatin1Char('"'));
}

inline QByteArray jsonBytes(const char *text)
{
    return json(text).toUtf8();
}

// A lookup record as the store writes it.
inline QByteArray record(const QString &bundleID, quint64 trackID, const QString &version, quint64 genre = 6016)
{
    return json("{'resultCount':1,'results':[{'kind':'mac-software','bundleId':'%1','trackId':%2,"
                "'version':'%3','primaryGenreId':%4,'trackName':'Example, the app'}]}")
        .arg(bundleID)
        .arg(trackID)
        .arg(version)
        .arg(genre)
        .toUtf8();
}

/*
  Plays the lookup service on 127.0.0.1: HTTPS with a certificate made for
  the run (and trusted by this process), or plain HTTP for child processes
  that cannot be told to trust it. Every request's target is recorded; the
  handler chooses the answer.
*/
class StoreServer : public QObject
{
public:
    struct Response
    {
        int status = 200;
        QByteArray body;
        int delayMsec = 0;
        bool hangUp = false; // close the connection without answering
    };
    std::function<Response(const QByteArray &target)> handler = [](const QByteArray &) { return Response(); };
    QList<QByteArray> targets;

    explicit StoreServer(bool tls = true)
        : m_tls(tls)
    {
    }

    // Makes the certificate once per process and trusts it for every request.
    static bool prepareTls()
    {
        static bool prepared = false;
        static bool ok = false;
        if (prepared)
            return ok;
        prepared = true;
        static QTemporaryDir dir;
        const QString key = dir.filePath(QStringLiteral("key.pem"));
        const QString cert = dir.filePath(QStringLiteral("cert.pem"));
        QProcess openssl;
        openssl.start(QStringLiteral("openssl"),
                      {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"), QStringLiteral("ec"),
                       QStringLiteral("-pkeyopt"), QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes"),
                       QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"), QStringLiteral("/CN=127.0.0.1"),
                       QStringLiteral("-addext"), QStringLiteral("subjectAltName=IP:127.0.0.1,DNS:localhost"),
                       QStringLiteral("-keyout"), key, QStringLiteral("-out"), cert});
        if (!openssl.waitForFinished(30000) || openssl.exitCode() != 0) {
            qWarning() << "openssl failed:" << openssl.readAllStandardError();
            return false;
        }
        QFile certFile(cert);
        QFile keyFile(key);
        if (!certFile.open(QIODevice::ReadOnly) || !keyFile.open(QIODevice::ReadOnly))
            return false;
        certificate() = QSslCertificate(&certFile, QSsl::Pem);
        privateKey() = QSslKey(&keyFile, QSsl::Ec, QSsl::Pem);
        QSslConfiguration client = QSslConfiguration::defaultConfiguration();
        client.addCaCertificate(certificate());
        QSslConfiguration::setDefaultConfiguration(client);
        ok = !certificate().isNull() && !privateKey().isNull();
        return ok;
    }

    bool start()
    {
        if (m_tls) {
            if (!prepareTls())
                return false;
            auto server = std::make_unique<QSslServer>();
            QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
            configuration.setLocalCertificate(certificate());
            configuration.setPrivateKey(privateKey());
            server->setSslConfiguration(configuration);
            m_server = std::move(server);
        } else {
            m_server = std::make_unique<QTcpServer>();
        }
        QObject::connect(m_server.get(), &QTcpServer::pendingConnectionAvailable, this, [this] {
            while (QTcpSocket *socket = m_server->nextPendingConnection())
                serve(socket);
        });
        return m_server->listen(QHostAddress::LocalHost, 0);
    }

    QUrl url() const
    {
        return QUrl(QStringLiteral("%1://127.0.0.1:%2").arg(m_tls ? QStringLiteral("https") : QStringLiteral("http")).arg(m_server->serverPort()));
    }

    // Answers every request with `body` and `status`.
    void answer(const QByteArray &body, int status = 200)
    {
        handler = [body, status](const QByteArray &) { return Response{status, body}; };
    }

private:
    static QSslCertificate &certificate()
    {
        static QSslCertificate value;
        return value;
    }
    static QSslKey &privateKey()
    {
        static QSslKey value;
        return value;
    }

    void serve(QTcpSocket *socket)
    {
        socket->setParent(this);
        auto buffer = std::make_shared<QByteArray>();
        auto answered = std::make_shared<bool>(false);
        const auto readRequest = [this, socket, buffer, answered] {
            buffer->append(socket->readAll());
            if (*answered || !buffer->contains("\r\n\r\n"))
                return;
            *answered = true;
            const QByteArray target = buffer->left(buffer->indexOf("\r\n")).split(' ').value(1);
            targets.append(target);
            const Response response = handler(target);
            QPointer<QTcpSocket> guarded(socket);
            QTimer::singleShot(response.delayMsec, this, [guarded, response] {
                if (!guarded)
                    return;
                if (!response.hangUp) {
                    QByteArray reply = "HTTP/1.1 " + QByteArray::number(response.status) + " Status\r\n"
                                       "Content-Type: application/json\r\n"
                                       "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n"
                                       "Connection: close\r\n\r\n";
                    guarded->write(reply + response.body);
                }
                guarded->disconnectFromHost();
            });
        };
        QObject::connect(socket, &QTcpSocket::readyRead, this, readRequest);
        QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        readRequest();
    }

    bool m_tls;
    std::unique_ptr<QTcpServer> m_server;
};

/*
  A delegate and a notification observer writing into one log, so a test
  sees what was reported, in which order, and on which thread.
*/
class Recorder : public QObject, public QXRateDelegate
{
public:
    QStringList log;
    QList<QXError> errors;
    bool shouldPrompt = true;
    bool shouldOpen = true;
    bool offMainThread = false;

    Recorder()
    {
        const QString notifications[] = {
            QXRateCouldNotConnectToAppStoreNotification, QXRateDidDetectAppUpdateNotification,
            QXRateDidPromptForRatingNotification, QXRateUserDidAttemptToRateAppNotification,
            QXRateUserDidDeclineToRateAppNotification, QXRateUserDidRequestReminderToRateAppNotification,
            QXRateDidOpenAppStoreNotification,
        };
        for (const QString &name : notifications) {
            QXNotificationCenter::defaultCenter().addObserver(
                name,
                [this](const QXNotification &notification) {
                    QString shortName = notification.name;
                    shortName.remove(QLatin1String("QXRate")).remove(QLatin1String("Notification"));
                    note(QStringLiteral("N:") + shortName);
                    if (notification.object.canConvert<QXError>())
                        errors.append(notification.object.value<QXError>());
                },
                this);
        }
    }

    // Entries of the log that start with `prefix`.
    QStringList entries(const QString &prefix) const { return log.filter(QRegularExpression(QLatin1Char('^') + prefix)); }

    bool rateShouldPromptForRating(QXRate *) override { note(QStringLiteral("shouldPrompt")); return shouldPrompt; }
    void rate(QXRate *, const QXError &error) override { note(QStringLiteral("couldNotConnect")); errors.append(error); }
    void rateDidDetectAppUpdate(QXRate *) override { note(QStringLiteral("didDetectAppUpdate")); }
    void rateDidPromptForRating(QXRate *) override { note(QStringLiteral("didPrompt")); }
    void rateUserDidAttemptToRateApp(QXRate *) override { note(QStringLiteral("attemptToRate")); }
    void rateUserDidDeclineToRateApp(QXRate *) override { note(QStringLiteral("decline")); }
    void rateUserDidRequestReminderToRateApp(QXRate *) override { note(QStringLiteral("remind")); }
    bool rateShouldOpenAppStore(QXRate *) override { note(QStringLiteral("shouldOpen")); return shouldOpen; }
    void rateDidOpenAppStore(QXRate *) override { note(QStringLiteral("didOpen")); }

private:
    void note(const QString &entry)
    {
        if (QThread::currentThread() != QCoreApplication::instance()->thread())
            offMainThread = true;
        log.append(entry);
    }
};

} // namespace RateTest

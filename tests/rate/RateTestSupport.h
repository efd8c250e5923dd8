#pragma once

// What the rating prompt's suites share: scratch settings, a main bundle that
// looks like an installed application, a recorder of what the delegate and
// the notifications hear, and a local server that plays the lookup service.

#include <QXFoundation/QXAppStoreLookup.h>
#include <QXFoundation/QXBundle.h>
#include <QXFoundation/QXNotificationCenter.h>
#include <QXFoundation/QXRate.h>
#include <QXFoundation/QXRateDelegate.h>

#include "rate/QXRate_p.h"

#include <QtNetwork>
#include <QtTest>

#include <functional>
#include <memory>

using namespace Qt::StringLiterals;

namespace RateTest {

inline void isolateSettings(const QString &application)
{
    QStandardPaths::setTestModeEnabled(true);
    QCoreApplication::setOrganizationName(u"qxfoundation-tests"_s);
    QCoreApplication::setApplicationName(application);
    QSettings().clear();
}

// com.example.app, version 1.0 (build 100), named Example (example).
inline void installBundle()
{
    QXBundle &bundle = QXBundle::mainBundle();
    bundle.resetInfoValues();
    bundle.setInfoValue(QXBundleIdentifierKey, u"com.example.app"_s);
    bundle.setInfoValue(QXBundleShortVersionStringKey, u"1.0"_s);
    bundle.setInfoValue(QXBundleVersionKey, u"100"_s);
    bundle.setInfoValue(QXBundleDisplayNameKey, u"Example"_s);
    bundle.setInfoValue(QXBundleNameKey, u"example"_s);
}

// A store on 127.0.0.1 where nothing listens: lookups fail at once.
inline QUrl refusingStoreURL()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    return QUrl(u"https://127.0.0.1:%1"_s.arg(server.serverPort()));
}

// Runs what is queued (a new instance's launch starts a lookup), then waits
// until every lookup has delivered its outcome.
inline bool waitForLookups()
{
    QCoreApplication::processEvents();
    return QTest::qWaitFor([] { return QXRatePrivate::runningLookups() == 0; }, 10000);
}

// JSON written with single quotes standing for double quotes.
inline QString json(const char *text)
{
    return QString::fromUtf8(text).replace(u'\'', u'"');
}

inline QByteArray jsonBytes(const char *text)
{
    return json(text).toUtf8();
}

inline QByteArray record(const QString &bundleID, quint64 trackID, const QString &version, quint64 genre = 6016)
{
    return json("{'resultCount':1,'results':[{'bundleId':'%1','trackId':%2,'version':'%3','primaryGenreId':%4,"
                "'trackName':'Example, the app'}]}")
        .arg(bundleID).arg(trackID).arg(version).arg(genre).toUtf8();
}

// The delegate and the notifications write into one log (notifications as
// "N:" and the name's middle part), so tests see what came in which order.
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
        for (const QString &name : {QXRateCouldNotConnectToAppStoreNotification, QXRateDidDetectAppUpdateNotification,
                                    QXRateDidPromptForRatingNotification, QXRateUserDidAttemptToRateAppNotification,
                                    QXRateUserDidDeclineToRateAppNotification,
                                    QXRateUserDidRequestReminderToRateAppNotification, QXRateDidOpenAppStoreNotification}) {
            QXNotificationCenter::defaultCenter().addObserver(name, [this](const QXNotification &notification) {
                note(u"N:"_s + QString(notification.name).remove(u"QXRate"_s).remove(u"Notification"_s));
                if (notification.object.canConvert<QXError>())
                    errors.append(notification.object.value<QXError>());
            }, this);
        }
    }
    QStringList entries(const QString &entry) const { return log.filter(entry); }

    bool rateShouldPromptForRating(QXRate *) override { note(u"shouldPrompt"_s); return shouldPrompt; }
    void rate(QXRate *, const QXError &error) override { note(u"couldNotConnect"_s); errors.append(error); }
    void rateDidDetectAppUpdate(QXRate *) override { note(u"didDetectAppUpdate"_s); }
    void rateDidPromptForRating(QXRate *) override { note(u"didPrompt"_s); }
    void rateUserDidAttemptToRateApp(QXRate *) override { note(u"attemptToRate"_s); }
    void rateUserDidDeclineToRateApp(QXRate *) override { note(u"decline"_s); }
    void rateUserDidRequestReminderToRateApp(QXRate *) override { note(u"remind"_s); }
    bool rateShouldOpenAppStore(QXRate *) override { note(u"shouldOpen"_s); return shouldOpen; }
    void rateDidOpenAppStore(QXRate *) override { note(u"didOpen"_s); }

    void note(const QString &entry)
    {
        offMainThread |= QThread::currentThread() != QCoreApplication::instance()->thread();
        log.append(entry);
    }
};

/*
  Plays the lookup service on 127.0.0.1: HTTPS with a certificate made for
  this run and trusted by this process, or plain HTTP for child processes.
  Records each request's target; the handler chooses the answer.
*/
class StoreServer : public QObject
{
public:
    struct Response
    {
        int status = 200;
        QByteArray body;
        int delayMsec = 0;
        bool hangUp = false; // close without answering
    };
    std::function<Response(const QByteArray &target)> handler = [](const QByteArray &) { return Response(); };
    QList<QByteArray> targets;

    explicit StoreServer(bool tls = true) : m_tls(tls) {}

    void answer(const QByteArray &body, int status = 200)
    {
        handler = [body, status](const QByteArray &) { return Response{status, body}; };
    }

    bool start()
    {
        if (m_tls) {
            const QSslConfiguration *tls = serverConfiguration();
            if (!tls)
                return false;
            auto server = std::make_unique<QSslServer>();
            server->setSslConfiguration(*tls);
            m_server = std::move(server);
        } else {
            m_server = std::make_unique<QTcpServer>();
        }
        connect(m_server.get(), &QTcpServer::pendingConnectionAvailable, this, [this] {
            while (QTcpSocket *socket = m_server->nextPendingConnection())
                serve(socket);
        });
        return m_server->listen(QHostAddress::LocalHost, 0);
    }

    QUrl url() const
    {
        return QUrl(u"%1://127.0.0.1:%2"_s.arg(m_tls ? u"https"_s : u"http"_s).arg(m_server->serverPort()));
    }

    // The server's TLS configuration, made once with openssl; the client side
    // of this process trusts its certificate from then on.
    static const QSslConfiguration *serverConfiguration()
    {
        static const std::unique_ptr<QSslConfiguration> configuration = [] {
            QTemporaryDir dir;
            QProcess openssl;
            openssl.start(u"openssl"_s, {u"req"_s, u"-x509"_s, u"-newkey"_s, u"ec"_s, u"-pkeyopt"_s,
                                         u"ec_paramgen_curve:prime256v1"_s, u"-nodes"_s, u"-days"_s, u"2"_s,
                                         u"-subj"_s, u"/CN=127.0.0.1"_s, u"-addext"_s,
                                         u"subjectAltName=IP:127.0.0.1,DNS:localhost"_s, u"-keyout"_s,
                                         dir.filePath(u"key.pem"_s), u"-out"_s, dir.filePath(u"cert.pem"_s)});
            QFile cert(dir.filePath(u"cert.pem"_s));
            QFile key(dir.filePath(u"key.pem"_s));
            if (!openssl.waitForFinished(30000) || openssl.exitCode() != 0 || !cert.open(QIODevice::ReadOnly)
                || !key.open(QIODevice::ReadOnly))
                return std::unique_ptr<QSslConfiguration>();
            const QSslCertificate certificate(&cert, QSsl::Pem);
            QSslConfiguration client = QSslConfiguration::defaultConfiguration();
            client.addCaCertificate(certificate);
            QSslConfiguration::setDefaultConfiguration(client);
            auto server = std::make_unique<QSslConfiguration>(client);
            server->setLocalCertificate(certificate);
            server->setPrivateKey(QSslKey(&key, QSsl::Ec, QSsl::Pem));
            return server;
        }();
        return configuration.get();
    }

private:
    void serve(QTcpSocket *socket)
    {
        socket->setParent(this);
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        const auto request = std::make_shared<QByteArray>();
        const auto read = [this, socket, request] {
            if (request->endsWith("\r\n\r\n"))
                return; // answered already
            *request += socket->readAll();
            if (!request->endsWith("\r\n\r\n"))
                return;
            const QByteArray target = request->left(request->indexOf("\r\n")).split(' ').value(1);
            targets.append(target);
            const Response response = handler(target);
            QTimer::singleShot(response.delayMsec, socket, [socket, response] {
                if (!response.hangUp)
                    socket->write("HTTP/1.1 " + QByteArray::number(response.status) + " Status\r\nContent-Type: "
                                  "application/json\r\nContent-Length: " + QByteArray::number(response.body.size())
                                  + "\r\nConnection: close\r\n\r\n" + response.body);
                socket->disconnectFromHost();
            });
        };
        connect(socket, &QTcpSocket::readyRead, this, read);
        read(); // what arrived before the connection was handed over
    }

    bool m_tls;
    std::unique_ptr<QTcpServer> m_server;
};

} // namespace RateTest

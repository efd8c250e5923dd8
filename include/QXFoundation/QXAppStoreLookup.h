#pragma once

#include <QXFoundation/QXError.h>
#include <QXFoundation/QXGlobal.h>

#include <QLocale>
#include <QString>
#include <QUrl>

// What the store knows about an application: the last record of a lookup.
struct QXAppStoreRecord
{
    QString bundleID;          // "bundleId"
    quint64 trackID = 0;       // "trackId", the App Store ID (0 when absent)
    quint64 primaryGenreID = 0; // "primaryGenreId" (0 when absent)
    QString version;           // "version" (null when absent)
};

/*!
  One request to the App Store's public lookup service, as the rating prompt
  makes it: an HTTPS GET of "/COUNTRY/lookup?id=ID" (or "?bundleId=BUNDLE"
  when no ID is set) on the store's host, answered with JSON whose "results"
  array ends with the application's record.

  run() sends the request on the calling thread and waits for the answer (at
  most timeout() seconds without progress), then checks the record: the
  store's bundle ID must equal bundleID() ignoring case, and, unless
  onlyIfLatestVersion() is false or previewMode() is true, the store's
  version must not be newer than applicationVersion() (digit runs compare as
  numbers: 1.10 is newer than 1.9). The outcome is a null QXError or:

  - QXRateErrorDomain 1, 2, 3: bundle ID mismatch (naming the store's bundle
    ID), not found (a lookup by ID that found no record; none in preview
    mode), installed version older than the store's;
  - "HTTPResponseErrorDomain" with the HTTP status, for a status of 400 or more;
  - QXJSONErrorDomain for a body that is not JSON;
  - QXNetworkErrorDomain for a failed connection (refused, unknown host, TLS,
    timed out), with the QNetworkReply::NetworkError code.

  A lookup by bundle ID that finds nothing is no error: the application is
  simply not in the store. Statuses from 201 to 399 are no error either.

  A lookup object is a plain value; run() may be called on any thread that
  is not busy with other work, including the main thread (it runs a local
  event loop while it waits).
*/
class QXFOUNDATION_EXPORT QXAppStoreLookup
{
public:
    /*!
      Scheme, host and port of the lookup service for the whole process;
      https://itunes.apple.com unless changed. The host also names the store
      in the rating prompt's review-page URL. An empty URL restores the
      default. Thread-safe.
    */
    static QUrl storeURL();
    static void setStoreURL(const QUrl &url);

    /*!
      The store front for `locale`: its region code, except that Europe
      ("150") is "eu", Gibraltar ("GI") is "GB", and a locale without a region
      or with a region that is not two letters ("419") is "us".
    */
    static QString countryForLocale(const QLocale &locale);

    QString country() const { return m_country; }
    void setCountry(const QString &country) { m_country = country; }

    // Looked up by ID when non-zero, else by bundle ID.
    quint64 appStoreID() const { return m_appStoreID; }
    void setAppStoreID(quint64 id) { m_appStoreID = id; }

    // The application's own bundle identifier.
    QString bundleID() const { return m_bundleID; }
    void setBundleID(const QString &bundleID) { m_bundleID = bundleID; }

    // Whether the record must carry bundleID() (true unless turned off).
    bool checksBundleID() const { return m_checksBundleID; }
    void setChecksBundleID(bool checks) { m_checksBundleID = checks; }

    // The installed version, compared with the store's.
    QString applicationVersion() const { return m_applicationVersion; }
    void setApplicationVersion(const QString &version) { m_applicationVersion = version; }

    bool onlyIfLatestVersion() const { return m_onlyIfLatestVersion; }
    void setOnlyIfLatestVersion(bool only) { m_onlyIfLatestVersion = only; }

    // Preview mode lets an application that the store does not know, or
    // knows in a newer version, pass.
    bool previewMode() const { return m_previewMode; }
    void setPreviewMode(bool preview) { m_previewMode = preview; }

    // Seconds without progress after which the request fails; 60 by default.
    double timeout() const { return m_timeout; }
    void setTimeout(double seconds) { m_timeout = seconds; }

    // The request's URL for the current settings.
    QUrl url() const;

    // Sends the request and checks the answer; returns the outcome.
    QXError run();

    // After run(): the HTTP status (0 without a response) ...
    int httpStatus() const { return m_httpStatus; }
    // ... whether a record with a bundle ID came back ...
    bool foundRecord() const { return m_foundRecord; }
    // ... whether it was the application's (bundle ID equal, or not checked) ...
    bool matched() const { return m_matched; }
    // ... and the record itself.
    const QXAppStoreRecord &record() const { return m_record; }

private:
    QXError evaluate(const QByteArray &body);

    QString m_country = QStringLiteral("us");
    quint64 m_appStoreID = 0;
    QString m_bundleID;
    bool m_checksBundleID = true;
    QString m_applicationVersion;
    bool m_onlyIfLatestVersion = true;
    bool m_previewMode = false;
    double m_timeout = 60.0;

    int m_httpStatus = 0;
    bool m_foundRecord = false;
    bool m_matched = false;
    QXAppStoreRecord m_record;
};

// QXRate's side of the App Store lookup: starting it, applying what it
// learned, and handing its outcome to the prompt flow.

#include <QXFoundation/QXRate.h>

#include <QXFoundation/QXAppStoreLookup.h>
#include <QXFoundation/QXDispatchQueue.h>

#include "rate/QXRate_p.h"

#include <QSslSocket>

#include <openssl/crypto.h>

#include <atomic>

namespace {

std::atomic<double> lookupTimeoutSeconds{60.0};
std::atomic<double> reopenDelaySeconds{5.0};
std::atomic<int> lookupsInFlight{0};

struct LookupJob
{
    QXAppStoreLookup lookup;
    // The instance's own ID when the lookup started (not the persisted one).
    quint64 appStoreIDField = 0;
    QPointer<QXRate> rate;
    std::shared_ptr<std::atomic<quint64>> genreID;
};

LookupJob makeJob(QXRate *rate, QXRatePrivate *d)
{
    // OpenSSL keeps state for the thread that initialises it and loses it
    // when that thread ends: initialise TLS here, on the calling (main)
    // thread, rather than on a pool thread that comes and goes.
    static const bool tlsReady = QSslSocket::supportsSsl();
    Q_UNUSED(tlsReady);

    // Read on the calling thread, so the background never touches the
    // instance's configuration while the host may change it.
    LookupJob job;
    job.lookup.setCountry(d->appStoreCountry);
    job.lookup.setAppStoreID(d->appStoreID);
    job.lookup.setBundleID(d->applicationBundleID);
    job.lookup.setApplicationVersion(d->applicationVersion);
    job.lookup.setOnlyIfLatestVersion(d->onlyPromptIfLatestVersion);
    job.lookup.setPreviewMode(d->previewMode);
    job.lookup.setTimeout(QXRatePrivate::lookupTimeout());
    job.appStoreIDField = d->appStoreID;
    job.rate = rate;
    job.genreID = d->appStoreGenreID;
    return job;
}

// Runs the lookup on the current thread, applies what it learned, and
// queues the outcome for the main thread.
void runJob(LookupJob &job)
{
    const QXError outcome = job.lookup.run();
    if (job.lookup.matched()) {
        quint64 unknownGenre = 0;
        job.genreID->compare_exchange_strong(unknownGenre, job.lookup.record().primaryGenreID);
        if (job.appStoreIDField == 0) {
            const QVariant trackID = QVariant::fromValue(job.lookup.record().trackID);
            const QPointer<QXRate> rate = job.rate;
            QXDispatch::mainSync([&rate, &trackID] {
                if (rate)
                    rate->setAppStoreIDOnMainThread(trackID);
            });
        }
    }
    // Counts as running until the outcome has been handed over (or dropped).
    const std::shared_ptr<void> inFlight(nullptr, [](void *) { --lookupsInFlight; });
    QXDispatch::mainAsync([rate = job.rate, outcome, inFlight] {
        if (rate)
            QXRatePrivate::get(rate)->lookupCompleted(outcome);
    });
}

} // namespace

double QXRatePrivate::lookupTimeout() { return lookupTimeoutSeconds.load(); }
void QXRatePrivate::setLookupTimeout(double seconds) { lookupTimeoutSeconds.store(seconds); }
double QXRatePrivate::appStoreReopenDelay() { return reopenDelaySeconds.load(); }
void QXRatePrivate::setAppStoreReopenDelay(double seconds) { reopenDelaySeconds.store(seconds); }
int QXRatePrivate::runningLookups() { return lookupsInFlight.load(); }

void QXRatePrivate::lookupCompleted(const QXError &error)
{
    // Refused by a sandbox, yet the ID is known from an earlier lookup.
    if (error && error.code() == 1 && error.domain() == QXPOSIXErrorDomain) {
        if (q->appStoreID())
            q->connectionSucceeded();
        else
            q->connectionError(error);
        return;
    }
    if (error) {
        q->connectionError(error);
        return;
    }
    // Without an ID the application is not in the store: nothing to do.
    if (q->appStoreID() || previewMode)
        q->connectionSucceeded();
}

void QXRate::checkForConnectivityInBackground()
{
    ++lookupsInFlight;
    QXDispatch::backgroundAsync([job = makeJob(this, d.get())]() mutable {
        runJob(job);
        // The TLS backend leaves OpenSSL state (random generators, error
        // queue) on this pool thread. OpenSSL frees it when the thread ends,
        // but Qt's threads are detached and may end after OpenSSL's own exit
        // cleanup: free it now, while the pool still owns the thread.
        OPENSSL_thread_stop();
    });
}

void QXRate::checkForConnectivity()
{
    ++lookupsInFlight;
    LookupJob job = makeJob(this, d.get());
    runJob(job);
}

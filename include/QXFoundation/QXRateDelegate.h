#pragma once

#include <QXFoundation/QXError.h>
#include <QXFoundation/QXGlobal.h>

class QXRate;

/*!
  Follows and steers a QXRate. Every method is optional: the default bodies
  do what an absent method means (the two questions answer true, the
  reports do nothing), so a delegate overrides only what it cares about.
  Each method receives the QXRate first and is called on the main thread,
  before the notification that reports the same event.

  QXRate holds its delegate without owning it. A delegate that is also a
  QObject is forgotten as soon as it is destroyed; any other delegate must
  be cleared with QXRate::setDelegate(nullptr) before it goes away.
*/
class QXFOUNDATION_EXPORT QXRateDelegate
{
public:
    virtual ~QXRateDelegate();

    // After a successful lookup, before the alert; false cancels the alert.
    virtual bool rateShouldPromptForRating(QXRate *rate);
    // A lookup that a prompt or the ratings page waited for failed.
    virtual void rate(QXRate *rate, const QXError &couldNotConnectToAppStore);
    // First launch, or a launch of a new version.
    virtual void rateDidDetectAppUpdate(QXRate *rate);
    // The alert has just been presented.
    virtual void rateDidPromptForRating(QXRate *rate);
    virtual void rateUserDidAttemptToRateApp(QXRate *rate);
    virtual void rateUserDidDeclineToRateApp(QXRate *rate);
    virtual void rateUserDidRequestReminderToRateApp(QXRate *rate);
    // After the rate answer; false leaves opening the store to the delegate.
    virtual bool rateShouldOpenAppStore(QXRate *rate);
    // The ratings page has been opened.
    virtual void rateDidOpenAppStore(QXRate *rate);
};

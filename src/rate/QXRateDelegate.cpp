#include <QXFoundation/QXRateDelegate.h>

// An absent method lets the rating prompt go on: the questions answer true.

QXRateDelegate::~QXRateDelegate() = default;

bool QXRateDelegate::rateShouldPromptForRating(QXRate *)
{
    return true;
}

void QXRateDelegate::rate(QXRate *, const QXError &) {}
void QXRateDelegate::rateDidDetectAppUpdate(QXRate *) {}
void QXRateDelegate::rateDidPromptForRating(QXRate *) {}
void QXRateDelegate::rateUserDidAttemptToRateApp(QXRate *) {}
void QXRateDelegate::rateUserDidDeclineToRateApp(QXRate *) {}
void QXRateDelegate::rateUserDidRequestReminderToRateApp(QXRate *) {}

bool QXRateDelegate::rateShouldOpenAppStore(QXRate *)
{
    return true;
}

void QXRateDelegate::rateDidOpenAppStore(QXRate *) {}

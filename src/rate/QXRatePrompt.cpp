// QXRate's visible end: the alert, the answers, and the review page.

#include <QXFoundation/QXRate.h>

#include <QXFoundation/QXApplication.h>
#include <QXFoundation/QXDispatchQueue.h>
#include <QXFoundation/QXRateDelegate.h>

#include "platform/QXPlatform_p.h"
#include "platform/QXWorkspace_p.h"
#include "rate/QXRate_p.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

namespace {

// The bundle identifier of the platform's store application.
const QString appStoreApplication = QStringLiteral("com.apple.appstore");

} // namespace

void QXRate::promptForRating(bool force)
{
    Q_UNUSED(force);
    if (d->visibleAlert)
        return;
    const QString message = this->message();

    QWidget *window = QXApplication::mainWindow();
    if (d->onlyPromptIfMainWindowIsAvailable && !window) {
        QPointer<QXRate> self(this);
        QXDispatch::mainAfter(0.5, [self] {
            if (self)
                self->promptForRating(false);
        });
        return;
    }
    if (!qobject_cast<QApplication *>(QCoreApplication::instance())) {
        qCWarning(lcQXFoundation, "QXRate::promptForRating needs a QApplication to show its message box");
        return;
    }

    auto *alert = new QMessageBox(window);
    // The texts are the host's and the translator's, never markup.
    alert->setTextFormat(Qt::PlainText);
    alert->setText(messageTitle());
    alert->setInformativeText(message);
    if (auto *informative = alert->findChild<QLabel *>(QStringLiteral("qt_msgbox_informativelabel")))
        informative->setTextFormat(Qt::PlainText);

    // Both answers that do not rate reject the request, so with all three
    // buttons no key or close button answers for the user: a button must be
    // chosen, as on the original alert.
    d->alertButtons.clear();
    QPushButton *rateButton = alert->addButton(rateButtonLabel(), QMessageBox::AcceptRole);
    d->alertButtons.append(rateButton);
    if (showCancelButton())
        d->alertButtons.append(alert->addButton(cancelButtonLabel(), QMessageBox::RejectRole));
    if (showRemindButton())
        d->alertButtons.append(alert->addButton(remindButtonLabel(), QMessageBox::RejectRole));
    alert->setDefaultButton(rateButton);

    d->visibleAlert = alert;
    QPointer<QMessageBox> guardedAlert(alert);
    connect(alert, &QMessageBox::finished, this, [this, guardedAlert] {
        // The index in the order the buttons were added; -1 when the box
        // closed without one.
        qint64 index = -1;
        if (guardedAlert) {
            QAbstractButton *clicked = guardedAlert->clickedButton();
            for (qsizetype i = 0; clicked && i < d->alertButtons.size(); ++i) {
                if (d->alertButtons.at(i) == clicked)
                    index = i;
            }
        }
        didDismissAlert(guardedAlert, index);
    });
    alert->open();

    QPointer<QXRate> self(this);
    if (QXRateDelegate *delegate = this->delegate())
        delegate->rateDidPromptForRating(this);
    if (self)
        d->post(QXRateDidPromptForRatingNotification);
}

bool QXRate::showCancelButton() const
{
    return !cancelButtonLabel().isEmpty();
}

bool QXRate::showRemindButton() const
{
    return !remindButtonLabel().isEmpty();
}

void QXRate::didDismissAlert(QMessageBox *alert, qint64 withButtonAtIndex)
{
    Q_UNUSED(alert);
    // The alert is gone before the answer is recorded.
    QPointer<QXRate> self(this);
    QXDispatch::mainAsync([self, index = withButtonAtIndex] {
        if (!self)
            return;
        const bool cancelButton = self->showCancelButton();
        const bool remindButton = self->showRemindButton();
        if (index == 0)
            self->rate();
        else if (index == 1 && cancelButton)
            self->declineThisVersion();
        else if (remindButton && index == (cancelButton ? 2 : 1))
            self->remindLater();
        if (!self)
            return;
        QXRatePrivate *d = QXRatePrivate::get(self);
        QMessageBox *answered = d->visibleAlert;
        d->visibleAlert = nullptr;
        d->alertButtons.clear();
        if (answered && !answered->isVisible())
            answered->deleteLater();
    });
}

void QXRate::alertDidEnd(QMessageBox *alert, qint64 returnCode, void *contextInfo)
{
    Q_UNUSED(contextInfo);
    didDismissAlert(alert, returnCode - 1000);
}

void QXRate::rate()
{
    setRatedThisVersion(true);
    QPointer<QXRate> self(this);
    if (QXRateDelegate *delegate = this->delegate())
        delegate->rateUserDidAttemptToRateApp(this);
    if (!self)
        return;
    d->post(QXRateUserDidAttemptToRateAppNotification);
    if (!self)
        return;
    if (QXRateDelegate *delegate = this->delegate(); delegate && !delegate->rateShouldOpenAppStore(this))
        return;
    if (self)
        openRatingsPageInAppStore();
}

void QXRate::declineThisVersion()
{
    setDeclinedThisVersion(true);
    QPointer<QXRate> self(this);
    if (QXRateDelegate *delegate = this->delegate())
        delegate->rateUserDidDeclineToRateApp(this);
    if (self)
        d->post(QXRateUserDidDeclineToRateAppNotification);
}

void QXRate::remindLater()
{
    setLastReminded(QDateTime::currentDateTimeUtc());
    QPointer<QXRate> self(this);
    if (QXRateDelegate *delegate = this->delegate())
        delegate->rateUserDidRequestReminderToRateApp(this);
    if (self)
        d->post(QXRateUserDidRequestReminderToRateAppNotification);
}

void QXRate::openRatingsPageInAppStore()
{
    if (d->ratingsURL.isEmpty() && appStoreID() == 0) {
        // Learn the ID first; a lookup for the prompt that is already on its
        // way serves as well. Its success calls this again.
        d->checkingForAppStoreID = true;
        if (!d->checkingForPrompt)
            checkForConnectivityInBackground();
        return;
    }
    QXWorkspace::sharedWorkspace().openURL(ratingsURL());
    openAppPageWhenAppStoreLaunched();
    QPointer<QXRate> self(this);
    if (QXRateDelegate *delegate = this->delegate())
        delegate->rateDidOpenAppStore(this);
    if (self)
        d->post(QXRateDidOpenAppStoreNotification);
}

void QXRate::openAppPageWhenAppStoreLaunched()
{
    const QXWorkspace &workspace = QXWorkspace::sharedWorkspace();
    // Where no store application can exist, there is nothing to wait for.
    if (!workspace.canRunApplication(appStoreApplication))
        return;
    QPointer<QXRate> self(this);
    if (workspace.runningApplications().contains(appStoreApplication)) {
        // Once more, into the store application that is running now.
        QXDispatch::mainAfter(QXRatePrivate::appStoreReopenDelay(), [url = ratingsURL()] {
            QXWorkspace::sharedWorkspace().openURL(url);
        });
        return;
    }
    QXDispatch::mainAfter(0, [self] {
        if (self)
            self->openAppPageWhenAppStoreLaunched();
    });
}

#pragma once

#include <QXFoundation/QXGlobal.h>

#include <atomic>
#include <memory>

/*!
  A flag that the caller of an asynchronous operation raises to call off
  work that has not started yet, and that the work reads when it starts.

  Copies share one flag, so a token can be handed around by value. A
  default-constructed token is null: it stands for "no operation" (an
  operation returns one when it queued nothing); cancelling it does nothing
  and it never reports itself cancelled. Safe to use from any thread.
*/
class QXCancellationToken
{
public:
    QXCancellationToken() = default;

    // A fresh token that is not cancelled.
    static QXCancellationToken create()
    {
        QXCancellationToken token;
        token.m_flag = std::make_shared<std::atomic<bool>>(false);
        return token;
    }

    bool isNull() const { return !m_flag; }
    explicit operator bool() const { return !isNull(); }

    // Raises the flag for every copy; there is no way back.
    void cancel() const
    {
        if (m_flag)
            m_flag->store(true, std::memory_order_release);
    }
    bool isCancelled() const { return m_flag && m_flag->load(std::memory_order_acquire); }

    // Equal when both are null or both are copies of the same token.
    friend bool operator==(const QXCancellationToken &a, const QXCancellationToken &b) { return a.m_flag == b.m_flag; }

private:
    std::shared_ptr<std::atomic<bool>> m_flag;
};

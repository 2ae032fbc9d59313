#pragma once

#include <QString>

// Posts a desktop notification. Failures are swallowed: a notification is never worth an error.
class Notifier {
public:
    virtual ~Notifier() = default;
    virtual void post(const QString &title, const QString &body) = 0;
};

#pragma once

#include "queue/Notifier.h"

// Notifications through org.freedesktop.Notifications on the session bus. Without a bus or a
// notification server nothing is shown and nothing is reported.
class DesktopNotifier : public Notifier {
public:
    void post(const QString &title, const QString &body) override;
};

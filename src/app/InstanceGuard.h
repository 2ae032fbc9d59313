#pragma once

#include <QObject>
#include <QString>

// One Vorlix per desktop session. Starting the program again while it runs (from the launcher,
// with the window closed and no tray to reach it) shows the running instance's window instead
// of starting a second queue and second watchers on the same files.
class InstanceGuard : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.vorlix.vorlix.Instance")
public:
    static inline const QString serviceName = QStringLiteral("app.vorlix.vorlix");
    static inline const QString objectPath = QStringLiteral("/app/vorlix/vorlix");

    using QObject::QObject;

    // Takes the session-wide name. False when another instance holds it; that instance has
    // been asked to show its window. Without a session bus there is nobody to ask: true.
    bool claim();

public Q_SLOTS:
    Q_SCRIPTABLE void Activate();

Q_SIGNALS:
    void activateRequested();
};

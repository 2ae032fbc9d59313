#include "queue/DesktopNotifier.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QStringList>
#include <QVariantMap>

void DesktopNotifier::post(const QString &title, const QString &body)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    QDBusInterface server(QStringLiteral("org.freedesktop.Notifications"),
                          QStringLiteral("/org/freedesktop/Notifications"),
                          QStringLiteral("org.freedesktop.Notifications"), bus);
    if (!server.isValid())
        return;
    // Fire and forget: waiting for the reply would stall the main thread on a slow server.
    const QVariantList args{QStringLiteral("Vorlix"), 0u, QString(), title, body, QStringList(),
                            QVariantMap(), -1};
    server.callWithArgumentList(QDBus::NoBlock, QStringLiteral("Notify"), args);
}

#include "app/InstanceGuard.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

bool InstanceGuard::claim() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return true;
    if (bus.interface()->registerService(serviceName, QDBusConnectionInterface::DontQueueService,
                                         QDBusConnectionInterface::DontAllowReplacement)
            .value() == QDBusConnectionInterface::ServiceRegistered) {
        bus.registerObject(objectPath, this, QDBusConnection::ExportScriptableSlots);
        return true;
    }
    const QDBusMessage call = QDBusMessage::createMethodCall(serviceName, objectPath,
                                                             QStringLiteral("app.vorlix.vorlix.Instance"),
                                                             QStringLiteral("Activate"));
    // A holder that does not answer at all is hung or going away: start anyway rather than
    // leave the user with nothing.
    const QDBusMessage reply = bus.call(call, QDBus::Block, 3000);
    return reply.type() == QDBusMessage::ErrorMessage;
}

void InstanceGuard::Activate() { Q_EMIT activateRequested(); }

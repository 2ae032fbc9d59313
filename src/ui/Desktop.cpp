#include "ui/Desktop.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDesktopServices>
#include <QFileInfo>

namespace Desktop {

void open(const QUrl &location) { QDesktopServices::openUrl(location); }

void openFolder(const QString &path) { open(QUrl::fromLocalFile(path)); }

void reveal(const QUrl &file) {
    const QUrl folder = QUrl::fromLocalFile(QFileInfo(file.toLocalFile()).absolutePath());
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        open(folder);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{file.toString()} << QString();
    // Asynchronous: a file manager that is slow to start must not freeze the window.
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, 5000));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [watcher, folder] {
        if (watcher->isError())
            open(folder);
        watcher->deleteLater();
    });
}

} // namespace Desktop

#include "app/LinkHandOver.h"

#include "queue/ClipboardSource.h"
#include "queue/DownloadQueue.h"

#include <QDBusMessage>
#include <QUrl>

#include <cstdio>

namespace {
const QString interfaceName = QStringLiteral("app.vorlix.vorlix.Links");
}

LinkHandOver::Request LinkHandOver::parse(const QStringList &arguments) {
    Request request;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        if (arguments[i] == clipboardOption)
            request.fromClipboard = true;
        else if (isWebLink(arguments[i]))
            request.links << arguments[i].trimmed();
    }
    return request;
}

bool LinkHandOver::isWebLink(const QString &text) {
    const QUrl url(text.trimmed(), QUrl::StrictMode);
    return url.isValid() && (url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https")) &&
           !url.host().isEmpty();
}

bool LinkHandOver::send(const Request &request, const QString &service, QDBusConnection bus) {
    const auto call = [&](const QString &method, const QVariantList &arguments) {
        QDBusMessage message = QDBusMessage::createMethodCall(service, objectPath, interfaceName, method);
        message.setArguments(arguments);
        // The running instance may be this process in tests: keep its events flowing meanwhile.
        return bus.call(message, QDBus::BlockWithGui, 5000).type() == QDBusMessage::ReplyMessage;
    };
    bool delivered = true;
    if (!request.links.isEmpty())
        delivered = call(QStringLiteral("Open"), {request.links}) && delivered;
    if (request.fromClipboard)
        delivered = call(QStringLiteral("OpenClipboard"), {}) && delivered;
    if (!delivered)
        std::fputs("vorlix: the running instance did not take the links\n", stderr);
    return delivered;
}

LinkHandOver::LinkHandOver(DownloadQueue &queue, ClipboardSource &clipboard, QObject *parent)
    : QObject(parent), m_queue(queue), m_clipboard(clipboard) {}

bool LinkHandOver::listen(QDBusConnection bus) {
    return bus.isConnected() && bus.registerObject(objectPath, this, QDBusConnection::ExportScriptableSlots);
}

void LinkHandOver::handle(const Request &request) {
    Open(request.links);
    if (request.fromClipboard)
        OpenClipboard();
}

void LinkHandOver::Open(const QStringList &links) {
    // Anyone on the session bus can call this: take web links only, as from the command line.
    for (const QString &link : links)
        if (isWebLink(link))
            m_queue.add(link.trimmed());
}

void LinkHandOver::OpenClipboard() {
    if (const std::optional<QString> text = m_clipboard.text())
        m_queue.add(*text);
}

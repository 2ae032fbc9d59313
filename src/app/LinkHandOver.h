#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QStringList>

class ClipboardSource;
class DownloadQueue;

// Links on the command line (the desktop entry's %U, a browser's "Open with", a terminal) and the
// desktop entry's clipboard action. The first instance queues them itself; a later start hands
// them to the running instance over the session bus and ends.
class LinkHandOver : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.vorlix.vorlix.Links")
public:
    static inline const QString objectPath = QStringLiteral("/app/vorlix/vorlix/Links");
    static inline const QString clipboardOption = QStringLiteral("--from-clipboard");

    struct Request {
        QStringList links;
        bool fromClipboard = false;
        bool isEmpty() const { return links.isEmpty() && !fromClipboard; }
    };

    // The web links and the clipboard option among the arguments; element 0 is the program.
    static Request parse(const QStringList &arguments);
    static bool isWebLink(const QString &text);
    // Delivers the request to the instance that holds `service`; false when it did not answer.
    static bool send(const Request &request, const QString &service,
                     QDBusConnection bus = QDBusConnection::sessionBus());

    LinkHandOver(DownloadQueue &queue, ClipboardSource &clipboard, QObject *parent = nullptr);
    // Serves later starts' requests on `bus`.
    bool listen(QDBusConnection bus = QDBusConnection::sessionBus());
    void handle(const Request &request);

public Q_SLOTS:
    Q_SCRIPTABLE void Open(const QStringList &links);
    Q_SCRIPTABLE void OpenClipboard();

private:
    DownloadQueue &m_queue;
    ClipboardSource &m_clipboard;
};

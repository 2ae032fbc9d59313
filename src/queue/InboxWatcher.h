#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

class AppSettings;
class DownloadQueue;

// Queues the links another device appended to a text file in the user's synced folder, then
// empties the file. Polls every 3 s while the watchiCloudInbox setting is on.
class InboxWatcher : public QObject {
    Q_OBJECT
public:
    static constexpr int intervalMs = 3000;
    // A larger file is taken this much at a time (whole lines), leaving the rest for later polls.
    static constexpr qint64 maxInboxBytes = 4 * 1024 * 1024;

    using PathProvider = std::function<QString()>;

    static InboxWatcher &shared();
    // `inboxPath` is asked on every use, so a synced folder that appears later is picked up.
    InboxWatcher(AppSettings &settings, DownloadQueue &queue, PathProvider inboxPath, QObject *parent = nullptr);
    ~InboxWatcher() override;

    // <first existing of ~/Nextcloud, ~/Dropbox, ~/Sync; else ~/Sync>/Vorlix/inbox.txt
    static QString defaultInboxPath();
    // The service that syncs the inbox's folder with a phone: "Nextcloud", "Dropbox" or "Syncthing".
    static QString syncServiceName(const QString &inboxPath);

    void start();
    bool isRunning() const { return m_timer != nullptr; }
    // One poll: queue the file's links and empty it.
    void drain();

private:
    void drainOversized(const QString &path);
    AppSettings &m_settings;
    DownloadQueue &m_queue;
    PathProvider m_inboxPath;
    std::unique_ptr<QTimer> m_timer;
    std::optional<QString> m_uncleared;
    bool m_toldOversized = false;
};

#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <memory>

class AppSettings;
class ClipboardSource;
class DownloadQueue;

// Smart Mode: a link to a supported site copied anywhere is queued at once. Polls the
// clipboard's change counter every 0.6 s; only a change is examined, and only once.
class ClipboardWatcher : public QObject {
    Q_OBJECT
public:
    static constexpr int intervalMs = 600;

    // The desktop's clipboard; defined by the application shell, which owns the GUI side.
    static ClipboardWatcher &shared();
    // Reads the clipboard's counter at once: what is on it now is never queued.
    ClipboardWatcher(ClipboardSource &clipboard, AppSettings &settings, DownloadQueue &queue,
                     QObject *parent = nullptr);
    ~ClipboardWatcher() override;

    static const QStringList &mediaHosts();
    static bool isMediaURL(const QString &text);

    // (Re)starts polling with the current clipboard as already seen.
    void start();
    // Stops polling (Smart Mode switched off).
    void stop();
    bool isRunning() const { return m_timer != nullptr; }
    // One poll.
    void check();

private:
    ClipboardSource &m_clipboard;
    AppSettings &m_settings;
    DownloadQueue &m_queue;
    std::unique_ptr<QTimer> m_timer;
    qint64 m_lastChangeCount = 0;
};

#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QString>

#include <functional>

class QApplication;

// Runs the launch sequence: the dark look, the packaged tools, the engine updater, both link
// watchers and the phone hand-off help file, leaving a dated line in "launch.log" at each stage
// so a start that hangs or crashes can be traced afterwards.
class AppDelegate : public QObject {
    Q_OBJECT
public:
    // The launch steps in the order they run; real() wires the shared services.
    struct Steps {
        std::function<void()> applyDarkAppearance;
        std::function<void()> installBundledTools;
        std::function<void()> startSelfHealer;
        std::function<void()> startClipboardWatcher;
        std::function<void()> startInboxWatcher;
        std::function<void()> requestNotificationPermission;
        static Steps real(QApplication &app);
    };
    using Clock = std::function<QDateTime()>;

    static inline const QString logFileName = QStringLiteral("launch.log");
    static inline const QString helpFileName = QStringLiteral("Phone Hand-off Setup.txt");

    // The application's delegate: the support folder, this executable, the system clock.
    explicit AppDelegate(QApplication &app, QObject *parent = nullptr);
    AppDelegate(QString supportDir, QString executablePath, Steps steps, Clock clock = {}, QObject *parent = nullptr);

    void applicationDidFinishLaunching();
    static bool applicationShouldTerminateAfterLastWindowClosed() { return false; }
    void writeShortcutInstructions() const;

    // A quarantined copy started from the system's temporary read-only mirror.
    bool isTranslocated() const;

    // "2026-11-16 13:10:10 +0000": always in UTC.
    static QString dateDescription(const QDateTime &when);
    // The help file's exact bytes, for the synced inbox file at `inboxPath`.
    static QByteArray shortcutInstructions(const QString &inboxPath);

private:
    void breadcrumb(const QString &message) const;

    QString m_supportDir;
    QString m_executablePath;
    Steps m_steps;
    Clock m_clock;
};

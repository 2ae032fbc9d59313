#pragma once

#include <QCoroTask>
#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

// Checks the application's update feed (an RSS appcast whose items carry sparkle:version) for a
// release newer than this build, and tells the user. One check at a time: the menu entry is
// disabled while canCheckForUpdates is false.
class AppUpdater : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool canCheckForUpdates READ canCheckForUpdates NOTIFY canCheckForUpdatesChanged)
public:
    struct Release {
        QString version;        // compared with ours
        QString displayVersion; // shown to the user
        QUrl link;              // the release page or the download; http(s) only
    };
    struct Outcome {
        enum class Kind { upToDate, updateAvailable, failed };
        Kind kind = Kind::failed;
        std::optional<Release> release;
    };
    using Presenter = std::function<void(const Outcome &)>;

    static inline const QUrl defaultFeed{QStringLiteral("https://vorlix.app/appcast.xml")};
    static constexpr int timeoutMs = 30000;
    static constexpr qint64 maxFeedBytes = 2 * 1024 * 1024;

    explicit AppUpdater(QUrl feed = defaultFeed, QString currentVersion = QStringLiteral(VORLIX_VERSION),
                        QObject *parent = nullptr);

    bool canCheckForUpdates() const { return !m_checking; }
    QString currentVersion() const { return m_currentVersion; }
    // How the outcome reaches the user; message boxes unless replaced.
    void setPresenter(Presenter presenter) { m_present = std::move(presenter); }

    // The menu entry's action: checks in the background, then presents the outcome.
    void checkForUpdates();
    QCoro::Task<Outcome> check();

    // The newest release the feed lists; none when it lists none or is not a feed.
    static std::optional<Release> newestRelease(const QByteArray &feed);
    // Dotted versions, numerically part by part ("1.10" > "1.9", "1.2" == "1.2.0"); a
    // pre-release suffix sorts before the plain version ("2.0b1" < "2.0"). <0, 0 or >0.
    static int compareVersions(const QString &a, const QString &b);
    // The message boxes.
    static void presentWithMessageBox(const Outcome &outcome, const QString &currentVersion);

Q_SIGNALS:
    void canCheckForUpdatesChanged();

private:
    QCoro::Task<> runCheck();
    void setChecking(bool on);

    QUrl m_feed;
    QString m_currentVersion;
    Presenter m_present;
    bool m_checking = false;
};

#pragma once

#include <QCoroTask>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

class AppSettings;

// Keeps the installed downloader current: a daily self-update while the application runs, and
// an immediate one when a download fails in a way an update may cure. Publishes the engine's
// version and the state of updates for the screens. Lives on the main thread.
class SelfHealer : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString engineVersion READ engineVersion NOTIFY engineVersionChanged)
    Q_PROPERTY(bool isUpdating READ isUpdating NOTIFY isUpdatingChanged)
    // Empty while there has been no update.
    Q_PROPERTY(QString lastUpdateResult READ lastUpdateResultText NOTIFY lastUpdateResultChanged)

public:
    using Clock = std::function<double()>;       // seconds since 1970-01-01 UTC
    using ToolLocator = std::function<QString()>; // the downloader to run

    static constexpr double versionTimeoutSeconds = 30;
    static constexpr double updateTimeoutSeconds = 180;
    static constexpr double updateIntervalSeconds = 86400;
    static constexpr int checkPeriodMs = 6 * 60 * 60 * 1000;

    // The application's instance: the shared settings, the real downloader, the system clock.
    static SelfHealer &shared();

    SelfHealer(AppSettings &settings, ToolLocator tool, Clock clock, QObject *parent = nullptr);
    ~SelfHealer() override;

    QString engineVersion() const { return m_engineVersion; }
    bool isUpdating() const { return m_isUpdating; }
    std::optional<QString> lastUpdateResult() const { return m_lastUpdateResult; }
    QString lastUpdateResultText() const { return m_lastUpdateResult.value_or(QString()); }
    QTimer *dailyTimer() const { return m_dailyTimer.get(); }

    // Once at start-up: the version query, a first daily check, then a check every six hours.
    void start();

    QCoro::Task<> refreshVersion();
    // True only when the downloader replaced itself with a newer version. Returns false at once
    // while another update runs.
    QCoro::Task<bool> updateEngine();
    // Updates when more than a day has passed since the last attempt.
    QCoro::Task<> dailyCheck();

Q_SIGNALS:
    void engineVersionChanged();
    void isUpdatingChanged();
    void lastUpdateResultChanged();

private:
    void setEngineVersion(const QString &version);
    void setUpdating(bool on);
    void setLastUpdateResult(const QString &result);
    void launchDailyCheck();

    AppSettings &m_settings;
    ToolLocator m_tool;
    Clock m_clock;
    QString m_engineVersion = QStringLiteral("\u2026");
    bool m_isUpdating = false;
    std::optional<QString> m_lastUpdateResult;
    std::unique_ptr<QTimer> m_dailyTimer;
};

#include "engine/SelfHealer.h"

#include "core/AppSettings.h"
#include "engine/EngineBytecode.h"
#include "engine/Tools.h"

#include <QDateTime>
#include <QPointer>

namespace {

const QString notFound = QStringLiteral("not found");

// Nobody awaits these, so nothing may escape them.
QCoro::Task<> detached(QCoro::Task<> task) {
    try {
        co_await std::move(task);
    } catch (...) {
    }
}

} // namespace

SelfHealer &SelfHealer::shared() {
    // Alive for the whole process, like the settings it writes to.
    static SelfHealer *instance = new SelfHealer(
        AppSettings::shared(), [] { return Tools::ytDlpURL(); },
        [] { return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0; });
    return *instance;
}

SelfHealer::SelfHealer(AppSettings &settings, ToolLocator tool, Clock clock, QObject *parent)
    : QObject(parent), m_settings(settings), m_tool(std::move(tool)), m_clock(std::move(clock)) {}

SelfHealer::~SelfHealer() = default;

void SelfHealer::start() {
    detached(refreshVersion());
    launchDailyCheck();

    auto timer = std::make_unique<QTimer>();
    timer->setInterval(checkPeriodMs);
    timer->setSingleShot(false);
    connect(timer.get(), &QTimer::timeout, this, &SelfHealer::launchDailyCheck);
    timer->start();
    m_dailyTimer = std::move(timer);
}

void SelfHealer::launchDailyCheck() { detached(dailyCheck()); }

QCoro::Task<> SelfHealer::dailyCheck() {
    const double elapsed = m_clock() - m_settings.lastEngineUpdateCheck();
    if (elapsed > updateIntervalSeconds)
        co_await updateEngine();
}

QCoro::Task<> SelfHealer::refreshVersion() {
    QPointer<SelfHealer> self(this);
    const QString tool = m_tool();
    const QStringList args{QStringLiteral("--version")};
    QString version = notFound;
    try {
        const Tools::RunResult result = co_await Tools::run(tool, args, versionTimeoutSeconds);
        if (result.status == 0)
            version = result.stdoutText.trimmed();
    } catch (const Tools::LaunchError &) {
    }
    if (self)
        setEngineVersion(version);
}

QCoro::Task<bool> SelfHealer::updateEngine() {
    if (m_isUpdating)
        co_return false;
    QPointer<SelfHealer> self(this);
    setUpdating(true);
    // Written first, so that a failed or hung attempt also counts as today's.
    m_settings.setLastEngineUpdateCheck(m_clock());

    const QString tool = m_tool();
    const QStringList args{QStringLiteral("-U")};
    std::optional<Tools::RunResult> result;
    try {
        result = co_await Tools::run(tool, args, updateTimeoutSeconds);
    } catch (...) {
    }
    if (!self)
        co_return false;
    if (!result) {
        setLastUpdateResult(QStringLiteral("Update check failed"));
        setUpdating(false);
        co_return false;
    }

    // The exit status says little: yt-dlp reports most outcomes only in words.
    const QString output = result->stdoutText + result->stderrText;
    bool updated = false;
    if (output.contains(QLatin1String("Updated yt-dlp to"))) {
        setLastUpdateResult(QStringLiteral("Engine updated"));
        updated = true;
        // The release zip has no bytecode; without it each later start costs a second. A
        // failure is logged and leaves the updated zip working as it is.
        co_await EngineBytecode::add(tool);
        if (!self)
            co_return false;
    } else if (output.contains(QLatin1String("is up to date"))) {
        setLastUpdateResult(QStringLiteral("Engine up to date"));
    } else {
        setLastUpdateResult(QStringLiteral("Update check finished"));
    }

    co_await refreshVersion();
    if (!self)
        co_return false;
    setUpdating(false);
    co_return updated;
}

void SelfHealer::setEngineVersion(const QString &version) {
    if (m_engineVersion == version)
        return;
    m_engineVersion = version;
    Q_EMIT engineVersionChanged();
}

void SelfHealer::setUpdating(bool on) {
    if (m_isUpdating == on)
        return;
    m_isUpdating = on;
    Q_EMIT isUpdatingChanged();
}

void SelfHealer::setLastUpdateResult(const QString &result) {
    if (m_lastUpdateResult == result)
        return;
    m_lastUpdateResult = result;
    Q_EMIT lastUpdateResultChanged();
}

#include "core/AppSettings.h"

#include <QDir>
#include <QStandardPaths>

namespace {
const QString kDownloadFolder = QStringLiteral("downloadFolder");
const QString kDefaultMode = QStringLiteral("defaultMode");
const QString kAudioFormat = QStringLiteral("audioFormat");
const QString kPreferMP4 = QStringLiteral("preferMP4");
const QString kSmartMode = QStringLiteral("smartMode");
const QString kWatchInbox = QStringLiteral("watchiCloudInbox");
const QString kMaxConcurrent = QStringLiteral("maxConcurrent");
const QString kWhisperModel = QStringLiteral("whisperModel");
const QString kLastEngineCheck = QStringLiteral("lastEngineUpdateCheck");
const QString kOrganize = QStringLiteral("organizeDownloads");
const QString kCookies = QStringLiteral("useBrowserCookies");
const QString kAutoAnalyze = QStringLiteral("autoAnalyzeAudio");
const QString kMomentsCount = QStringLiteral("momentsCount");
} // namespace

AppSettings::AppSettings()
    : AppSettings(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                  QStringLiteral("/Vorlix/Vorlix.conf")) {}

AppSettings::AppSettings(const QString &iniPath)
    : m_store(std::make_unique<QSettings>(iniPath, QSettings::IniFormat)),
      m_defaultDownloadFolder(QDir::homePath() + QStringLiteral("/Downloads/Vorlix")) {}

AppSettings::~AppSettings() = default;

AppSettings &AppSettings::shared() {
    static AppSettings *instance = new AppSettings(); // lives for the whole process
    return *instance;
}

QVariant AppSettings::read(const QString &key, const QVariant &fallback) const {
    return m_store->value(key, fallback);
}

void AppSettings::write(const QString &key, const QVariant &value) {
    m_store->setValue(key, value);
    m_store->sync(); // on disk at once: another process or a fresh object reads the same
    Q_EMIT changed(key);
}

QString AppSettings::downloadFolderPath() const { return read(kDownloadFolder, m_defaultDownloadFolder).toString(); }
void AppSettings::setDownloadFolderPath(const QString &path) { write(kDownloadFolder, path); }
QString AppSettings::defaultModeRaw() const { return read(kDefaultMode, QStringLiteral("bestVideoAudio")).toString(); }
void AppSettings::setDefaultModeRaw(const QString &raw) { write(kDefaultMode, raw); }
QString AppSettings::audioFormatRaw() const { return read(kAudioFormat, QStringLiteral("mp3")).toString(); }
void AppSettings::setAudioFormatRaw(const QString &raw) { write(kAudioFormat, raw); }
bool AppSettings::preferMP4() const { return read(kPreferMP4, true).toBool(); }
void AppSettings::setPreferMP4(bool on) { write(kPreferMP4, on); }
bool AppSettings::smartMode() const { return read(kSmartMode, true).toBool(); }
void AppSettings::setSmartMode(bool on) { write(kSmartMode, on); }
bool AppSettings::watchiCloudInbox() const { return read(kWatchInbox, true).toBool(); }
void AppSettings::setWatchiCloudInbox(bool on) { write(kWatchInbox, on); }
int AppSettings::maxConcurrent() const { return read(kMaxConcurrent, 3).toInt(); }
void AppSettings::setMaxConcurrent(int n) { write(kMaxConcurrent, n); }
QString AppSettings::whisperModel() const { return read(kWhisperModel, QStringLiteral("base")).toString(); }
void AppSettings::setWhisperModel(const QString &name) { write(kWhisperModel, name); }
double AppSettings::lastEngineUpdateCheck() const { return read(kLastEngineCheck, 0.0).toDouble(); }
void AppSettings::setLastEngineUpdateCheck(double s) { write(kLastEngineCheck, s); }
bool AppSettings::organizeDownloads() const { return read(kOrganize, true).toBool(); }
void AppSettings::setOrganizeDownloads(bool on) { write(kOrganize, on); }
bool AppSettings::useBrowserCookies() const { return read(kCookies, false).toBool(); }
void AppSettings::setUseBrowserCookies(bool on) { write(kCookies, on); }
bool AppSettings::autoAnalyzeAudio() const { return read(kAutoAnalyze, false).toBool(); }
void AppSettings::setAutoAnalyzeAudio(bool on) { write(kAutoAnalyze, on); }
int AppSettings::momentsCount() const { return read(kMomentsCount, 8).toInt(); }
void AppSettings::setMomentsCount(int n) { write(kMomentsCount, n); }

QString AppSettings::downloadFolder() const {
    const QString path = downloadFolderPath();
    QDir().mkpath(path); // a failure surfaces later, when a tool writes there
    return path;
}

QString AppSettings::appSupportDir() {
    const QString path =
        QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Vorlix");
    QDir().mkpath(path);
    return path;
}

QString AppSettings::fileName() const { return m_store->fileName(); }

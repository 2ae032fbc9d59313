#pragma once

#include <QObject>
#include <QSettings>
#include <QString>

#include <memory>

// The user's preferences. Every getter reads the store and every setter writes it at once,
// so a change made anywhere is what the next reader sees; nothing is cached here.
class AppSettings : public QObject {
    Q_OBJECT
public:
    // The per-user store (~/.config/Vorlix/Vorlix.conf).
    AppSettings();
    // A store on a given INI file, for tests.
    explicit AppSettings(const QString &iniPath);
    ~AppSettings() override;

    static AppSettings &shared();

    QString downloadFolderPath() const;
    void setDownloadFolderPath(const QString &path);
    QString defaultModeRaw() const;
    void setDefaultModeRaw(const QString &raw);
    QString audioFormatRaw() const;
    void setAudioFormatRaw(const QString &raw);
    bool preferMP4() const;
    void setPreferMP4(bool on);
    bool smartMode() const;
    void setSmartMode(bool on);
    bool watchiCloudInbox() const;
    void setWatchiCloudInbox(bool on);
    int maxConcurrent() const;
    void setMaxConcurrent(int n);
    QString whisperModel() const;
    void setWhisperModel(const QString &name);
    double lastEngineUpdateCheck() const;
    void setLastEngineUpdateCheck(double secondsSince1970);
    bool organizeDownloads() const;
    void setOrganizeDownloads(bool on);
    bool useBrowserCookies() const;
    void setUseBrowserCookies(bool on);
    bool autoAnalyzeAudio() const;
    void setAutoAnalyzeAudio(bool on);

    // Owned by the Moments review screen; lives in the same store.
    int momentsCount() const;
    void setMomentsCount(int n);

    // The download folder, created (with parents) on every access; failures are ignored.
    QString downloadFolder() const;
    // ~/.local/share/Vorlix, created on every access; failures are ignored.
    static QString appSupportDir();

    // The store's file, for diagnostics and tests.
    QString fileName() const;

Q_SIGNALS:
    // Emitted after a setter wrote `key`.
    void changed(const QString &key);

private:
    QVariant read(const QString &key, const QVariant &fallback) const;
    void write(const QString &key, const QVariant &value);

    std::unique_ptr<QSettings> m_store;
    QString m_defaultDownloadFolder;
};

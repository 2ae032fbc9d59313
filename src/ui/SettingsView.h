#pragma once

#include <QWidget>

#include <functional>

class AppSettings;
class ElidedLabel;
class EmberProgressBar;
class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QToolButton;
class SelfHealer;
class Transcriber;

// The settings window's content: one grouped form in four sections. Every control writes its
// preference the moment it changes; there is nothing to save or cancel.
class SettingsView : public QWidget {
    Q_OBJECT
public:
    static constexpr int minConcurrent = 1;
    static constexpr int maxConcurrent = 6;
    static constexpr QSize formSize{520, 560};
    static inline const QString shortcutHelpFileName = QStringLiteral("Phone Hand-off Setup.txt");

    // Answers the chosen folder, or an empty string when the user cancelled.
    using FolderChooser = std::function<QString(QWidget *parent, const QString &startFolder)>;

    explicit SettingsView(QWidget *parent = nullptr); // the shared services
    SettingsView(AppSettings &settings, SelfHealer &healer, Transcriber &transcriber, QWidget *parent = nullptr);
    ~SettingsView() override;

    void setFolderChooser(FolderChooser chooser) { m_chooseFolder = std::move(chooser); }

    // The "Choose…" button's action.
    void chooseFolder();
    // The "Show Instructions" button's action.
    void showInstructions();
    // The "Update Engine Now" button's action.
    void updateEngineNow();

private:
    void build();
    QWidget *buildDownloads();
    QWidget *buildCapture();
    QWidget *buildTranscription();
    QWidget *buildEngine();
    void refreshSettings();
    void refreshModelDownload();
    void refreshEngine();
    void stepConcurrent(int delta);

    AppSettings &m_settings;
    SelfHealer &m_healer;
    Transcriber &m_transcriber;
    FolderChooser m_chooseFolder;

    ElidedLabel *m_folderPath = nullptr;
    QComboBox *m_defaultMode = nullptr;
    QComboBox *m_audioFormat = nullptr;
    QCheckBox *m_preferMP4 = nullptr;
    QCheckBox *m_organize = nullptr;
    QCheckBox *m_autoAnalyze = nullptr;
    QLabel *m_concurrentLabel = nullptr;
    QToolButton *m_concurrentDown = nullptr;
    QToolButton *m_concurrentUp = nullptr;
    QCheckBox *m_smartMode = nullptr;
    QCheckBox *m_watchInbox = nullptr;
    QCheckBox *m_cookies = nullptr;
    bool m_cookieBrowserFound = false;
    QComboBox *m_whisperModel = nullptr;
    QWidget *m_modelDownloadRow = nullptr;
    EmberProgressBar *m_modelProgress = nullptr;
    QLabel *m_engineVersion = nullptr;
    QWidget *m_lastCheckRow = nullptr;
    QLabel *m_lastCheck = nullptr;
    QPushButton *m_updateButton = nullptr;
};

#pragma once

#include <QPointer>
#include <QSet>
#include <QUuid>
#include <QWidget>

#include <array>

class AppSettings;
class ClipboardSource;
class ClipboardWatcher;
class DownloadQueue;
class ElidedLabel;
class MomentsView;
class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QStackedWidget;
class QToolButton;
class QueueList;
class SelfHealer;

// The main window's content: the header with the link bar, the tab bar, the selected screen
// and the status bar. Links can be typed, pasted, dropped anywhere on the window, or given as
// a whole list (batch sheet) or with a clip range (options sheet).
class ContentView : public QWidget {
    Q_OBJECT
public:
    enum class Tab { queue, search, images, find, history };
    static constexpr std::array<Tab, 5> allTabs{Tab::queue, Tab::search, Tab::images, Tab::find, Tab::history};
    static QString tabLabel(Tab tab);
    static constexpr QSize minimumWindowSize{760, 500};

    // The application's shared queue, settings, engine updater and clipboard.
    explicit ContentView(QWidget *parent = nullptr);
    ContentView(DownloadQueue &queue, AppSettings &settings, SelfHealer &healer, ClipboardWatcher &watcher,
                ClipboardSource &clipboard, QWidget *parent = nullptr);
    ~ContentView() override;

    // Queues every link the link bar holds; text without links stays where it is.
    void addFromField();
    void showBatch();
    void showOptions();

    Tab tab() const { return m_tab; }
    void setTab(Tab tab);
    int activeCount() const;
    int queuedCount() const;

    QLineEdit *linkBar() const { return m_linkBar; }
    QueueList *queueList() const { return m_queueList; }
    // The open Smart Moments sheet, if any.
    MomentsView *momentsView() const;

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    QWidget *buildHeader();
    QWidget *buildTabBar();
    QWidget *buildEmptyState();
    QWidget *buildStatusBar();
    void queueChanged();
    void refreshCounts();
    void settingsChanged(const QString &key);
    void refreshEngine();
    void refreshLastMessage();
    void refreshModeMenu();
    void refreshLinkBar();
    void showMomentsRequest();

    DownloadQueue &m_queue;
    AppSettings &m_settings;
    SelfHealer &m_healer;
    ClipboardWatcher &m_watcher;
    ClipboardSource &m_clipboard;
    Tab m_tab = Tab::queue;
    QSet<QUuid> m_watched;
    bool m_queueChangePending = false;

    QLineEdit *m_linkBar = nullptr;
    QPushButton *m_modeMenu = nullptr;
    QPushButton *m_download = nullptr;
    std::array<QPushButton *, 5> m_tabButtons{};
    QLabel *m_queueCount = nullptr;
    QStackedWidget *m_pages = nullptr;
    QStackedWidget *m_queuePage = nullptr;
    QWidget *m_emptyState = nullptr;
    QWidget *m_smartIndicator = nullptr;
    QueueList *m_queueList = nullptr;
    QCheckBox *m_smartMode = nullptr;
    QLabel *m_engine = nullptr;
    ElidedLabel *m_lastMessage = nullptr;
    QPushButton *m_clearFinished = nullptr;
    QPointer<MomentsView> m_momentsView;
};

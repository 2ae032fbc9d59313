#pragma once

#include "app/AppDelegate.h"
#include "app/AppUpdater.h"
#include "app/SystemClipboard.h"
#include "app/TrayMenu.h"

#include <QObject>
#include <QPointer>
#include <QSize>

#include <memory>

class QAction;
class QApplication;
class QDialog;
class QMainWindow;
class QMenu;
class QSystemTrayIcon;
class QWidget;

// The application: the main window, the settings window, the tray item with its menu and the
// update checker. It keeps running when the main window is closed; only "Quit Vorlix" ends it.
class VorlixApp : public QObject {
    Q_OBJECT
public:
    static inline const QString mainWindowName = QStringLiteral("main");
    static constexpr QSize defaultSize{860, 560};
    static constexpr QSize minimumSize{760, 500};
    // How long quitting waits for cancelled downloads to wind down.
    static constexpr int quitGraceMs = 3000;

    // Runs the launch sequence, then shows the main window.
    explicit VorlixApp(QApplication &app);
    ~VorlixApp() override;

    int exec();

    QMainWindow *mainWindow() const { return m_window.get(); }

    // The main window around `content`, not yet shown.
    static std::unique_ptr<QMainWindow> makeMainWindow(QWidget *content);
    // Brings the first top-level window whose name contains "main" to the front; none is fine.
    static void showMainWindow();
    // "Check for Updates…", enabled only while the updater can start a check.
    static QAction *addCheckForUpdates(QMenu *menu, AppUpdater &updater);

    void openSettings();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildMenuBar();
    void buildTray();
    void stopDownloadsOnQuit();
    void quitOnTerminationSignals();

    QApplication &m_app;
    AppDelegate m_delegate;
    AppUpdater m_updater;
    SystemClipboard m_clipboard;
    std::unique_ptr<QMainWindow> m_window;
    std::unique_ptr<TrayMenu> m_trayMenu;
    std::unique_ptr<QSystemTrayIcon> m_tray;
    QPointer<QDialog> m_settings;
    bool m_historyRequested = false;
};

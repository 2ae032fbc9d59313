#include "app/VorlixApp.h"

#include "core/AppSettings.h"
#include "engine/ChildRegistry.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "ui/Brand.h"
#include "ui/ContentView.h"
#include "ui/PinchMark.h"
#include "ui/SettingsView.h"

#include <QAction>
#include <QApplication>
#include <QDesktopServices>
#include <QDialog>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QSocketNotifier>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>
#include <QWindow>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Signal handlers may only write to a descriptor; the event loop reads the other end.
int signalSocket[2] = {-1, -1};

void onTerminationSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalSocket[1], &byte, 1);
}

} // namespace

VorlixApp::VorlixApp(QApplication &app) : m_app(app), m_delegate(app) {
    QApplication::setApplicationName(QStringLiteral("Vorlix"));
    QApplication::setApplicationVersion(QStringLiteral(VORLIX_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral("app.vorlix.vorlix"));
    QApplication::setQuitOnLastWindowClosed(AppDelegate::applicationShouldTerminateAfterLastWindowClosed());

    m_delegate.applicationDidFinishLaunching();
    QApplication::setWindowIcon(PinchMark::icon(Brand::bone(), true));

    m_window = makeMainWindow(new ContentView);
    buildMenuBar();
    buildTray();
    connect(&app, &QCoreApplication::aboutToQuit, this, &VorlixApp::stopDownloadsOnQuit);
    quitOnTerminationSignals();
    m_window->show();
    // A long history is read once the window is on screen; only the History tab waits for it.
    m_window->windowHandle()->installEventFilter(this);
}

bool VorlixApp::eventFilter(QObject *watched, QEvent *event) {
    // The expose is handled, and the window drawn, before the timer fires.
    if (event->type() == QEvent::Expose && !m_historyRequested && m_window->windowHandle()->isExposed()) {
        m_historyRequested = true;
        watched->removeEventFilter(this);
        QTimer::singleShot(0, this, [] { HistoryStore::shared().startLoading(); });
    }
    return QObject::eventFilter(watched, event);
}

VorlixApp::~VorlixApp() {
    if (m_tray)
        m_tray->hide();
    delete m_settings.data();
}

int VorlixApp::exec() { return m_app.exec(); }

std::unique_ptr<QMainWindow> VorlixApp::makeMainWindow(QWidget *content) {
    auto window = std::make_unique<QMainWindow>();
    window->setObjectName(mainWindowName);
    window->setWindowTitle(QStringLiteral("Vorlix"));
    window->setMinimumSize(minimumSize);
    window->resize(defaultSize);
    window->setCentralWidget(content);
    return window;
}

void VorlixApp::showMainWindow() {
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (!widget->isWindow() || !widget->objectName().contains(mainWindowName))
            continue;
        if (widget->isMinimized())
            widget->showNormal();
        else
            widget->show();
        widget->raise();
        widget->activateWindow();
        return;
    }
}

QAction *VorlixApp::addCheckForUpdates(QMenu *menu, AppUpdater &updater) {
    QAction *action = menu->addAction(QStringLiteral("Check for Updates\u2026"), &updater, &AppUpdater::checkForUpdates);
    action->setEnabled(updater.canCheckForUpdates());
    connect(&updater, &AppUpdater::canCheckForUpdatesChanged, action,
            [action, &updater] { action->setEnabled(updater.canCheckForUpdates()); });
    return action;
}

void VorlixApp::openSettings() {
    if (!m_settings) {
        auto *dialog = new QDialog(nullptr, Qt::Window);
        dialog->setObjectName(QStringLiteral("settings"));
        dialog->setWindowTitle(QStringLiteral("Settings"));
        auto *layout = new QVBoxLayout(dialog);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(new SettingsView(dialog));
        dialog->resize(SettingsView::formSize);
        m_settings = dialog;
    }
    m_settings->show();
    m_settings->raise();
    m_settings->activateWindow();
}

void VorlixApp::buildMenuBar() {
    // One continuous surface with the window's header below it.
    QMenuBar *bar = m_window->menuBar();
    bar->setAutoFillBackground(true);
    QPalette tone = bar->palette();
    tone.setColor(QPalette::Window, Brand::surface());
    tone.setColor(QPalette::Button, Brand::surface());
    bar->setPalette(tone);
    QMenu *menu = bar->addMenu(QStringLiteral("Vorlix"));
    menu->addAction(QStringLiteral("About Vorlix"), m_window.get(), [this] {
        QMessageBox::about(m_window.get(), QStringLiteral("About Vorlix"),
                           QStringLiteral("Vorlix ") + QStringLiteral(VORLIX_VERSION));
    });
    addCheckForUpdates(menu, m_updater);
    menu->addSeparator();
    QAction *settings = menu->addAction(QStringLiteral("Settings\u2026"), this, &VorlixApp::openSettings);
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    menu->addSeparator();
    QAction *close = menu->addAction(QStringLiteral("Close Window"), m_window.get(), &QWidget::close);
    close->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_W));
    QAction *quit = menu->addAction(QStringLiteral("Quit Vorlix"), this, [] { QCoreApplication::quit(); });
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
}

void VorlixApp::buildTray() {
    TrayMenu::Actions actions;
    actions.openWindow = &VorlixApp::showMainWindow;
    actions.openDownloadFolder = [] {
        QDesktopServices::openUrl(QUrl::fromLocalFile(AppSettings::shared().downloadFolder()));
    };
    actions.quit = [] { QCoreApplication::quit(); };
    m_trayMenu = std::make_unique<TrayMenu>(DownloadQueue::shared(), m_clipboard, std::move(actions));

    // Without a tray the window is the way in; Qt adds the icon if a tray shows up later.
    m_tray = std::make_unique<QSystemTrayIcon>(m_trayMenu->icon());
    m_tray->setToolTip(QStringLiteral("Vorlix"));
    m_tray->setContextMenu(m_trayMenu->menu());
    connect(m_trayMenu.get(), &TrayMenu::iconChanged, m_tray.get(), [this] { m_tray->setIcon(m_trayMenu->icon()); });
    connect(m_tray.get(), &QSystemTrayIcon::activated, this, [](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger)
            showMainWindow();
    });
    m_tray->show();
}

void VorlixApp::stopDownloadsOnQuit() {
    DownloadQueue &queue = DownloadQueue::shared();
    const QList<DownloadItemPtr> items = queue.items();
    for (const DownloadItemPtr &item : items) {
        const ItemState &state = item->state();
        if (state.is(ItemState::Kind::probing) || state.is(ItemState::Kind::downloading) ||
            state.is(ItemState::Kind::processing))
            queue.cancel(item);
    }
    // Every child runs in its own process group; without this a probe, render or transcription
    // would outlive us. The wait lets their runners reap them and clean up after them.
    ChildRegistry::endAll(quitGraceMs);
}

void VorlixApp::quitOnTerminationSignals() {
    // Logging out sends SIGTERM: quit the ordinary way so running downloads are stopped too.
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalSocket) != 0)
        return;
    auto *notifier = new QSocketNotifier(signalSocket[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [] {
        char byte = 0;
        [[maybe_unused]] const ssize_t got = ::read(signalSocket[0], &byte, 1);
        QCoreApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaction(signal, &action, nullptr);
}

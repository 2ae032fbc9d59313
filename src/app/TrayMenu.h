#pragma once

#include <QIcon>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class ClipboardSource;
class DownloadQueue;
class QAction;
class QMenu;

// The tray item's menu and icon. Both follow the queue: the status line and the filled icon
// appear while downloads are active, and change as soon as any item changes state.
class TrayMenu : public QObject {
    Q_OBJECT
public:
    // What the window-level entries do; the application wires the real ones.
    struct Actions {
        std::function<void()> openWindow;
        std::function<void()> openDownloadFolder;
        std::function<void()> quit;
    };

    TrayMenu(DownloadQueue &queue, ClipboardSource &clipboard, Actions actions, QObject *parent = nullptr);
    ~TrayMenu() override;

    QMenu *menu() const { return m_menu.get(); }
    // Items that are probing, downloading or processing; waiting and finished ones do not count.
    int activeCount() const;
    // "1 download in progress", "3 downloads in progress".
    static QString statusText(int active);
    // "arrow.down.circle.fill" while anything is active, else "arrow.down.circle".
    QString iconSymbol() const { return m_symbol; }
    QIcon icon() const;

    // Queues the clipboard's text, if it holds any.
    void downloadFromClipboard();

Q_SIGNALS:
    void iconChanged();

private:
    void observeItems();
    void refresh();

    DownloadQueue &m_queue;
    ClipboardSource &m_clipboard;
    Actions m_actions;
    std::unique_ptr<QMenu> m_menu;
    QAction *m_status = nullptr;
    QString m_symbol;
};

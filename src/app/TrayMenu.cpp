#include "app/TrayMenu.h"

#include "queue/ClipboardSource.h"
#include "queue/DownloadQueue.h"
#include "ui/Brand.h"
#include "ui/Symbols.h"

#include <QAction>
#include <QMenu>

namespace {
const QString activeSymbol = QStringLiteral("arrow.down.circle.fill");
const QString idleSymbol = QStringLiteral("arrow.down.circle");
} // namespace

TrayMenu::TrayMenu(DownloadQueue &queue, ClipboardSource &clipboard, Actions actions, QObject *parent)
    : QObject(parent), m_queue(queue), m_clipboard(clipboard), m_actions(std::move(actions)),
      m_menu(std::make_unique<QMenu>()) {
    m_menu->setTitle(QStringLiteral("Vorlix"));
    QAction *paste = m_menu->addAction(QStringLiteral("Download Link from Clipboard"), this,
                                       &TrayMenu::downloadFromClipboard);
    paste->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_V));
    m_status = m_menu->addAction(QString());
    m_status->setEnabled(false);
    m_menu->addSeparator();
    m_menu->addAction(QStringLiteral("Open Vorlix"), this, [this] {
        if (m_actions.openWindow)
            m_actions.openWindow();
    });
    m_menu->addAction(QStringLiteral("Open Download Folder"), this, [this] {
        if (m_actions.openDownloadFolder)
            m_actions.openDownloadFolder();
    });
    m_menu->addSeparator();
    m_menu->addAction(QStringLiteral("Quit Vorlix"), this, [this] {
        if (m_actions.quit)
            m_actions.quit();
    });

    connect(&m_queue, &DownloadQueue::itemsChanged, this, &TrayMenu::observeItems);
    observeItems();
}

TrayMenu::~TrayMenu() = default;

int TrayMenu::activeCount() const {
    int count = 0;
    for (const DownloadItemPtr &item : m_queue.items()) {
        const ItemState &state = item->state();
        if (state.is(ItemState::Kind::probing) || state.is(ItemState::Kind::downloading) ||
            state.is(ItemState::Kind::processing))
            ++count;
    }
    return count;
}

QString TrayMenu::statusText(int active) {
    return QString::number(active) + QStringLiteral(" download") + (active == 1 ? QString() : QStringLiteral("s")) +
           QStringLiteral(" in progress");
}

QIcon TrayMenu::icon() const {
    // Always the drawn glyphs: an icon theme may use one picture for both states.
    const QColor tint = m_symbol == activeSymbol ? Brand::ember() : Brand::bone();
    QIcon icon;
    for (int size : {16, 22, 24, 32, 48, 64})
        icon.addPixmap(Symbols::drawn(m_symbol, tint, size));
    return icon;
}

void TrayMenu::downloadFromClipboard() {
    const std::optional<QString> text = m_clipboard.text();
    if (text)
        m_queue.add(*text);
}

void TrayMenu::observeItems() {
    // Removed items drop their connections when they are destroyed; the unique connection
    // keeps a surviving item from being connected twice.
    for (const DownloadItemPtr &item : m_queue.items())
        connect(item.get(), &DownloadItem::changed, this, &TrayMenu::refresh, Qt::UniqueConnection);
    refresh();
}

void TrayMenu::refresh() {
    const int active = activeCount();
    m_status->setVisible(active > 0);
    if (active > 0)
        m_status->setText(statusText(active));
    const QString symbol = active > 0 ? activeSymbol : idleSymbol;
    if (symbol != m_symbol) {
        m_symbol = symbol;
        Q_EMIT iconChanged();
    }
}

#include "app/SystemClipboard.h"

#include "core/AppSettings.h"
#include "queue/ClipboardWatcher.h"
#include "queue/DownloadQueue.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

SystemClipboard::SystemClipboard(QObject *parent) : QObject(parent)
{
    // A link Vorlix itself copies (a history row, "Copy Link") is for pasting elsewhere, not
    // for Smart Mode to download again: only changes made by other programs count.
    connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, this, [this] {
        if (!QGuiApplication::clipboard()->ownsClipboard())
            ++m_changes;
    });
}

std::optional<QString> SystemClipboard::text() const
{
    const QMimeData *data = QGuiApplication::clipboard()->mimeData(QClipboard::Clipboard);
    if (!data || !data->hasText())
        return std::nullopt;
    return data->text();
}

SystemClipboard &SystemClipboard::shared()
{
    static SystemClipboard *clipboard = new SystemClipboard(QGuiApplication::instance());
    return *clipboard;
}

// The shared watcher lives with the GUI because only the GUI has a clipboard.
ClipboardWatcher &ClipboardWatcher::shared()
{
    static ClipboardWatcher *watcher =
        new ClipboardWatcher(SystemClipboard::shared(), AppSettings::shared(), DownloadQueue::shared());
    return *watcher;
}

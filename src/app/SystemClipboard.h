#pragma once

#include "queue/ClipboardSource.h"

#include <QObject>

// The desktop clipboard as the watcher sees it. X11 and Wayland have no change counter, so
// one is kept here by counting dataChanged notifications.
class SystemClipboard : public QObject, public ClipboardSource {
    Q_OBJECT
public:
    explicit SystemClipboard(QObject *parent = nullptr);
    // The one the application's watcher and screens read.
    static SystemClipboard &shared();
    qint64 changeCount() const override { return m_changes; }
    std::optional<QString> text() const override;

private:
    qint64 m_changes = 0;
};

#pragma once

#include "core/DownloadItem.h"

#include <QElapsedTimer>
#include <QPixmap>
#include <QTimer>
#include <QWidget>

class ElidedLabel;
class EmberProgressBar;
class QHBoxLayout;
class QLabel;
class QMenu;
class StatusChip;

// One queue row: thumbnail, title, chips, a status line for the item's state and the buttons
// that apply to it. Redraws whenever the item changes. Actions that change the queue are
// announced as signals; the main window hands them to the queue.
class ItemRow : public QWidget {
    Q_OBJECT
public:
    static constexpr QSize thumbnailSize{96, 54};
    static constexpr int progressMaxWidth = 280;
    // Changes within one state (progress, speed, chips) redraw the row at most this often.
    static constexpr int minRefreshMs = 125;

    explicit ItemRow(DownloadItemPtr item, QWidget *parent = nullptr);
    ~ItemRow() override;

    const DownloadItemPtr &item() const { return m_item; }
    // Shows another item in this row; the queue list recycles rows as it scrolls.
    void setItem(DownloadItemPtr item);

    // The context menu for the item as it is now (the caller owns it).
    QMenu *buildContextMenu(QWidget *parent = nullptr);

    // "+1 semitone", "-2 semitones".
    static QString semitoneLabel(int semitones);
    // The clip chip's text: "1:20–end", "start–2:45".
    static QString clipText(const ClipRange &clip);

    // Row refreshes since the process started, for measurements.
    static quint64 refreshCount();

Q_SIGNALS:
    void cancelRequested(const DownloadItemPtr &item);
    void retryRequested(const DownloadItemPtr &item);
    void removeRequested(const DownloadItemPtr &item);
    void momentsRequested(const DownloadItemPtr &item);
    void practiceRequested(const DownloadItemPtr &item, double rate);
    void pitchRequested(const DownloadItemPtr &item, int semitones);
    void transcribeRequested(const DownloadItemPtr &item);
    void detectTempoRequested(const DownloadItemPtr &item);
    void revealRequested(const QUrl &file);

protected:
    void contextMenuEvent(QContextMenuEvent *event) override;

private:
    void itemChanged();
    void refresh();
    void refreshThumbnail();
    void rebuildChips();
    void rebuildStatus();
    void rebuildButtons();
    QWidget *iconButton(const QString &symbol, const QString &help, const QColor &tint);

    DownloadItemPtr m_item;
    QLabel *m_thumbnail;
    ElidedLabel *m_title;
    QWidget *m_chips;
    QHBoxLayout *m_chipsLayout;
    QWidget *m_status;
    QHBoxLayout *m_statusLayout;
    QWidget *m_buttons;
    QHBoxLayout *m_buttonsLayout;
    EmberProgressBar *m_progress = nullptr;
    QLabel *m_percent = nullptr;
    QLabel *m_speed = nullptr;
    ItemState::Kind m_shownKind;
    bool m_statusBuilt = false;
    QUrl m_thumbnailShown;
    QMetaObject::Connection m_itemConnection;
    QList<StatusChip *> m_chipWidgets;
    QTimer m_refreshTimer;
    QElapsedTimer m_sinceRefresh;
};

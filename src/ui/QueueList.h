#pragma once

#include "core/DownloadItem.h"

#include <QAbstractScrollArea>
#include <QList>

class DownloadQueue;
class ItemRow;

// The queue's rows, newest first. Only the rows on screen exist: a small pool of ItemRows is
// re-pointed at other items as the list scrolls, so a queue of thousands stays as cheap as a
// screenful. Row actions go straight to the queue.
class QueueList : public QAbstractScrollArea {
    Q_OBJECT
public:
    static constexpr int rowHeight = 96;

    explicit QueueList(DownloadQueue &queue, QWidget *parent = nullptr);
    ~QueueList() override;

    // The rows currently built (visible or parked), for tests and measurements.
    const QList<ItemRow *> &rows() const { return m_rows; }
    // The row showing `item`, when it is on screen.
    ItemRow *rowFor(const DownloadItemPtr &item) const;
    // Re-reads the queue's items (on every itemsChanged); the rows follow on the next turn
    // of the event loop.
    void reload();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void paintEvent(QPaintEvent *event) override;
    bool viewportEvent(QEvent *event) override;

private:
    void layoutRows();
    ItemRow *makeRow(const DownloadItemPtr &item);

    DownloadQueue &m_queue;
    QList<DownloadItemPtr> m_items;
    QList<ItemRow *> m_rows;
    bool m_layoutPending = false;
};

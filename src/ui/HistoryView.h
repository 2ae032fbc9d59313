#pragma once

#include "queue/HistoryEntry.h"

#include <QUrl>
#include <QUuid>
#include <QWidget>

#include <functional>
#include <optional>

class DownloadQueue;
class HistoryDelegate;
class HistoryList;
class HistoryModel;
class HistoryStore;
class QCheckBox;
class QLabel;
class QLineEdit;
class QListView;
class QMenu;
class QMessageBox;
class QPushButton;
class QStackedWidget;
class QVariantAnimation;

// The "History" tab: everything the user has downloaded, newest first, searchable, with one-click
// copy of a link, download again, reveal, archive and delete. The entries stay in the store; the
// list is a model over them drawn by a delegate, so 100,000 entries cost what a screenful does.
// Every change goes through the store.
class HistoryView : public QWidget {
    Q_OBJECT
public:
    static constexpr int copiedChipMs = 2500;

    // The application's history and queue.
    explicit HistoryView(QWidget *parent = nullptr);
    HistoryView(HistoryStore &store, DownloadQueue &queue, QWidget *parent = nullptr);
    ~HistoryView() override;

    HistoryModel *model() const { return m_model; }
    QListView *list() const;
    QLineEdit *searchField() const { return m_search; }
    QCheckBox *archivedToggle() const { return m_archived; }
    QLabel *countLabel() const { return m_count; }
    QPushButton *clearButton() const { return m_clear; }
    // Whether the empty state stands in for the list.
    bool isShowingEmptyState() const;
    // Whether the screen waits for the history to be read (a spinner, the controls disabled).
    bool isShowingLoadingState() const;
    const std::optional<QUuid> &copiedID() const;

    // "3 of 120".
    static QString countText(qsizetype shown, qsizetype total);

    // Puts the entry's link on the clipboard and shows "Link copied" on its row for 2.5 s.
    void copy(const HistoryEntry &entry);
    // Queues the link again; the queue's duplicate rule may drop it.
    void downloadAgain(const HistoryEntry &entry);
    void toggleArchive(const HistoryEntry &entry);
    void remove(const HistoryEntry &entry);
    // Shows the entry's file selected in the file manager.
    void revealFile(const HistoryEntry &entry);
    // Opens the "Clear download history?" confirmation (window-modal, not blocking).
    QMessageBox *confirmClear();
    bool isConfirmingClear() const { return m_confirmClear; }
    // The row's context menu as it is now (the caller owns it).
    QMenu *buildContextMenu(const HistoryEntry &entry, QWidget *parent = nullptr);

    // Tests shorten the chip's 2.5 s and watch reveals instead of opening a file manager.
    void setCopiedChipDuration(int ms) { m_copiedChipMs = ms; }
    void setReveal(std::function<void(const QUrl &)> reveal) { m_reveal = std::move(reveal); }

protected:
    void showEvent(QShowEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    QWidget *buildControls();
    QWidget *buildEmptyState();
    QWidget *buildLoadingState();
    void refreshCounts();

    HistoryStore &m_store;
    DownloadQueue &m_queue;
    HistoryModel *m_model;
    HistoryDelegate *m_delegate = nullptr;
    HistoryList *m_list = nullptr;
    QLineEdit *m_search = nullptr;
    QCheckBox *m_archived = nullptr;
    QLabel *m_count = nullptr;
    QPushButton *m_clear = nullptr;
    QStackedWidget *m_body = nullptr;
    QWidget *m_emptyState = nullptr;
    QWidget *m_loadingState = nullptr;
    QLabel *m_emptyTitle = nullptr;
    QVariantAnimation *m_chipFade = nullptr;
    bool m_confirmClear = false;
    int m_copiedChipMs = copiedChipMs;
    std::function<void(const QUrl &)> m_reveal;
};

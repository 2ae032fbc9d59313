#pragma once

#include "core/DownloadMode.h"
#include "discovery/YtDlpSearch.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QWidget>

#include <optional>

class DownloadQueue;
class EmberBusyBar;
class QLabel;
class QLineEdit;
class QMenu;
class QStackedWidget;
class QVBoxLayout;
class SegmentedPicker;
class ThumbnailLoader;

// The Search tab: finds videos, songs or Creative-Commons footage through the engine and queues
// any hit with one click. Hits appear while the engine is still printing them; answers of a
// search that a newer one replaced are ignored.
class SearchView : public QWidget {
    Q_OBJECT
public:
    static constexpr int resultCount = 12;
    static constexpr QSize thumbnailSize{160, 90};

    struct Setup {
        QString thumbnailServer; // scheme and host of the video site's image server
        ThumbnailLoader *thumbnails = nullptr;
        static Setup real();
    };

    explicit SearchView(DownloadQueue &queue, QWidget *parent = nullptr);
    SearchView(DownloadQueue &queue, Setup setup, QWidget *parent = nullptr);
    ~SearchView() override;

    // Searches for the field's text (trimmed); a blank field does nothing.
    void run();
    // Hands the hit to the queue in `mode` and marks its row "Queued".
    void queue(const YtDlp::SearchResult &result, DownloadMode mode);
    // The row's menu: the three modes and "Copy Link" (the caller owns it).
    QMenu *buildMenu(const YtDlp::SearchResult &result, QWidget *parent = nullptr);

    static QString placeholder(YtDlp::SearchMode mode);
    static QString modeHelp();

    const QList<YtDlp::SearchResult> &results() const { return m_results; }
    bool isSearching() const { return m_searching; }
    bool hasSearched() const { return m_searched; }
    const std::optional<QString> &errorText() const { return m_errorText; }
    const QSet<QString> &queuedIDs() const { return m_queued; }
    YtDlp::SearchMode mode() const { return m_mode; }
    DownloadMode format() const { return m_format; }
    const std::optional<QString> &selectedID() const { return m_selectedID; }
    QLineEdit *field() const { return m_field; }

private:
    void setMode(YtDlp::SearchMode mode);
    void append(const YtDlp::SearchResult &result);
    void searchEnded(int generation, const std::optional<QString> &error);
    void select(const QString &id);
    void refreshContent();
    void refreshRow(QWidget *row);
    QWidget *buildRow(const YtDlp::SearchResult &result);
    QWidget *buildWelcome();
    QWidget *rowFor(const QString &id) const;

    DownloadQueue &m_queue;
    Setup m_setup;

    YtDlp::SearchMode m_mode = YtDlp::SearchMode::videos;
    DownloadMode m_format = DownloadMode::bestVideoAudio;
    QList<YtDlp::SearchResult> m_results;
    bool m_searching = false;
    bool m_searched = false;
    std::optional<QString> m_errorText;
    QSet<QString> m_queued;
    std::optional<QString> m_selectedID;
    int m_generation = 0;

    QLineEdit *m_field = nullptr;
    SegmentedPicker *m_modePicker = nullptr;
    EmberBusyBar *m_busy = nullptr;
    QWidget *m_formatBar = nullptr;
    QLabel *m_count = nullptr;
    SegmentedPicker *m_formatPicker = nullptr;
    QStackedWidget *m_content = nullptr;
    QLabel *m_error = nullptr;
    QWidget *m_errorPage = nullptr;
    QWidget *m_emptyPage = nullptr;
    QWidget *m_welcomePage = nullptr;
    QWidget *m_listPage = nullptr;
    QVBoxLayout *m_list = nullptr;
};

#pragma once

#include "discovery/ImageSearch.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QUrl>
#include <QWidget>

#include <functional>
#include <optional>

class AppSettings;
class DownloadQueue;
class EmberBusyBar;
class HistoryStore;
class QLabel;
class QLineEdit;
class QMenu;
class QScrollArea;
class QStackedWidget;
class ThumbnailLoader;

// The Images tab: searches openly licensed pictures and saves a chosen one, full size, into the
// library's Images folder, with a history entry and the file shown in the file manager.
class ImagesView : public QWidget {
    Q_OBJECT
public:
    static constexpr int pageSize = 30;
    static constexpr int minCellWidth = 190;
    static constexpr int maxCellWidth = 260;
    static constexpr int cellSpacing = 12;
    static constexpr int thumbnailHeight = 150;

    struct Setup {
        ImageSearch::Endpoint endpoint;
        std::function<void(const QUrl &file)> reveal;
        std::function<void(const QUrl &page)> openPage;
        ThumbnailLoader *thumbnails = nullptr;
        static Setup real();
    };

    ImagesView(DownloadQueue &queue, HistoryStore &history, AppSettings &settings, QWidget *parent = nullptr);
    ImagesView(DownloadQueue &queue, HistoryStore &history, AppSettings &settings, Setup setup,
               QWidget *parent = nullptr);
    ~ImagesView() override;

    // Searches for the field's text (trimmed): the first 30 pictures. A blank field does nothing.
    void run();
    // Saves the full-size picture; one save at a time.
    void download(const ImageSearch::Result &result);
    // "Download Full Resolution" and "Open Source Page" (the caller owns it).
    QMenu *buildMenu(const ImageSearch::Result &result, QWidget *parent = nullptr);

    // Columns of the adaptive grid for an area `width` pixels wide, and the width of each cell.
    static int columnsFor(int width);
    static int cellWidthFor(int width);

    const QList<ImageSearch::Result> &results() const { return m_results; }
    bool isSearching() const { return m_searching; }
    bool hasSearched() const { return m_searched; }
    const std::optional<QString> &errorText() const { return m_errorText; }
    const QSet<QString> &savedIDs() const { return m_savedIDs; }
    const std::optional<QString> &downloadingID() const { return m_downloadingID; }
    QLineEdit *field() const { return m_field; }

private:
    struct Outcome {
        QString path;
        QString error;
    };
    static QCoro::Task<Outcome> save(ImageSearch::Result result, QString folder, ImageSearch::Endpoint endpoint);
    void searchEnded(int generation, const QList<ImageSearch::Result> &results, const std::optional<QString> &error);
    void saveEnded(const ImageSearch::Result &result, const Outcome &outcome);
    void refreshContent();
    void refreshCells();
    void rebuildGrid();
    QWidget *buildCell(const ImageSearch::Result &result);

    DownloadQueue &m_queue;
    HistoryStore &m_history;
    AppSettings &m_settings;
    Setup m_setup;

    QList<ImageSearch::Result> m_results;
    bool m_searching = false;
    bool m_searched = false;
    std::optional<QString> m_errorText;
    QSet<QString> m_savedIDs;
    std::optional<QString> m_downloadingID;
    int m_generation = 0;

    QLineEdit *m_field = nullptr;
    EmberBusyBar *m_busy = nullptr;
    QStackedWidget *m_content = nullptr;
    QLabel *m_error = nullptr;
    QWidget *m_errorPage = nullptr;
    QWidget *m_emptyPage = nullptr;
    QWidget *m_welcomePage = nullptr;
    QScrollArea *m_gridPage = nullptr;
    QWidget *m_grid = nullptr;
};

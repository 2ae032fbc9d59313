#pragma once

#include "analysis/TranscriptSearch.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QUrl>
#include <QUuid>
#include <QWidget>

#include <QCoroTask>

#include <functional>

class AppSettings;
class DownloadQueue;
class QLineEdit;
class QPushButton;
class QStackedWidget;
class QVBoxLayout;

// The "Find" tab: a search across everything said in the library. The phrase is looked up in
// the subtitle files under the download folder off the user-interface thread, every matching
// cue is listed, and "Export Clip" cuts the moment it is said into the video's Quotes folder.
class FindView : public QWidget {
    Q_OBJECT
public:
    static constexpr int minimumQueryLength = 2;

    // The application's settings (download folder) and queue (status line).
    explicit FindView(QWidget *parent = nullptr);
    FindView(AppSettings &settings, DownloadQueue &queue, QWidget *parent = nullptr);
    ~FindView() override;

    QLineEdit *queryField() const { return m_query; }
    QPushButton *findButton() const { return m_find; }
    bool isSearching() const { return m_searching; }
    bool hasSearched() const { return m_searched; }
    const QList<TranscriptSearch::Hit> &hits() const { return m_hits; }
    bool isExporting(const QUuid &hitID) const { return m_exporting.contains(hitID); }
    // The row widget of a hit (for tests and measurements), or null.
    QWidget *rowFor(const QUuid &hitID) const { return m_rows.value(hitID); }

    // Searches for the field's text, trimmed of spaces and tabs; nothing below 2 characters.
    // The field's Return and the "Find" button call it.
    void runSearch();
    // Cuts the clip of the hit; the outcome goes to the status line.
    void exportClip(const QUuid &hitID);

    // Tests watch reveals instead of opening a file manager.
    void setReveal(std::function<void(const QUrl &)> reveal) { m_reveal = std::move(reveal); }

Q_SIGNALS:
    // The newest search has finished and its hits are shown.
    void searchFinished();
    // An export has ended; `clip` is empty when it failed.
    void exportFinished(const QUuid &hitID, const QString &clip);

private:
    QWidget *buildSearchBar();
    QWidget *buildWelcome();
    QWidget *buildNoMatches();
    QCoro::Task<> search(QString query, QString folder, quint64 generation);
    QCoro::Task<> exportHit(TranscriptSearch::Hit hit);
    void refreshFindButton();
    void showState();
    void rebuildRows();
    void refreshRow(const QUuid &hitID);

    AppSettings &m_settings;
    DownloadQueue &m_queue;
    QList<TranscriptSearch::Hit> m_hits;
    bool m_searching = false;
    bool m_searched = false;
    QSet<QUuid> m_exporting;
    quint64 m_generation = 0; // the newest search; older answers are dropped
    std::function<void(const QUrl &)> m_reveal;

    QLineEdit *m_query = nullptr;
    QPushButton *m_find = nullptr;
    QWidget *m_spinner = nullptr;
    QStackedWidget *m_content = nullptr;
    QWidget *m_welcome = nullptr;
    QWidget *m_noMatches = nullptr;
    QWidget *m_results = nullptr;
    QVBoxLayout *m_resultsLayout = nullptr;
    QHash<QUuid, QWidget *> m_rows;
};

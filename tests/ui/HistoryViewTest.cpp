#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryJson.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"
#include "ui/Brand.h"
#include "ui/HistoryModel.h"
#include "ui/HistoryView.h"

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QCoroSignal>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QDir>
#include <QFileInfo>
#include <QTest>
#include <QToolButton>

namespace {

struct SilentNotifier : Notifier {
    void post(const QString &, const QString &) override {}
};

// Probes wait until the harness lets them go, so re-queued links stay in the queue.
class Gate : public QObject {
    Q_OBJECT
public:
    void open() { Q_EMIT opened(); }
Q_SIGNALS:
    void opened();
};

QCoro::Task<ProbeResult> heldProbe(Gate *gate) {
    co_await qCoro(gate, &Gate::opened);
    throw YtDlpError::probeFailed(QStringLiteral("let go"));
}

// title | url | source | category | archived | file ("exists", "moved" or none)
struct Seed {
    const char *title;
    const char *url;
    const char *source;
    const char *category;
    bool archived;
    const char *file;
};

const Seed wonderwall{"Wonderwall lesson", "https://youtu.be/abc123", "YouTube", "Tutorials", false, "exists"};
const Seed nightDrive{"Night Drive", "https://soundcloud.com/a/night-drive", "SoundCloud", "Music", true, "moved"};
const Seed interview{"Interview", "https://vimeo.com/42", "Vimeo", "Videos", false, nullptr};
const Seed cafe{"Café Tacvba — Eres", "https://music.youtube.com/watch?v=e", "YouTube Music", "Music", false, nullptr};
const QList<Seed> library{wonderwall, nightDrive, interview, cafe};

// A real store over a history file in the suite's temporary home, the real queue (probes held)
// and the screen over both.
struct Harness {
    QString dir = TestEnv::root() + u'/' + QUuid::createUuid().toString(QUuid::WithoutBraces);
    QString historyFile = dir + QStringLiteral("/history.json");
    AppSettings settings{dir + QStringLiteral("/settings.ini")};
    SilentNotifier notifier;
    Gate gate;
    std::unique_ptr<HistoryStore> store;
    std::unique_ptr<DownloadQueue> queue;
    std::unique_ptr<HistoryView> view;
    QList<QUrl> revealed;

    explicit Harness(const QList<Seed> &seeds = library, const QByteArray *rawFile = nullptr) {
        QList<HistoryEntry> entries;
        const QDateTime now = QDateTime::currentDateTimeUtc();
        for (const Seed &s : seeds) {
            HistoryEntry e;
            e.setId(QUuid::createUuid());
            e.setTitle(QString::fromUtf8(s.title));
            e.setUrl(QString::fromUtf8(s.url));
            e.setSource(QString::fromUtf8(s.source));
            e.setCategory(QString::fromUtf8(s.category));
            e.setMode(QStringLiteral("Video (best quality)"));
            e.setDate(now.addSecs(-2 * 3600 * (entries.size() + 1)));
            e.setArchived(s.archived);
            if (s.file) {
                const QString path = dir + QStringLiteral("/Downloads/") + e.title() + QStringLiteral(".mp4");
                e.setFilePath(path);
                if (QByteArray(s.file) == "exists")
                    TestEnv::writeFile(path, "video");
            }
            entries.append(e);
        }
        TestEnv::writeFile(historyFile, rawFile ? *rawFile : HistoryJson::encode(entries));
        store = std::make_unique<HistoryStore>(historyFile);
        DownloadQueue::Services services;
        services.probe = [this](QString) { return heldProbe(&gate); };
        services.isSpotifyTrackURL = [](const QString &) { return false; };
        queue = std::make_unique<DownloadQueue>(settings, *store, notifier, services);
        view = std::make_unique<HistoryView>(*store, *queue);
        view->setReveal([this](const QUrl &file) { revealed << file; });
        view->setCopiedChipDuration(400);
        view->resize(760, 420);
    }
    ~Harness() {
        view.reset();
        for (const DownloadItemPtr &item : queue->items())
            queue->cancel(item);
        gate.open();
        QTest::qWait(30);
        queue.reset();
        store.reset();
    }

    QStringList titles() const {
        QStringList out;
        for (int row = 0; row < view->model()->rowCount(); ++row)
            out << view->model()->entryAt(row).title();
        return out;
    }
    HistoryEntry entry(const char *title) const {
        for (const HistoryEntry &e : store->entries())
            if (e.title() == QString::fromUtf8(title))
                return e;
        return {};
    }
    int row(const char *title) const { return view->model()->rowOf(entry(title).id()); }
    QPoint rowPoint(const char *title) const {
        const QRect r = view->list()->visualRect(view->model()->index(row(title)));
        return QPoint(r.left() + 80, r.center().y());
    }
    // Puts the live row buttons on a row, as hovering it does.
    QToolButton *rowButton(const char *title, const char *name) {
        view->list()->setCurrentIndex(view->model()->index(row(title)));
        QCoreApplication::processEvents();
        return view->findChild<QToolButton *>(QLatin1String(name));
    }
    QStringList menu(const char *title) const {
        std::unique_ptr<QMenu> m(view->buildContextMenu(entry(title)));
        QStringList out;
        for (QAction *a : m->actions())
            out << (a->isSeparator() ? QStringLiteral("-") : a->text());
        return out;
    }
    void trigger(const char *title, const QString &action) {
        std::unique_ptr<QMenu> m(view->buildContextMenu(entry(title)));
        for (QAction *a : m->actions())
            if (a->text() == action)
                a->trigger();
    }
};

QString accessibleName(QObject *object) {
    QAccessibleInterface *iface = QAccessible::queryAccessibleInterface(object);
    return iface ? iface->text(QAccessible::Name) : QString();
}

} // namespace

class HistoryViewTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { Brand::applyDarkAppearance(*qApp); }

    void searchAndArchivedFilter_data() {
        QTest::addColumn<QString>("search");
        QTest::addColumn<bool>("archivedOnly");
        QTest::addColumn<QStringList>("titles");
        QTest::addColumn<QString>("count");
        QTest::addColumn<QString>("emptyTitle"); // empty: the list shows

        const QStringList all{QStringLiteral("Wonderwall lesson"), QStringLiteral("Night Drive"), QStringLiteral("Interview"),
                              QStringLiteral("Café Tacvba — Eres")};
        QTest::newRow("no search") << QString() << false << all << QStringLiteral("4 of 4") << QString();
        // Neither the title nor the link (youtu.be) holds the word: the source does.
        QTest::newRow("source text") << QStringLiteral("youtube") << false
                                     << QStringList{all[0], all[3]} << QStringLiteral("2 of 4") << QString();
        QTest::newRow("category, any case") << QStringLiteral("MUSIC") << false << QStringList{all[1], all[3]}
                                            << QStringLiteral("2 of 4") << QString();
        QTest::newRow("link") << QStringLiteral("vimeo.com/42") << false << QStringList{all[2]} << QStringLiteral("1 of 4")
                              << QString();
        QTest::newRow("non-ASCII, any case") << QStringLiteral("CAFÉ") << false << QStringList{all[3]}
                                             << QStringLiteral("1 of 4") << QString();
        QTest::newRow("a blank is searched as typed") << QStringLiteral(" ") << false << QStringList{all[0], all[1], all[3]}
                                                      << QStringLiteral("3 of 4") << QString();
        QTest::newRow("mode is not searched") << QStringLiteral("best quality") << false << QStringList{}
                                              << QStringLiteral("0 of 4")
                                              << QStringLiteral("Your download history will appear here");
        QTest::newRow("archived only") << QString() << true << QStringList{all[1]} << QStringLiteral("1 of 4") << QString();
        QTest::newRow("archived, no match") << QStringLiteral("vimeo") << true << QStringList{} << QStringLiteral("0 of 4")
                                            << QStringLiteral("Nothing archived yet");
    }
    void searchAndArchivedFilter() {
        QFETCH(QString, search);
        QFETCH(bool, archivedOnly);
        QFETCH(QStringList, titles);
        QFETCH(QString, count);
        QFETCH(QString, emptyTitle);
        Harness h;
        h.view->show();
        QTest::keyClicks(h.view->searchField(), search);
        h.view->archivedToggle()->setChecked(archivedOnly);
        QCOMPARE(h.titles(), titles);
        QCOMPARE(h.view->countLabel()->text(), count);
        QCOMPARE(h.view->isShowingEmptyState(), !emptyTitle.isEmpty());
        if (!emptyTitle.isEmpty())
            QCOMPARE(h.view->findChild<QLabel *>(QStringLiteral("emptyTitle"))->text(), emptyTitle);
        // The index answers exactly what the plain rule answers.
        for (const HistoryEntry &e : h.store->entries())
            QCOMPARE(h.view->model()->rowOf(e.id()) >= 0,
                     HistorySearchIndex::accepts(e, search) && (!archivedOnly || e.archived()));
    }

    // Every change goes through the store, and the list follows the store.
    void changesGoThroughTheStore_data() {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QStringList>("titles");     // shown afterwards
        QTest::addColumn<QStringList>("archived");   // archived titles in the store afterwards
        QTest::addColumn<bool>("clearEnabled");
        QTest::newRow("archive from the row button")
            << QStringLiteral("archiveButton")
            << QStringList{QStringLiteral("Wonderwall lesson"), QStringLiteral("Night Drive"), QStringLiteral("Interview"),
                           QStringLiteral("Café Tacvba — Eres")}
            << QStringList{QStringLiteral("Wonderwall lesson"), QStringLiteral("Night Drive")} << true;
        QTest::newRow("unarchive from the menu")
            << QStringLiteral("unarchiveMenu")
            << QStringList{QStringLiteral("Wonderwall lesson"), QStringLiteral("Night Drive"), QStringLiteral("Interview"),
                           QStringLiteral("Café Tacvba — Eres")}
            << QStringList{} << true;
        QTest::newRow("remove from the row button")
            << QStringLiteral("removeButton")
            << QStringList{QStringLiteral("Wonderwall lesson"), QStringLiteral("Night Drive"), QStringLiteral("Café Tacvba — Eres")}
            << QStringList{QStringLiteral("Night Drive")} << true;
        QTest::newRow("delete from the menu")
            << QStringLiteral("deleteMenu")
            << QStringList{QStringLiteral("Night Drive"), QStringLiteral("Interview"), QStringLiteral("Café Tacvba — Eres")}
            << QStringList{QStringLiteral("Night Drive")} << true;
        QTest::newRow("clear keeps the archived") << QStringLiteral("clear") << QStringList{QStringLiteral("Night Drive")}
                                                  << QStringList{QStringLiteral("Night Drive")} << false;
        QTest::newRow("clear cancelled")
            << QStringLiteral("cancelClear")
            << QStringList{QStringLiteral("Wonderwall lesson"), QStringLiteral("Night Drive"), QStringLiteral("Interview"),
                           QStringLiteral("Café Tacvba — Eres")}
            << QStringList{QStringLiteral("Night Drive")} << true;
        QTest::newRow("a download recorded meanwhile")
            << QStringLiteral("record")
            << QStringList{QStringLiteral("Fresh one"), QStringLiteral("Wonderwall lesson"), QStringLiteral("Night Drive"),
                           QStringLiteral("Interview"), QStringLiteral("Café Tacvba — Eres")}
            << QStringList{QStringLiteral("Night Drive")} << true;
    }
    void changesGoThroughTheStore() {
        QFETCH(QString, action);
        QFETCH(QStringList, titles);
        QFETCH(QStringList, archived);
        QFETCH(bool, clearEnabled);
        Harness h;
        h.view->show();
        QVERIFY(QTest::qWaitForWindowExposed(h.view.get()));
        if (action == QLatin1String("archiveButton")) {
            QToolButton *button = h.rowButton("Wonderwall lesson", "archive");
            QCOMPARE(button->toolTip(), QStringLiteral("Archive (kept when history is cleared)"));
            QTest::mouseClick(button, Qt::LeftButton);
            QCoreApplication::processEvents();
            // The row now leads with the filled box and the button offers the way back.
            QVERIFY(h.view->model()->entryAt(h.row("Wonderwall lesson")).archived());
            QCOMPARE(button->toolTip(), QStringLiteral("Unarchive"));
            QCOMPARE(accessibleName(button), QStringLiteral("Unarchive"));
        } else if (action == QLatin1String("unarchiveMenu")) {
            h.trigger("Night Drive", QStringLiteral("Unarchive"));
        } else if (action == QLatin1String("removeButton")) {
            QTest::mouseClick(h.rowButton("Interview", "remove"), Qt::LeftButton);
        } else if (action == QLatin1String("deleteMenu")) {
            h.trigger("Wonderwall lesson", QStringLiteral("Delete from History"));
        } else if (action == QLatin1String("clear") || action == QLatin1String("cancelClear")) {
            QTest::mouseClick(h.view->clearButton(), Qt::LeftButton);
            auto *box = h.view->findChild<QMessageBox *>(QStringLiteral("confirmClear"));
            QVERIFY(box && h.view->isConfirmingClear());
            QCOMPARE(box->text(), QStringLiteral("Clear download history?"));
            QCOMPARE(box->informativeText(), QStringLiteral("Archived links are always kept. Downloaded files are never touched."));
            QAbstractButton *choice = action == QLatin1String("clear")
                                          ? static_cast<QAbstractButton *>(box->findChild<QPushButton *>(QStringLiteral("confirmClearButton")))
                                          : box->button(QMessageBox::Cancel);
            QCOMPARE(box->findChild<QPushButton *>(QStringLiteral("confirmClearButton"))->text(),
                     QStringLiteral("Clear (keeps archived links)"));
            choice->click();
            QTRY_VERIFY(!h.view->isConfirmingClear());
        } else if (action == QLatin1String("record")) {
            HistoryEntry e;
            e.setId(QUuid::createUuid());
            e.setTitle(QStringLiteral("Fresh one"));
            e.setUrl(QStringLiteral("https://vimeo.com/7"));
            e.setDate(QDateTime::currentDateTimeUtc());
            h.store->add(e);
        }
        QCOMPARE(h.titles(), titles);
        QCOMPARE(h.view->clearButton()->isEnabled(), clearEnabled);
        QCOMPARE(h.view->countLabel()->text(), HistoryView::countText(titles.size(), titles.size()));
        // What the store wrote is what a fresh start reads.
        h.store->waitForPendingSave();
        HistoryStore reread(h.historyFile);
        QStringList onDisk;
        QStringList archivedOnDisk;
        for (const HistoryEntry &e : reread.entries()) {
            onDisk << e.title();
            if (e.archived())
                archivedOnDisk << e.title();
        }
        QCOMPARE(onDisk, titles);
        QCOMPARE(archivedOnDisk, archived);
        // Clearing never touches downloaded files.
        QVERIFY(QFileInfo::exists(h.dir + QStringLiteral("/Downloads/Wonderwall lesson.mp4")));
    }

    // Clicks copy the link; the chip follows the latest copy and goes with that copy's own timer
    // (2.5 s, shortened here to 600 ms); copying the same row again does not extend it.
    void copyChip_data() {
        QTest::addColumn<QStringList>("clicks"); // 400 ms apart
        QTest::addColumn<QString>("clipboard");
        QTest::addColumn<int>("goneAtMs");  // after the first click, when nothing runs late
        QTest::addColumn<int>("extendedMs"); // when the chip would go had the last click restarted the first timer
        QTest::newRow("one click") << QStringList{QStringLiteral("Interview")} << QStringLiteral("https://vimeo.com/42") << 600 << 0;
        QTest::newRow("another row moves the chip at once")
            << QStringList{QStringLiteral("Interview"), QStringLiteral("Night Drive")}
            << QStringLiteral("https://soundcloud.com/a/night-drive") << 1000 << 0;
        QTest::newRow("same row again does not extend")
            << QStringList{QStringLiteral("Interview"), QStringLiteral("Interview")} << QStringLiteral("https://vimeo.com/42")
            << 600 << 1000;
    }
    void copyChip() {
        QFETCH(QStringList, clicks);
        QFETCH(QString, clipboard);
        QFETCH(int, goneAtMs);
        QFETCH(int, extendedMs);
        Harness h;
        h.view->setCopiedChipDuration(600);
        h.view->show();
        QVERIFY(QTest::qWaitForWindowExposed(h.view.get()));
        HistoryModel *model = h.view->model();
        QElapsedTimer clock;
        for (int i = 0; i < clicks.size(); ++i) {
            if (i == 0)
                clock.start();
            else
                QTest::qWait(int(400 * i - clock.elapsed()));
            const QByteArray title = clicks[i].toUtf8();
            QTest::mouseClick(h.view->list()->viewport(), Qt::LeftButton, {}, h.rowPoint(title.constData()));
            // At once, and on this row only; screen readers hear it in the row's text.
            QCOMPARE(h.view->copiedID(), std::optional<QUuid>(h.entry(title.constData()).id()));
            for (int row = 0; row < model->rowCount(); ++row) {
                const bool here = model->entryAt(row).title() == clicks[i];
                QCOMPARE(model->data(model->index(row), HistoryModel::CopiedRole).toBool(), here);
                QCOMPARE(model->data(model->index(row), Qt::AccessibleTextRole).toString().endsWith(
                             QStringLiteral("Link copied \u2014 paste anywhere")),
                         here);
            }
        }
        QCOMPARE(QApplication::clipboard()->text(), clipboard);
        QTRY_VERIFY_WITH_TIMEOUT(!h.view->copiedID(), goneAtMs + 2000);
        // Never before its own timer (a moved chip outlives the first row's timer), and a repeated
        // copy of the same row leaves the first timer in charge.
        const qint64 gone = clock.elapsed();
        QVERIFY2(gone >= goneAtMs - 20, qPrintable(QString::number(gone)));
        if (extendedMs > 0)
            QVERIFY2(gone < extendedMs, qPrintable(QString::number(gone)));
    }

    void contextMenu_data() {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QStringList>("entries");
        const QStringList common{QStringLiteral("Copy Link"), QStringLiteral("Download Again")};
        QTest::newRow("file present") << QStringLiteral("Wonderwall lesson")
                                      << common + QStringList{QStringLiteral("Show in Folder"), QStringLiteral("-"),
                                                              QStringLiteral("Archive"), QStringLiteral("Delete from History")};
        QTest::newRow("file moved, archived") << QStringLiteral("Night Drive")
                                              << common + QStringList{QStringLiteral("-"), QStringLiteral("Unarchive"),
                                                                      QStringLiteral("Delete from History")};
        QTest::newRow("no file") << QStringLiteral("Interview")
                                 << common + QStringList{QStringLiteral("-"), QStringLiteral("Archive"),
                                                         QStringLiteral("Delete from History")};
    }
    void contextMenu() {
        QFETCH(QString, title);
        QFETCH(QStringList, entries);
        Harness h;
        const QByteArray t = title.toUtf8();
        QCOMPARE(h.menu(t.constData()), entries);
        if (entries.contains(QStringLiteral("Show in Folder"))) {
            h.trigger(t.constData(), QStringLiteral("Show in Folder"));
            QCOMPARE(h.revealed, QList<QUrl>{QUrl::fromLocalFile(*h.entry(t.constData()).filePath())});
            // Deleted since: the entry is gone from the next menu.
            QFile::remove(*h.entry(t.constData()).filePath());
            QVERIFY(!h.menu(t.constData()).contains(QStringLiteral("Show in Folder")));
        }
        h.trigger(t.constData(), QStringLiteral("Copy Link"));
        QCOMPARE(QApplication::clipboard()->text(), h.entry(t.constData()).url());
    }

    // "Download again" goes through the queue, whose duplicate rule drops a link still in progress.
    void downloadAgainKeepsTheQueueRules_data() {
        QTest::addColumn<int>("buttonClicks");
        QTest::addColumn<int>("menuClicks");
        QTest::addColumn<int>("queued");
        QTest::newRow("button once") << 1 << 0 << 1;
        QTest::newRow("button then menu: still downloading") << 1 << 1 << 1;
    }
    void downloadAgainKeepsTheQueueRules() {
        QFETCH(int, buttonClicks);
        QFETCH(int, menuClicks);
        QFETCH(int, queued);
        Harness h;
        h.view->show();
        for (int i = 0; i < buttonClicks; ++i)
            QTest::mouseClick(h.rowButton("Interview", "downloadAgain"), Qt::LeftButton);
        for (int i = 0; i < menuClicks; ++i)
            h.trigger("Interview", QStringLiteral("Download Again"));
        QCOMPARE(h.queue->items().size(), queued);
        QCOMPARE(h.queue->items().first()->url(), QStringLiteral("https://vimeo.com/42"));
        QCOMPARE(h.titles().size(), library.size()); // the history itself is unchanged
    }

    // A corrupt or half-written file reads as an empty history and stays as it is until the
    // user changes something.
    void badFileShowsEmptyAndIsSetAside_data() {
        QTest::addColumn<QByteArray>("content");
        const QByteArray good = HistoryJson::encode({HistoryEntry()});
        QTest::newRow("half written") << good.left(good.size() / 2);
        QTest::newRow("not JSON") << QByteArray("\x00\xff garbage", 10);
        QByteArray missingKey = good;
        missingKey.replace("\"archived\"", "\"archivedX\"");
        QTest::newRow("missing key") << missingKey;
    }
    void badFileShowsEmptyAndIsSetAside() {
        QFETCH(QByteArray, content);
        Harness h({}, &content);
        h.view->show();
        QVERIFY(h.view->isShowingEmptyState());
        QCOMPARE(h.view->countLabel()->text(), QStringLiteral("0 of 0"));
        QVERIFY(!h.view->clearButton()->isEnabled());
        QTest::keyClicks(h.view->searchField(), QStringLiteral("abc"));
        h.view->archivedToggle()->setChecked(true);
        h.store->waitForPendingSave();
        // The unreadable file is set aside whole, never saved over.
        const QFileInfo file(h.historyFile);
        const QStringList aside =
            file.dir().entryList({file.fileName() + QStringLiteral(".unreadable-*")}, QDir::Files | QDir::Hidden);
        QCOMPARE(aside.size(), 1);
        QCOMPARE(TestEnv::readFile(file.dir().filePath(aside.first())), content);
    }

    // While the history is read the screen waits with its controls off; the rows then arrive.
    void waitsForTheHistory() {
        Harness h;
        HistoryStore store(h.historyFile, HistoryStore::Loading::inBackground);
        HistoryView view(store, *h.queue);
        QVERIFY(view.isShowingLoadingState() && !view.searchField()->isEnabled() && !view.clearButton()->isEnabled());
        QSignalSpy loaded(&store, &HistoryStore::loaded);
        store.startLoading();
        QVERIFY(loaded.wait());
        QVERIFY(!view.isShowingLoadingState());
        QCOMPARE(view.model()->rowCount(), library.size());
        QVERIFY(view.searchField()->isEnabled() && view.clearButton()->isEnabled());
    }

    void accessibleNames_data() {
        QTest::addColumn<QString>("object");
        QTest::addColumn<QString>("name");
        QTest::newRow("search field") << QStringLiteral("historySearch") << QStringLiteral("Search history");
        QTest::newRow("archived toggle") << QStringLiteral("archivedOnly") << QStringLiteral("Archived");
        QTest::newRow("count") << QStringLiteral("historyCount") << QStringLiteral("4 of 4");
        QTest::newRow("clear") << QStringLiteral("clearHistory") << QStringLiteral("Clear…");
        QTest::newRow("list") << QStringLiteral("historyList") << QStringLiteral("Download history");
        QTest::newRow("download again") << QStringLiteral("downloadAgain") << QStringLiteral("Download again");
        QTest::newRow("archive") << QStringLiteral("archive") << QStringLiteral("Archive (kept when history is cleared)");
        QTest::newRow("remove") << QStringLiteral("remove") << QStringLiteral("Remove from history");
        QTest::newRow("first row") << QStringLiteral("row 0")
                                   << QStringLiteral("Wonderwall lesson, YouTube, Tutorials, 2 hours ago");
        QTest::newRow("archived row") << QStringLiteral("row 1")
                                      << QStringLiteral("Archived, Night Drive, SoundCloud, Music, 4 hours ago");
    }
    void accessibleNames() {
        QFETCH(QString, object);
        QFETCH(QString, name);
        Harness h;
        h.view->show();
        QVERIFY(QTest::qWaitForWindowExposed(h.view.get()));
        h.rowButton("Wonderwall lesson", "archive");
        if (object.startsWith(QLatin1String("row "))) {
            // The list's rows are children of its accessible interface, read like any widget.
            QAccessibleInterface *list = QAccessible::queryAccessibleInterface(h.view->list());
            QVERIFY(list && list->childCount() >= 2);
            const int row = object.mid(4).toInt();
            QAccessibleInterface *cell = list->child(row);
            QVERIFY(cell);
            QCOMPARE(cell->text(QAccessible::Name), name);
            return;
        }
        QObject *o = h.view->findChild<QObject *>(object);
        QVERIFY2(o, qPrintable(object));
        QCOMPARE(accessibleName(o), name);
    }

    void relativeDates_data() {
        QTest::addColumn<qint64>("secondsAgo");
        QTest::addColumn<QString>("text");
        QTest::newRow("now") << qint64(0) << QStringLiteral("now");
        QTest::newRow("seconds") << qint64(42) << QStringLiteral("42 seconds ago");
        QTest::newRow("one minute") << qint64(61) << QStringLiteral("1 minute ago");
        QTest::newRow("hours") << qint64(2 * 3600 + 5) << QStringLiteral("2 hours ago");
        QTest::newRow("yesterday") << qint64(30 * 3600) << QStringLiteral("yesterday");
        QTest::newRow("days") << qint64(3 * 86400) << QStringLiteral("3 days ago");
        QTest::newRow("last week") << qint64(8 * 86400) << QStringLiteral("last week");
        QTest::newRow("months") << qint64(70 * 86400) << QStringLiteral("2 months ago");
        QTest::newRow("last year") << qint64(400 * 86400) << QStringLiteral("last year");
        QTest::newRow("future") << qint64(-3 * 3600) << QStringLiteral("in 3 hours");
        QTest::newRow("tomorrow") << qint64(-25 * 3600) << QStringLiteral("tomorrow");
    }
    void relativeDates() {
        QFETCH(qint64, secondsAgo);
        QFETCH(QString, text);
        const QDateTime now = QDateTime::currentDateTimeUtc();
        QCOMPARE(HistoryModel::relativeDate(now.addSecs(-secondsAgo), now), text);
    }
};

VORLIX_TEST_SUITE(HistoryViewTest)
#include "HistoryViewTest.moc"

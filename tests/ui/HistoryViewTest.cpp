#include "UiHarness.h"

#include "queue/HistoryJson.h"
#include "ui/HistoryModel.h"
#include "ui/HistoryView.h"

#include <QListView>
#include <QMessageBox>

using namespace Qt::StringLiterals;

namespace {

struct Seed {
    const char *title, *url, *source, *category;
    bool archived;
    const char *file; // "exists", "moved" or none
};

const QList<Seed> library{
    {"Wonderwall lesson", "https://youtu.be/abc123", "YouTube", "Tutorials", false, "exists"},
    {"Night Drive", "https://soundcloud.com/a/night-drive", "SoundCloud", "Music", true, "moved"},
    {"Interview", "https://vimeo.com/42", "Vimeo", "Videos", false, nullptr},
    {"Café Tacvba — Eres", "https://music.youtube.com/watch?v=e", "YouTube Music", "Music", false, nullptr},
};
const QString wonderwall = u"Wonderwall lesson"_s, nightDrive = u"Night Drive"_s, interview = u"Interview"_s,
              cafe = u"Café Tacvba — Eres"_s;
const QStringList allTitles{wonderwall, nightDrive, interview, cafe};

// Writes the seeds (or raw bytes) as a history file in a fresh folder and returns its path.
QString seededFile(const QList<Seed> &seeds, const QByteArray *raw) {
    const QString dir = ui_test::freshDir();
    QList<HistoryEntry> entries;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (const Seed &s : seeds) {
        HistoryEntry e;
        e.setId(QUuid::createUuid());
        e.setTitle(QString::fromUtf8(s.title));
        e.setUrl(QString::fromUtf8(s.url));
        e.setSource(QString::fromUtf8(s.source));
        e.setCategory(QString::fromUtf8(s.category));
        e.setMode(u"Video (best quality)"_s);
        e.setDate(now.addSecs(-2 * 3600 * (entries.size() + 1)));
        e.setArchived(s.archived);
        if (s.file) {
            const QString path = dir + u"/Downloads/"_s + e.title() + u".mp4"_s;
            e.setFilePath(path);
            if (QByteArray(s.file) == "exists")
                TestEnv::writeFile(path, "video");
        }
        entries.append(e);
    }
    const QString file = dir + u"/history.json"_s;
    TestEnv::writeFile(file, raw ? *raw : HistoryJson::encode(entries));
    return file;
}

// The real store over a seeded file, the real queue (probes held) and the screen over both.
struct Harness : ui_test::QueueHarness {
    QString historyFile;
    std::unique_ptr<HistoryView> view;
    QList<QUrl> revealed;

    // `raw`: the file's bytes instead of the library.
    explicit Harness(const QByteArray *raw = nullptr)
        : QueueHarness(seededFile(library, raw)), historyFile(store->filePath()) {
        QTRY_COMPARE(store->entries().size(), raw ? 0 : library.size());
        view = std::make_unique<HistoryView>(*store, *queue);
        view->setReveal([this](const QUrl &file) { revealed << file; });
        view->resize(760, 420);
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view.get()));
    }
    ~Harness() {
        view.reset();
        windDown();
    }
    QStringList titles() const {
        QStringList out;
        for (int row = 0; row < view->model()->rowCount(); ++row)
            out << view->model()->entryAt(row).title();
        return out;
    }
    HistoryEntry entry(const QString &title) const {
        for (const HistoryEntry &e : store->entries())
            if (e.title() == title)
                return e;
        return {};
    }
    int row(const QString &title) const { return view->model()->rowOf(entry(title).id()); }
    void click(const QString &title) {
        const QRect r = view->list()->visualRect(view->model()->index(row(title)));
        QTest::mouseClick(view->list()->viewport(), Qt::LeftButton, {}, QPoint(r.left() + 80, r.center().y()));
    }
    // Puts the live row buttons on a row, as hovering it does.
    QToolButton *rowButton(const QString &title, const QString &name) {
        view->list()->setCurrentIndex(view->model()->index(row(title)));
        QCoreApplication::processEvents();
        return view->findChild<QToolButton *>(name);
    }
    QStringList menu(const QString &title) const {
        std::unique_ptr<QMenu> m(view->buildContextMenu(entry(title)));
        return ui_test::menuTexts(m.get());
    }
    void trigger(const QString &title, const QString &action) {
        std::unique_ptr<QMenu> m(view->buildContextMenu(entry(title)));
        ui_test::menuAction(m.get(), action)->trigger();
    }
    // The titles (and the archived ones) a fresh start reads from the file.
    std::pair<QStringList, QStringList> onDisk() const {
        store->waitForPendingSave();
        HistoryStore reread(historyFile);
        (void)QTest::qWaitFor([&] { return reread.entries().size() == store->entries().size(); }); // compared below
        QStringList titles, archived;
        for (const HistoryEntry &e : reread.entries()) {
            titles << e.title();
            if (e.archived())
                archived << e.title();
        }
        return {titles, archived};
    }
};

} // namespace

class HistoryViewTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { Brand::applyDarkAppearance(*qApp); }

    void searchAndArchivedFilter_data() {
        QTest::addColumn<QString>("search");
        QTest::addColumn<bool>("archivedOnly");
        QTest::addColumn<QStringList>("titles");
        QTest::addColumn<QString>("emptyTitle"); // empty: the list shows
        QTest::newRow("no search") << QString() << false << allTitles << QString();
        // Neither the title nor the link (youtu.be) holds the word: the source does.
        QTest::newRow("source text") << u"youtube"_s << false << QStringList{wonderwall, cafe} << QString();
        QTest::newRow("non-ASCII, any case") << u"CAFÉ"_s << false << QStringList{cafe} << QString();
        QTest::newRow("mode is not searched") << u"best quality"_s << false << QStringList{}
                                              << u"Your download history will appear here"_s;
        QTest::newRow("archived only") << QString() << true << QStringList{nightDrive} << QString();
        QTest::newRow("archived, no match") << u"vimeo"_s << true << QStringList{} << u"Nothing archived yet"_s;
    }
    void searchAndArchivedFilter() {
        QFETCH(QString, search);
        QFETCH(bool, archivedOnly);
        QFETCH(QStringList, titles);
        QFETCH(QString, emptyTitle);
        Harness h;
        QTest::keyClicks(h.view->searchField(), search);
        h.view->archivedToggle()->setChecked(archivedOnly);
        QCOMPARE(h.titles(), titles);
        QCOMPARE(h.view->countLabel()->text(), u"%1 of 4"_s.arg(titles.size()));
        QCOMPARE(h.view->isShowingEmptyState(), !emptyTitle.isEmpty());
        if (!emptyTitle.isEmpty())
            QCOMPARE(h.view->findChild<QLabel *>(u"emptyTitle"_s)->text(), emptyTitle);
    }

    // Every change goes through the store, the list follows the store, and the file holds it.
    void changesGoThroughTheStore_data() {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QStringList>("titles");   // shown afterwards
        QTest::addColumn<QStringList>("archived"); // archived titles in the file afterwards
        QTest::newRow("archive from the row button") << u"archiveButton"_s << allTitles
                                                     << QStringList{wonderwall, nightDrive};
        QTest::newRow("unarchive from the menu") << u"unarchiveMenu"_s << allTitles << QStringList{};
        QTest::newRow("remove from the row button") << u"removeButton"_s << QStringList{wonderwall, nightDrive, cafe}
                                                    << QStringList{nightDrive};
        QTest::newRow("delete from the menu") << u"deleteMenu"_s << QStringList{nightDrive, interview, cafe}
                                              << QStringList{nightDrive};
        QTest::newRow("clear keeps the archived") << u"clear"_s << QStringList{nightDrive} << QStringList{nightDrive};
        QTest::newRow("clear cancelled") << u"cancelClear"_s << allTitles << QStringList{nightDrive};
    }
    void changesGoThroughTheStore() {
        QFETCH(QString, action);
        QFETCH(QStringList, titles);
        QFETCH(QStringList, archived);
        Harness h;
        if (action == u"archiveButton"_s) {
            QTest::mouseClick(h.rowButton(wonderwall, u"archive"_s), Qt::LeftButton);
        } else if (action == u"unarchiveMenu"_s) {
            h.trigger(nightDrive, u"Unarchive"_s);
        } else if (action == u"removeButton"_s) {
            QTest::mouseClick(h.rowButton(interview, u"remove"_s), Qt::LeftButton);
        } else if (action == u"deleteMenu"_s) {
            h.trigger(wonderwall, u"Delete from History"_s);
        } else if (action.endsWith(u"lear"_s)) {
            QTest::mouseClick(h.view->clearButton(), Qt::LeftButton);
            auto *box = h.view->findChild<QMessageBox *>(u"confirmClear"_s);
            (action == u"clear"_s ? box->findChild<QAbstractButton *>(u"confirmClearButton"_s)
                                  : box->button(QMessageBox::Cancel))->click();
            QTRY_VERIFY(!h.view->isConfirmingClear());
        }
        QCOMPARE(h.titles(), titles);
        // Only archived entries left: nothing more to clear.
        QCOMPARE(h.view->clearButton()->isEnabled(), titles != archived);
        QCOMPARE(h.view->countLabel()->text(), u"%1 of %1"_s.arg(titles.size()));
        QCOMPARE(h.onDisk(), std::make_pair(titles, archived));
        QVERIFY(QFileInfo::exists(QFileInfo(h.historyFile).path() + u"/Downloads/Wonderwall lesson.mp4"_s)); // files are never touched
    }

    // A click copies the link and puts the chip on that row at once; the chip moves with the
    // next copy and its timer clears it. Every control is named, and rows read their texts
    // (archived rows say so first).
    void copyChipAndNames() {
        Harness h;
        h.rowButton(wonderwall, u"archive"_s); // the row buttons are shown too
        ui_test::verifyNamedControls(h.view.get());
        QAccessibleInterface *list = QAccessible::queryAccessibleInterface(h.view->list());
        QCOMPARE(list->child(1)->text(QAccessible::Name), u"Archived, Night Drive, SoundCloud, Music, 4 hours ago"_s);
        HistoryModel *model = h.view->model();
        h.view->setCopiedChipDuration(60000);
        h.click(interview);
        QCOMPARE(QApplication::clipboard()->text(), u"https://vimeo.com/42"_s);
        for (int row = 0; row < model->rowCount(); ++row)
            QCOMPARE(model->data(model->index(row), Qt::AccessibleTextRole).toString().endsWith(u"Link copied \u2014 paste anywhere"_s),
                     model->entryAt(row).title() == interview);
        // Another row takes the chip with its own (short) timer; the first, long one is not in charge.
        h.view->setCopiedChipDuration(50);
        h.click(nightDrive);
        QCOMPARE(h.view->copiedID(), std::optional<QUuid>(h.entry(nightDrive).id()));
        QTRY_VERIFY(!h.view->copiedID());
        QCOMPARE(list->child(0)->text(QAccessible::Name), u"Wonderwall lesson, YouTube, Tutorials, 2 hours ago"_s);
    }

    void contextMenu_data() {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QStringList>("entries");
        const QStringList common{u"Copy Link"_s, u"Download Again"_s};
        QTest::newRow("file present") << wonderwall
                                      << common + QStringList{u"Show in Folder"_s, u"-"_s, u"Archive"_s, u"Delete from History"_s};
        QTest::newRow("file moved, archived") << nightDrive
                                              << common + QStringList{u"-"_s, u"Unarchive"_s, u"Delete from History"_s};
    }
    void contextMenu() {
        QFETCH(QString, title);
        QFETCH(QStringList, entries);
        Harness h;
        QCOMPARE(h.menu(title), entries);
        if (entries.contains(u"Show in Folder"_s)) {
            h.trigger(title, u"Show in Folder"_s);
            QCOMPARE(h.revealed, QList<QUrl>{QUrl::fromLocalFile(*h.entry(title).filePath())});
            // Deleted since: the entry is gone from the next menu.
            QFile::remove(*h.entry(title).filePath());
            QVERIFY(!h.menu(title).contains(u"Show in Folder"_s));
        }
    }

    // A half-written file reads as an empty history and is set aside whole, never
    // saved over, even when the user changes the filters.
    void badFileShowsEmptyAndIsSetAside() {
        const QByteArray good = HistoryJson::encode({HistoryEntry()});
        const QByteArray content = good.left(good.size() / 2);
        Harness h(&content);
        QVERIFY(h.view->isShowingEmptyState() && !h.view->clearButton()->isEnabled());
        QTest::keyClicks(h.view->searchField(), u"abc"_s);
        h.view->archivedToggle()->setChecked(true);
        h.store->waitForPendingSave();
        const QFileInfo file(h.historyFile);
        const QStringList aside = file.dir().entryList({file.fileName() + u".unreadable-*"_s}, QDir::Files | QDir::Hidden);
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
};

VORLIX_TEST_SUITE(HistoryViewTest)
#include "HistoryViewTest.moc"

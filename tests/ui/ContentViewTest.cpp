#include "UiHarness.h"

#include "engine/SelfHealer.h"
#include "queue/ClipboardSource.h"
#include "queue/ClipboardWatcher.h"
#include "ui/BatchSheet.h"
#include "ui/ContentView.h"
#include "ui/ItemRow.h"
#include "ui/OptionsSheet.h"
#include "ui/QueueList.h"

#include <QMimeData>
#include <QScrollBar>

using namespace Qt::StringLiterals;

namespace {

struct FakeClipboard : ClipboardSource {
    std::optional<QString> current;
    qint64 changeCount() const override { return 0; }
    std::optional<QString> text() const override { return current; }
};

// Probes held and an analysis that finds nothing.
DownloadQueue::Services services() {
    DownloadQueue::Services s;
    s.analyze = [](QUrl) -> QCoro::Task<std::pair<std::optional<double>, std::optional<QString>>> { co_return {}; };
    return s;
}

// The window over a real queue.
struct Harness : ui_test::QueueHarness {
    FakeClipboard clipboard;
    std::unique_ptr<SelfHealer> healer;
    std::unique_ptr<ClipboardWatcher> watcher;
    std::unique_ptr<ContentView> view;

    Harness() : QueueHarness({}, services()) {
        settings.setMaxConcurrent(1);
        settings.setDownloadFolderPath(dir + u"/Downloads"_s);
        healer = std::make_unique<SelfHealer>(settings, [] { return u"/nonexistent/yt-dlp"_s; },
                                              [] { return 0.0; });
        watcher = std::make_unique<ClipboardWatcher>(clipboard, settings, *queue);
        view = std::make_unique<ContentView>(*queue, settings, *healer, *watcher, clipboard);
        view->resize(860, 560);
    }
    ~Harness() {
        view.reset();
        windDown();
    }
    template <typename T> T *child(const QString &name) const { return view->findChild<T *>(name); }
    void add(int count) {
        for (int i = 0; i < count; ++i)
            queue->add(u"https://a.example/v/"_s + QString::number(i));
    }
};

} // namespace

class ContentViewTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { Brand::applyDarkAppearance(*qApp); }

    void linkBarQueuesEveryLinkOnReturn_data() {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QStringList>("queued");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("fieldAfter");
        QTest::newRow("two links") << u"https://a.example/v/1 https://b.example/v/2"_s
                                   << QStringList{u"https://b.example/v/2"_s, u"https://a.example/v/1"_s}
                                   << u"Queued 2 links"_s << QString();
        QTest::newRow("one link clears the message")
            << u"see https://a.example/v/1."_s << QStringList{u"https://a.example/v/1"_s}
            << QString() << QString();
        QTest::newRow("no link keeps the text") << u"just some words"_s << QStringList{}
                                                << u"earlier"_s << u"just some words"_s;
        QTest::newRow("blanks") << u" \t "_s << QStringList{} << u"earlier"_s << u" \t "_s;
    }
    void linkBarQueuesEveryLinkOnReturn() {
        QFETCH(QString, typed);
        QFETCH(QStringList, queued);
        QFETCH(QString, message);
        QFETCH(QString, fieldAfter);
        Harness h;
        h.queue->setLastMessage(u"earlier"_s);
        h.view->linkBar()->setText(typed);
        QCOMPARE(h.child<QPushButton>(u"download"_s)->isEnabled(), !typed.trimmed().isEmpty());
        QTest::keyClick(h.view->linkBar(), Qt::Key_Return);
        QCOMPARE(h.urls(), queued);
        QCOMPARE(h.message(), message);
        QCOMPARE(h.view->linkBar()->text(), fieldAfter);
        QCOMPARE(h.child<ElidedLabel>(u"lastMessage"_s)->fullText(), message);
    }

    void queueTabCountsWaitingAndActiveItems() {
        Harness h;
        h.view->show();
        QLabel *count = h.child<QLabel>(u"queueCount"_s);
        QVERIFY(!count->isVisible());
        QVERIFY(h.child<QWidget>(u"emptyState"_s)->isVisible());
        h.add(3);
        QTRY_VERIFY(count->isVisible()); // one probing, two waiting
        QCOMPARE(count->text(), u"3"_s);
        auto *clear = h.child<QPushButton>(u"clearFinished"_s);
        QVERIFY(!clear->isEnabled());
        for (const DownloadItemPtr &item : h.queue->items())
            h.queue->cancel(item);
        QTRY_VERIFY(!count->isVisible());
        QVERIFY(clear->isEnabled());
        QTest::mouseClick(clear, Qt::LeftButton);
        QVERIFY(h.queue->items().isEmpty());
        QTRY_VERIFY(h.child<QWidget>(u"emptyState"_s)->isVisible());
    }

    // Ctrl+B collects links from pasted text and queues them in one go, in the chosen mode.
    void batchSheetCountsAndQueuesLinks() {
        Harness h;
        h.view->show();
        h.view->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(h.view.get()));
        QTest::keyClick(h.view->linkBar(), Qt::Key_B, Qt::ControlModifier);
        auto *sheet = h.view->findChild<BatchSheet *>();
        QVERIFY(sheet && sheet->isModal() && sheet->isVisible());
        QCOMPARE(AccessibleNames::unnamedControls(sheet), QStringList());
        auto *count = sheet->findChild<QLabel *>(u"linkCount"_s);
        auto *download = sheet->findChild<QPushButton *>(u"download"_s);
        QVERIFY(count->text() == u"No links found yet"_s && !download->isEnabled());
        for (const QString &pasted : {u"lesson: https://a.example/v/1"_s, u"and <https://b.example/v/2>"_s}) {
            h.clipboard.current = pasted;
            sheet->pasteFromClipboard();
        }
        QCOMPARE(count->text() + u'|' + download->text(), u"2 links found|Download 2"_s);
        sheet->findChild<QComboBox *>(u"modePicker"_s)->setCurrentIndex(1);
        QTest::mouseClick(download, Qt::LeftButton);
        QCOMPARE(h.urls(), (QStringList{u"https://b.example/v/2"_s, u"https://a.example/v/1"_s}));
        QCOMPARE(h.queue->items().first()->mode(), DownloadMode::videoOnly);
        QCOMPARE(h.queue->lastMessage().value_or(QString()), u"Queued 2 links"_s);
        QTRY_VERIFY(!h.view->findChild<BatchSheet *>());
    }

    // Links dropped on the window are queued; a dropped local file is not a link.
    void droppedLinksAreQueued() {
        Harness h;
        h.view->show();
        for (const bool asUrls : {true, false}) {
            QMimeData data;
            if (asUrls)
                data.setUrls({QUrl(u"https://a.example/v/1"_s), QUrl::fromLocalFile(u"/tmp/x.mp4"_s)});
            else
                data.setText(u"https://b.example/v/2"_s);
            QDropEvent event(QPointF(20, 20), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
            static_cast<QObject *>(h.view.get())->event(&event); // outside a real drag the application filters drops
            QVERIFY(event.isAccepted());
        }
        QCOMPARE(h.urls(), (QStringList{u"https://b.example/v/2"_s, u"https://a.example/v/1"_s}));
    }

    void optionsSheetValidatesTimesAndHandsOverTheChoice() {
        Harness h;
        h.view->show();
        h.view->linkBar()->setText(u"https://a.example/v/1"_s);
        h.view->showOptions();
        auto *sheet = h.view->findChild<OptionsSheet *>();
        QCOMPARE(AccessibleNames::unnamedControls(sheet), QStringList());
        auto *from = sheet->findChild<QLineEdit *>(u"clipStart"_s);
        auto *download = sheet->findChild<QPushButton *>(u"download"_s);
        auto *warning = sheet->findChild<QLabel *>(u"timeWarning"_s);
        from->setText(u"1:2:3:4"_s);
        QVERIFY(!sheet->timesValid() && warning->isVisible() && !download->isEnabled());
        from->setText(u"1:20"_s);
        QVERIFY(download->isEnabled());
        auto *moments = sheet->findChild<QCheckBox *>();
        moments->setChecked(true);
        sheet->setMode(DownloadMode::audioOnly);
        QVERIFY(!moments->isVisible());
        sheet->setMode(DownloadMode::videoOnly);
        QTest::mouseClick(download, Qt::LeftButton);
        const DownloadItemPtr item = h.queue->items().first();
        QCOMPARE(item->mode(), DownloadMode::videoOnly);
        QCOMPARE(item->clip(), (ClipRange{u"1:20"_s, QString()}));
        QVERIFY(item->wantsMoments());
    }

    // A thousand rows cost a screenful of widgets, and scrolling shows the right items.
    void queueListRecyclesRows() {
        Harness h;
        h.add(1000);
        h.view->show();
        QueueList *list = h.view->queueList();
        QTRY_VERIFY(list->rowFor(h.queue->items().first()));
        list->verticalScrollBar()->setValue(list->verticalScrollBar()->maximum());
        QVERIFY(list->rowFor(h.queue->items().last()) && !list->rowFor(h.queue->items().first()));
        QVERIFY(list->rows().size() < 20);
        // A recycled row follows its new item's changes.
        const DownloadItemPtr last = h.queue->items().last();
        h.queue->cancel(last);
        QVERIFY(list->rowFor(last)->findChildren<QToolButton *>().first()->toolTip() == u"Remove"_s);
    }

    // A screen reader can say every control of the window, rows included (the sheets are
    // walked in their own tests).
    void everyControlHasAnAccessibleName() {
        Harness h;
        h.add(3);
        h.queue->items()[0]->setState(ItemState::failed(u"Video unavailable"_s));
        h.queue->items()[1]->setFinalFileURL(QUrl::fromLocalFile(h.dir + u"/clip.mp4"_s));
        h.queue->items()[1]->setState(ItemState::done());
        h.view->show();
        QTRY_VERIFY(h.view->queueList()->rowFor(h.queue->items()[1]));
        h.view->linkBar()->setText(u"https://a.example/v/9"_s); // shows its clear button
        ui_test::verifyNamedControls(h.view.get());
    }
};

VORLIX_TEST_SUITE(ContentViewTest)
#include "ContentViewTest.moc"

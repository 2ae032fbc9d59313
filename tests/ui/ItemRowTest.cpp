#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "ui/Brand.h"
#include "ui/ItemRow.h"
#include "ui/Spinner.h"
#include "ui/StatusChip.h"

#include <QApplication>
#include <QBuffer>
#include <QClipboard>
#include <QImage>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

namespace {
QStringList chipTexts(QWidget *within) {
    QStringList texts;
    for (StatusChip *chip : within->findChildren<StatusChip *>())
        if (!chip->isHidden())
            texts << chip->text();
    return texts;
}

QStringList buttonsOf(const ItemRow &row) {
    QStringList names;
    for (QToolButton *b : row.findChildren<QToolButton *>())
        names << b->toolTip();
    for (QPushButton *b : row.findChildren<QPushButton *>())
        names << b->text();
    return names;
}

QStringList entries(QMenu *menu) {
    QStringList texts;
    for (QAction *a : menu->actions())
        texts << (a->isSeparator() ? QStringLiteral("-") : QString(a->text()).replace(QStringLiteral("&&"), QStringLiteral("&")));
    return texts;
}

DownloadItemPtr finished(DownloadMode mode) {
    auto item = DownloadItem::make(QStringLiteral("https://example.com/v/1"), mode);
    item->setFinalFileURL(QUrl::fromLocalFile(QStringLiteral("/tmp/clip.mp4")));
    item->setState(ItemState::done());
    return item;
}
} // namespace

Q_DECLARE_METATYPE(ItemState)

class ItemRowTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { Brand::applyDarkAppearance(*qApp); }

    void statusAndButtonsFollowTheState_data() {
        QTest::addColumn<ItemState>("state");
        QTest::addColumn<QStringList>("statusChips");
        QTest::addColumn<QStringList>("buttons");
        const QStringList cancel{QStringLiteral("Cancel")};
        QTest::newRow("queued") << ItemState::queued() << QStringList{QStringLiteral("Queued")} << cancel;
        QTest::newRow("probing") << ItemState::probing() << QStringList{} << cancel;
        QTest::newRow("processing") << ItemState::processing(QStringLiteral("Tagging")) << QStringList{} << cancel;
        QTest::newRow("failed") << ItemState::failed(QStringLiteral("Video unavailable"))
                                << QStringList{QStringLiteral("Failed")} << QStringList{QStringLiteral("Retry")};
        QTest::newRow("cancelled") << ItemState::cancelled() << QStringList{QStringLiteral("Cancelled")}
                                   << QStringList{QStringLiteral("Remove")};
        QTest::newRow("done without file") << ItemState::done() << QStringList{QStringLiteral("Done")} << QStringList{};
    }
    void statusAndButtonsFollowTheState() {
        QFETCH(ItemState, state);
        QFETCH(QStringList, statusChips);
        QFETCH(QStringList, buttons);
        auto item = DownloadItem::make(QStringLiteral("https://example.com/v/1"), DownloadMode::bestVideoAudio);
        ItemRow row(item);
        item->setState(state); // redrawn from the item's change, not at construction
        QCOMPARE(chipTexts(row.findChild<QWidget *>(QStringLiteral("status"))), statusChips);
        QCOMPARE(buttonsOf(row), buttons);
        if (state.is(ItemState::Kind::failed))
            QCOMPARE(row.findChild<QLabel *>(QStringLiteral("failure"))->text(), QStringLiteral("Video unavailable"));
        if (state.is(ItemState::Kind::processing))
            QVERIFY(row.findChildren<QLabel *>().end() !=
                    std::find_if(row.findChildren<QLabel *>().begin(), row.findChildren<QLabel *>().end(),
                                 [](QLabel *l) { return l->text() == QLatin1String("Tagging"); }));
    }

    void cancellingTurnsCancelIntoRemove() {
        auto item = DownloadItem::make(QStringLiteral("https://example.com/v/1"), DownloadMode::audioOnly);
        ItemRow row(item);
        QSignalSpy cancel(&row, &ItemRow::cancelRequested);
        QSignalSpy remove(&row, &ItemRow::removeRequested);
        QTest::mouseClick(row.findChild<QToolButton *>(), Qt::LeftButton);
        QCOMPARE(cancel.size(), 1);
        item->setState(ItemState::cancelled());
        QCOMPARE(buttonsOf(row), QStringList{QStringLiteral("Remove")});
        QTest::mouseClick(row.findChild<QToolButton *>(), Qt::LeftButton);
        QCOMPARE(remove.size(), 1);
        QCOMPARE(remove.first().first().value<DownloadItemPtr>(), item);
    }

    void downloadingLine_data() {
        QTest::addColumn<QString>("speed");
        QTest::addColumn<bool>("speedShown");
        QTest::newRow("no speed yet") << QString() << false;
        QTest::newRow("speed and eta") << QStringLiteral("2.1MiB/s") << true;
    }
    void downloadingLine() {
        QFETCH(QString, speed);
        QFETCH(bool, speedShown);
        auto item = DownloadItem::make(QStringLiteral("https://example.com/v/1"), DownloadMode::bestVideoAudio);
        ItemRow row(item);
        row.show();
        item->setState(ItemState::downloading());
        item->setProgress(0.427);
        item->setSpeedText(speed);
        item->setEtaText(QStringLiteral("00:12"));
        QTRY_COMPARE(row.findChild<QLabel *>(QStringLiteral("percent"))->text(), QStringLiteral("42%"));
        QLabel *line = row.findChild<QLabel *>(QStringLiteral("speed"));
        QCOMPARE(line->isVisible(), speedShown);
        if (speedShown)
            QCOMPARE(line->text(), QStringLiteral("2.1MiB/s · ETA 00:12"));
        // A burst of ticks is one refresh, updates the same widgets and creates none.
        QLabel *percent = row.findChild<QLabel *>(QStringLiteral("percent"));
        const qsizetype widgets = row.findChildren<QWidget *>().size();
        QTest::qWait(ItemRow::minRefreshMs);
        const quint64 before = ItemRow::refreshCount();
        for (int i = 0; i <= 50; ++i) {
            item->setProgress(0.5 + i * 0.01);
            item->setSpeedText(speed);
            item->setEtaText(QString::number(i));
        }
        QTRY_COMPARE(percent->text(), QStringLiteral("100%"));
        QCOMPARE(ItemRow::refreshCount() - before, quint64(1));
        QCOMPARE(row.findChild<QLabel *>(QStringLiteral("percent")), percent);
        QCOMPARE(row.findChildren<QWidget *>().size(), widgets);
    }

    // Busy rows turn a real indicator; the shared timer runs only while one is on screen.
    void spinnerTurnsOnlyWhileShown() {
        auto item = DownloadItem::make(QStringLiteral("https://example.com/v/1"), DownloadMode::bestVideoAudio);
        ItemRow row(item);
        row.resize(600, 95);
        item->setState(ItemState::probing());
        QVERIFY(!Spinner::isTicking());
        row.show();
        auto *spinner = row.findChild<Spinner *>(QStringLiteral("spinner"));
        QVERIFY(spinner && Spinner::isTicking());
        const QImage before = spinner->grab().toImage();
        QTRY_VERIFY(spinner->grab().toImage() != before); // it turns
        row.hide();
        QVERIFY(!Spinner::isTicking());
        row.show();
        item->setState(ItemState::processing(QStringLiteral("Tagging")));
        QTRY_VERIFY(Spinner::isTicking()); // a new child of a shown row appears on the next turn
        item->setState(ItemState::downloading());
        QVERIFY(!row.findChild<Spinner *>());
        QVERIFY(!Spinner::isTicking());
    }

    void metadataChips() {
        auto item = DownloadItem::make(QStringLiteral("https://example.com/v/1"), DownloadMode::audioOnly,
                                       ClipRange{QStringLiteral("1:20"), QString()});
        ItemRow row(item);
        item->setCategory(QStringLiteral("Tutorials"));
        item->setDetectedBPM(127.6);
        item->setDetectedKey(QStringLiteral("A minor"));
        item->setDidSelfHeal(true);
        const auto metadata = [&row] {
            QStringList chips = chipTexts(&row);
            chips.removeAll(QStringLiteral("Queued"));
            return chips;
        };
        QTRY_COMPARE(metadata(), (QStringList{QStringLiteral("Audio only"), QStringLiteral("Tutorials"), QStringLiteral("1:20–end"),
                                     QStringLiteral("128 BPM"), QStringLiteral("A minor"), QStringLiteral("self-healed")}));
        for (StatusChip *chip : row.findChildren<StatusChip *>())
            if (chip->text() == QLatin1String("self-healed"))
                QCOMPARE(chip->toolTip(), QStringLiteral("The engine auto-updated itself to complete this download"));
        QCOMPARE(ItemRow::clipText(ClipRange{QString(), QStringLiteral("2:45")}), QStringLiteral("start–2:45"));
    }

    void contextMenuPerItem_data() {
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("transcribed");
        QTest::addColumn<QStringList>("expected");
        const QString show = QStringLiteral("Show in Folder"), open = QStringLiteral("Open"), sep = QStringLiteral("-"),
                      moments = QStringLiteral("Smart Moments…"), practice = QStringLiteral("Practice Versions"),
                      copy = QStringLiteral("Copy Link"), remove = QStringLiteral("Remove from List");
        QTest::newRow("video") << int(DownloadMode::bestVideoAudio) << false
                               << QStringList{show, open, sep, moments, practice, QStringLiteral("Transcribe + Summarize"), sep, copy, remove};
        QTest::newRow("audio only") << int(DownloadMode::audioOnly) << false
                                    << QStringList{show, open, sep, practice, QStringLiteral("Transcribe + Summarize"), sep, copy, remove};
        QTest::newRow("transcribed") << int(DownloadMode::videoOnly) << true
                                     << QStringList{show, open, sep, moments, practice, QStringLiteral("Open Transcript"),
                                                    QStringLiteral("Open Summary"), sep, copy, remove};
    }
    void contextMenuPerItem() {
        QFETCH(int, mode);
        QFETCH(bool, transcribed);
        QFETCH(QStringList, expected);
        auto item = finished(DownloadMode(mode));
        if (transcribed) {
            item->setTranscriptURL(QUrl::fromLocalFile(QStringLiteral("/tmp/clip.srt")));
            item->setSummaryURL(QUrl::fromLocalFile(QStringLiteral("/tmp/clip.summary.txt")));
        }
        ItemRow row(item);
        std::unique_ptr<QMenu> menu(row.buildContextMenu());
        QCOMPARE(entries(menu.get()), expected);
        QMenu *practice = nullptr;
        for (QAction *a : menu->actions())
            if (a->menu())
                practice = a->menu();
        QVERIFY(practice);
        QCOMPARE(entries(practice), (QStringList{QStringLiteral("Detect BPM & Key"), QStringLiteral("-"),
                                                 QStringLiteral("50% speed"), QStringLiteral("75% speed"),
                                                 QStringLiteral("90% speed"), QStringLiteral("-"),
                                                 QStringLiteral("-2 semitones"), QStringLiteral("-1 semitone"),
                                                 QStringLiteral("+1 semitone"), QStringLiteral("+2 semitones")}));
        QSignalSpy pitch(&row, &ItemRow::pitchRequested);
        practice->actions().last()->trigger();
        QCOMPARE(pitch.size(), 1);
        QCOMPARE(pitch.first().at(1).toInt(), 2);
        const bool hasMomentsButton = buttonsOf(row).filter(QStringLiteral("Smart Moments")).size() == 1;
        QCOMPARE(hasMomentsButton, DownloadMode(mode) != DownloadMode::audioOnly);
        if (transcribed)
            QCOMPARE(chipTexts(row.findChild<QWidget *>(QStringLiteral("status"))),
                     (QStringList{QStringLiteral("Done"), QStringLiteral("Transcript"), QStringLiteral("Summary")}));
    }

    void copyLinkAndUnfinishedMenu() {
        auto item = DownloadItem::make(QStringLiteral("https://example.com/v/9"), DownloadMode::bestVideoAudio);
        ItemRow row(item);
        std::unique_ptr<QMenu> menu(row.buildContextMenu());
        QCOMPARE(entries(menu.get()), (QStringList{QStringLiteral("Copy Link"), QStringLiteral("Remove from List")}));
        QApplication::clipboard()->setText(QStringLiteral("something else"));
        menu->actions().first()->trigger();
        QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("https://example.com/v/9"));
    }

    void thumbnailLoadsOrKeepsPlaceholder_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("loads");
        QTest::newRow("picture") << QStringLiteral("/thumb.png") << true;
        QTest::newRow("missing") << QStringLiteral("/missing.png") << false;
        QTest::newRow("garbage") << QStringLiteral("/garbage.png") << false;
    }
    void thumbnailLoadsOrKeepsPlaceholder() {
        QFETCH(QString, path);
        QFETCH(bool, loads);
        FixtureSite site;
        QVERIFY(site.isRunning());
        QImage picture(160, 90, QImage::Format_RGB32);
        picture.fill(QColor(0, 200, 0));
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        picture.save(&buffer, "PNG");
        site.put(QStringLiteral("thumb.png"), png);
        site.put(QStringLiteral("garbage.png"), QByteArray("not a picture at all"));

        auto item = DownloadItem::make(QStringLiteral("https://example.com/v/2"), DownloadMode::bestVideoAudio);
        ItemRow row(item);
        QLabel *thumb = row.findChild<QLabel *>(QStringLiteral("thumbnail"));
        const QImage placeholder = thumb->pixmap().toImage();
        item->setThumbnailURL(QUrl(site.url(path)));
        auto centreIsGreen = [&] {
            const QColor c = thumb->pixmap().toImage().pixelColor(ItemRow::thumbnailSize.width() / 2,
                                                                  ItemRow::thumbnailSize.height() / 2);
            return c.green() > 180 && c.red() < 40;
        };
        if (loads) {
            QTRY_VERIFY_WITH_TIMEOUT(centreIsGreen(), 5000);
        } else {
            QTRY_VERIFY_WITH_TIMEOUT(site.requests().filter(path).size() == 1, 5000);
            QTest::qWait(200);
            QCOMPARE(thumb->pixmap().toImage(), placeholder);
        }
    }
};

VORLIX_TEST_SUITE(ItemRowTest)
#include "ItemRowTest.moc"

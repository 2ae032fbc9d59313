#include "UiHarness.h"

#include "ui/ItemRow.h"
#include "ui/StatusChip.h"

using namespace Qt::StringLiterals;

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

DownloadItemPtr item(DownloadMode mode = DownloadMode::bestVideoAudio, std::optional<ClipRange> clip = {}) {
    return DownloadItem::make(u"https://example.com/v/1"_s, mode, clip);
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
        const QStringList cancel{u"Cancel"_s};
        QTest::newRow("queued") << ItemState::queued() << QStringList{u"Queued"_s} << cancel;
        QTest::newRow("processing") << ItemState::processing(u"Tagging"_s) << QStringList{} << cancel;
        QTest::newRow("failed") << ItemState::failed(u"Video unavailable"_s) << QStringList{u"Failed"_s}
                                << QStringList{u"Retry"_s};
        QTest::newRow("cancelled") << ItemState::cancelled() << QStringList{u"Cancelled"_s} << QStringList{u"Remove"_s};
        QTest::newRow("done without file") << ItemState::done() << QStringList{u"Done"_s} << QStringList{};
    }
    void statusAndButtonsFollowTheState() {
        QFETCH(ItemState, state);
        QFETCH(QStringList, statusChips);
        QFETCH(QStringList, buttons);
        auto it = item();
        ItemRow row(it);
        it->setState(state); // redrawn from the item's change, not at construction
        QCOMPARE(chipTexts(row.findChild<QWidget *>(u"status"_s)), statusChips);
        QCOMPARE(buttonsOf(row), buttons);
        QStringList texts;
        for (QLabel *l : row.findChildren<QLabel *>())
            texts << l->text();
        if (!state.text().isEmpty()) // the failure, or the step under way
            QVERIFY2(texts.contains(state.text()), qPrintable(texts.join(u'|')));
    }

    void cancellingTurnsCancelIntoRemove() {
        auto it = item(DownloadMode::audioOnly);
        ItemRow row(it);
        QSignalSpy cancel(&row, &ItemRow::cancelRequested);
        QSignalSpy remove(&row, &ItemRow::removeRequested);
        QTest::mouseClick(row.findChild<QToolButton *>(), Qt::LeftButton);
        it->setState(ItemState::cancelled());
        QTest::mouseClick(row.findChild<QToolButton *>(), Qt::LeftButton);
        QVERIFY(cancel.size() == 1 && remove.size() == 1);
        QCOMPARE(remove.first().first().value<DownloadItemPtr>(), it);
    }

    // Percent, speed and ETA (no line before a speed is known); a burst of ticks is one
    // refresh that reuses the row's widgets.
    void downloadingLine() {
        auto it = item();
        ItemRow row(it);
        row.show();
        it->setState(ItemState::downloading());
        it->setProgress(0.427);
        it->setEtaText(u"00:12"_s);
        QLabel *percent = row.findChild<QLabel *>(u"percent"_s);
        QLabel *line = row.findChild<QLabel *>(u"speed"_s);
        QTRY_COMPARE(percent->text(), u"42%"_s);
        QVERIFY(!line->isVisible());
        it->setSpeedText(u"2.1MiB/s"_s);
        QTRY_COMPARE(line->text(), u"2.1MiB/s · ETA 00:12"_s);
        QVERIFY(line->isVisible());
        const qsizetype widgets = row.findChildren<QWidget *>().size();
        const quint64 before = ItemRow::refreshCount();
        for (int i = 0; i <= 50; ++i) {
            it->setProgress(0.5 + i * 0.01);
            it->setEtaText(QString::number(i));
        }
        QTRY_COMPARE(percent->text(), u"100%"_s);
        QCOMPARE(ItemRow::refreshCount() - before, quint64(1));
        QCOMPARE(row.findChildren<QWidget *>().size(), widgets);
    }

    void contextMenuPerItem_data() {
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("transcribed");
        QTest::addColumn<QStringList>("expected");
        const QStringList head{u"Show in Folder"_s, u"Open"_s, u"-"_s}, tail{u"-"_s, u"Copy Link"_s, u"Remove from List"_s};
        const QString moments = u"Smart Moments…"_s, practice = u"Practice Versions"_s, transcribe = u"Transcribe + Summarize"_s;
        QTest::newRow("video") << int(DownloadMode::bestVideoAudio) << false
                               << head + QStringList{moments, practice, transcribe} + tail;
        QTest::newRow("audio only") << int(DownloadMode::audioOnly) << false << head + QStringList{practice, transcribe} + tail;
        QTest::newRow("transcribed") << int(DownloadMode::videoOnly) << true
                                     << head + QStringList{moments, practice, u"Open Transcript"_s, u"Open Summary"_s} + tail;
        QTest::newRow("unfinished") << -1 << false << QStringList{u"Copy Link"_s, u"Remove from List"_s};
    }
    void contextMenuPerItem() {
        QFETCH(int, mode);
        QFETCH(bool, transcribed);
        QFETCH(QStringList, expected);
        auto it = item(mode < 0 ? DownloadMode::bestVideoAudio : DownloadMode(mode));
        if (mode >= 0) {
            it->setFinalFileURL(QUrl::fromLocalFile(u"/tmp/clip.mp4"_s));
            it->setState(ItemState::done());
        }
        if (transcribed) {
            it->setTranscriptURL(QUrl::fromLocalFile(u"/tmp/clip.srt"_s));
            it->setSummaryURL(QUrl::fromLocalFile(u"/tmp/clip.summary.txt"_s));
        }
        ItemRow row(it);
        std::unique_ptr<QMenu> menu(row.buildContextMenu());
        QCOMPARE(ui_test::menuTexts(menu.get()), expected);
        if (mode < 0)
            return;
        QMenu *practice = ui_test::menuAction(menu.get(), u"Practice Versions"_s)->menu();
        QSignalSpy pitch(&row, &ItemRow::pitchRequested);
        ui_test::menuAction(practice, u"+2 semitones"_s)->trigger();
        QCOMPARE(pitch.value(0).value(1).toInt(), 2);
        QCOMPARE(buttonsOf(row).filter(u"Smart Moments"_s).size(), DownloadMode(mode) == DownloadMode::audioOnly ? 0 : 1);
    }

};

VORLIX_TEST_SUITE(ItemRowTest)
#include "ItemRowTest.moc"

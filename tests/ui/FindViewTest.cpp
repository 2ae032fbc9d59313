#include "analysis_music.h"
#include "UiHarness.h"

#include "ui/FindView.h"

#include <cmath>

using TranscriptSearch::Hit;

using namespace Qt::StringLiterals;

namespace {

QString stamp(double seconds) {
    const int ms = int(std::lround(seconds * 1000));
    return QString::asprintf("%02d:%02d:%02d,%03d", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000);
}

QByteArray cue(int index, double start, double end, const QString &text) {
    return (QString::number(index) + u'\n' + stamp(start) + u" --> "_s + stamp(end) + u'\n' + text + u"\n\n"_s).toUtf8();
}

// A 6-second clip with picture and sound, made once per run.
QString sharedClip() {
    static const QString clip = AnalysisMusic::copyOfRamp(TestEnv::root() + u"/find-media/clip.mp4"_s);
    return clip;
}

// A library in the download folder: one transcribed video with its media, one whose media is gone.
struct Harness : ui_test::QueueHarness {
    QString library = dir + u"/Downloads/Vorlix"_s;
    std::unique_ptr<FindView> view;
    QList<QUrl> revealed;

    Harness() {
        settings.setDownloadFolderPath(library);
        view = std::make_unique<FindView>(settings, *queue);
        view->setReveal([this](const QUrl &file) { revealed << file; });
        view->resize(760, 480);
    }
    ~Harness() {
        view.reset();
        windDown();
    }
    void writeLibrary() {
        const QString talk = library + u"/YouTube/Tutorials/Guitar Talk [abcd1234]"_s;
        TestEnv::writeFile(talk + u".srt"_s, cue(1, 1.0, 3.0, u"Let's talk about\nchord voicing"_s) + cue(2, 3.5, 4.5, u"and rhythm"_s));
        QVERIFY(QFile::copy(sharedClip(), talk + u".mp4"_s));
        TestEnv::writeFile(library + u"/Vimeo/Videos/Moved Lecture.srt"_s, cue(1, 65, 67, u"more Chord shapes"_s));
    }
    // Types the query and presses Return; true once the search has finished.
    bool search(const QString &text) {
        QSignalSpy finished(view.get(), &FindView::searchFinished);
        view->queryField()->setText(text);
        QTest::keyClick(view->queryField(), Qt::Key_Return);
        return !finished.isEmpty() || finished.wait(30000);
    }
    QString page() const { return view->findChild<QStackedWidget *>()->currentWidget()->objectName(); }
    QStringList rows() const {
        QStringList out;
        for (const Hit &hit : view->hits()) {
            QWidget *row = view->rowFor(hit.id);
            const auto *exportButton = row->findChild<QPushButton *>(u"exportClip"_s);
            out << row->findChild<ElidedLabel *>(u"videoName"_s)->fullText() + u'|' +
                       row->findChild<QLabel *>(u"timeLabel"_s)->text() + u'|' +
                       row->findChild<QLabel *>(u"cueText"_s)->text() + u'|' +
                       (exportButton ? exportButton->text() : row->findChild<QLabel *>(u"mediaMoved"_s)->text());
        }
        return out;
    }
};

} // namespace

class FindViewTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() {
        Brand::applyDarkAppearance(*qApp);
        QVERIFY2(!sharedClip().isEmpty(), "ffmpeg could not make the test clip");
    }

    // Welcome before any search, the no-match line after one, and rows in the engine's order.
    void searchResults_data() {
        QTest::addColumn<QString>("query");
        QTest::addColumn<QString>("page");
        QTest::addColumn<QStringList>("rows");
        QTest::newRow("no match") << u"zebra"_s << u"findNoMatches"_s << QStringList{};
        QTest::newRow("media present and moved")
            << u"  CHORD "_s << u"findResults"_s
            << QStringList{u"Guitar Talk|0:01|Let's talk about chord voicing|Export Clip"_s,
                           u"Moved Lecture|1:05|more Chord shapes|media file moved"_s};
    }
    void searchResults() {
        QFETCH(QString, query);
        QFETCH(QString, page);
        QFETCH(QStringList, rows);
        Harness h;
        h.writeLibrary();
        QCOMPARE(h.page(), u"findWelcome"_s);
        QVERIFY(h.search(query));
        QCOMPARE(h.page(), page);
        QCOMPARE(h.rows(), rows);
        // Each hit is one accessible row that reads its texts.
        for (const Hit &hit : h.view->hits())
            QCOMPARE(AccessibleNames::of(h.view->rowFor(hit.id)), hit.videoName + u", "_s + hit.timeLabel() + u", "_s + hit.text);
    }

    // A real cut: the clip's name, the status line and the reveal; a cut whose media
    // vanished after the search fails cleanly, leaves nothing in the Quotes folder and keeps the button.
    void exportClip_data() {
        QTest::addColumn<bool>("deleteMediaFirst");
        QTest::newRow("clip saved") << false;
        QTest::newRow("media deleted after the search") << true;
    }
    void exportClip() {
        QFETCH(bool, deleteMediaFirst);
        Harness h;
        h.writeLibrary();
        h.view->show();
        QVERIFY(h.search(u"voicing"_s));
        ui_test::verifyNamedControls(h.view.get()); // the one walk of this screen, rows and clear button shown
        const Hit hit = h.view->hits().at(0); // Guitar Talk
        if (deleteMediaFirst)
            QVERIFY(QFile::remove(*hit.videoFile));
        QWidget *row = h.view->rowFor(hit.id);
        QSignalSpy finished(h.view.get(), &FindView::exportFinished);
        QTest::mouseClick(row->findChild<QPushButton *>(u"exportClip"_s), Qt::LeftButton);
        QVERIFY(row->findChild<QWidget *>(u"exportProgress"_s)->isVisible());
        QVERIFY(finished.wait(60000));
        QVERIFY(row->findChild<QPushButton *>(u"exportClip"_s)->isVisible());

        const QString quotes = QFileInfo(*hit.videoFile).absolutePath() + u"/Guitar Talk — Quotes"_s;
        const QStringList files = QDir(quotes).entryList(QDir::Files | QDir::Hidden);
        if (deleteMediaFirst) {
            QCOMPARE(h.queue->lastMessage(), std::optional<QString>(u"Clip export failed"_s));
            QVERIFY(files.isEmpty() && h.revealed.isEmpty());
            return;
        }
        const QString name = u"Guitar Talk — “Let's talk about chord voicing” @ 0m01s.mp4"_s;
        QCOMPARE(files, QStringList{name});
        QCOMPARE(h.queue->lastMessage(), std::optional<QString>(u"Saved "_s + name));
        QCOMPARE(h.revealed, QList<QUrl>{QUrl::fromLocalFile(quotes + u'/' + name)});
    }

};

VORLIX_TEST_SUITE(FindViewTest)
#include "FindViewTest.moc"

#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "analysis_music.h"

#include "analysis/PracticeMode.h"
#include "engine/Tools.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

#include <algorithm>
#include <cmath>
#include <vector>

using PracticeMode::Analysis;
using PracticeMode::BeatGrid;

namespace {

QString media(const QString &name) { return TestEnv::root() + QStringLiteral("/media/") + name; }
QUrl mediaUrl(const QString &name) { return QUrl::fromLocalFile(media(name)); }

QString describe(const Analysis &a) {
    return QStringLiteral("bpm=%1 key=%2")
        .arg(a.bpm ? QString::number(*a.bpm) : QStringLiteral("none"), a.key.value_or(QStringLiteral("none")));
}

// A stand-in ffmpeg: records its arguments, writes `pcm` to standard output, then runs `end`.
QString stubFFmpeg(const QString &name, const QByteArray &pcm, const QString &end) {
    const QString payload = TestEnv::root() + u'/' + name + QStringLiteral(".payload");
    TestEnv::writeFile(payload, pcm);
    return TestEnv::writeStubTool(name, QStringLiteral("printf '%s\\n' \"$@\" > '%1.args'\ncat '%2'\n%3\n")
                                            .arg(TestEnv::toolDir() + u'/' + name, payload, end));
}

QStringList recordedArguments(const QString &stub) {
    return QString::fromUtf8(TestEnv::readFile(stub + QStringLiteral(".args"))).split(u'\n', Qt::SkipEmptyParts);
}

} // namespace

namespace PracticeMode {
char *toString(const Analysis &a) { return qstrdup(qPrintable(describe(a))); }
} // namespace PracticeMode

class PracticeModeTest : public QObject {
    Q_OBJECT
    QString ffmpeg;

private Q_SLOTS:
    void initTestCase() {
        ffmpeg = Tools::ffmpegURL();
        QVERIFY2(!ffmpeg.isEmpty(), "these tests need ffmpeg");
        QDir().mkpath(media(QString()));

        AnalysisMusic::Options clicks;
        for (const int bpm : {90, 150})
            QVERIFY(AnalysisMusic::clickTrack(media(QStringLiteral("clicks-%1.wav").arg(bpm)), bpm, clicks));
        // Compressed, stereo, 44.1 kHz, first beat late: the decoder has real work to do.
        AnalysisMusic::Options compressed;
        compressed.sampleRate = 44100;
        compressed.channels = 2;
        compressed.firstClick = 0.3;
        QVERIFY(AnalysisMusic::clickTrack(media(QStringLiteral("clicks-120.m4a")), 120, compressed));

        AnalysisMusic::Options chords;
        chords.seconds = 16;
        QVERIFY(AnalysisMusic::chordProgression(media(QStringLiteral("a-minor.wav")), 9, true, chords));
        chords.sampleRate = 44100;
        QVERIFY(AnalysisMusic::chordProgression(media(QStringLiteral("c-major.m4a")), 0, false, chords));
        QVERIFY(AnalysisMusic::song(media(QStringLiteral("song.mp3")), 2, true, 100, chords)); // D minor

        AnalysisMusic::Options quiet;
        quiet.seconds = 10;
        QVERIFY(AnalysisMusic::silence(media(QStringLiteral("silence.wav")), quiet));
        AnalysisMusic::Options brief;
        brief.seconds = 3;
        QVERIFY(AnalysisMusic::clickTrack(media(QStringLiteral("three-seconds.wav")), 120, brief));

        QVERIFY(TestEnv::writeFile(media(QStringLiteral("notes.m4a")), "Not audio, only text with a misleading name.\n"));
        QVERIFY(TestEnv::writeFile(media(QStringLiteral("empty.wav")), {}));
    }

    void tempoAndKey_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<double>("bpm"); // 0: not judged
        QTest::addColumn<QString>("key"); // empty: not judged
        QTest::newRow("90 BPM clicks") << QStringLiteral("clicks-90.wav") << 90.0 << QString();
        QTest::newRow("120 BPM clicks, AAC") << QStringLiteral("clicks-120.m4a") << 120.0 << QString();
        QTest::newRow("A minor chords") << QStringLiteral("a-minor.wav") << 0.0 << QStringLiteral("Am");
        QTest::newRow("C major chords, AAC") << QStringLiteral("c-major.m4a") << 0.0 << QStringLiteral("C");
        QTest::newRow("D minor song at 100 BPM, MP3") << QStringLiteral("song.mp3") << 100.0 << QStringLiteral("Dm");
    }

    void tempoAndKey() {
        QFETCH(QString, file);
        QFETCH(double, bpm);
        QFETCH(QString, key);
        const Analysis found = vtest::await(PracticeMode::analyze(mediaUrl(file)));
        if (bpm > 0) {
            QVERIFY2(found.bpm && std::abs(*found.bpm - bpm) <= 1.0, qPrintable(describe(found)));
            QCOMPARE(*found.bpm, std::round(*found.bpm * 10) / 10);
        }
        if (!key.isEmpty())
            QVERIFY2(found.key == key, qPrintable(describe(found)));
    }

    void beatGridOfClicks_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QList<double>>("tempi"); // any of these
        QTest::addColumn<double>("firstClick");
        QTest::newRow("120 BPM, first click at 0.3 s") << QStringLiteral("clicks-120.m4a") << QList<double>{120} << 0.3;
        QTest::newRow("90 BPM from the start") << QStringLiteral("clicks-90.wav") << QList<double>{90} << 0.0;
        // So little music settles on the octave below; the grid still lies on the clicks.
        QTest::newRow("3 s are enough for a grid") << QStringLiteral("three-seconds.wav") << QList<double>{60, 120} << 0.0;
    }

    void beatGridOfClicks() {
        QFETCH(QString, file);
        QFETCH(QList<double>, tempi);
        QFETCH(double, firstClick);
        const std::optional<BeatGrid> grid = vtest::await(PracticeMode::beatGrid(mediaUrl(file)));
        QVERIFY(grid);
        QVERIFY2(std::any_of(tempi.begin(), tempi.end(), [&](double t) { return std::abs(grid->bpm - t) <= 1.0; }),
                 qPrintable(QString::number(grid->bpm)));
        QVERIFY(grid->firstBeat >= 0 && grid->firstBeat < grid->beatLength());
        // Beats land on clicks. The onset frames are 46 ms long and a tempo a few tenths of a BPM
        // off drifts over the file, so "on" is within 0.1 s.
        const double clickPeriod = 60 / tempi.last();
        const double offset = std::fmod(grid->firstBeat - firstClick + 10 * clickPeriod, clickPeriod);
        const double distance = std::min(offset, clickPeriod - offset);
        QVERIFY2(distance < 0.1, qPrintable(QString::number(grid->firstBeat)));
    }

    void fiveSecondsAreNeededForAnAnalysis() {
        const Analysis found = vtest::await(PracticeMode::analyze(mediaUrl(QStringLiteral("three-seconds.wav"))));
        QVERIFY2(found == Analysis{}, qPrintable(describe(found)));
    }

    void unusableInputsYieldNothing_data() {
        QTest::addColumn<QUrl>("file");
        QTest::addColumn<QString>("tool");
        QTest::newRow("silence") << mediaUrl(QStringLiteral("silence.wav")) << ffmpeg;
        QTest::newRow("no ffmpeg") << mediaUrl(QStringLiteral("clicks-90.wav")) << QString();
        QTest::newRow("ffmpeg cannot start") << mediaUrl(QStringLiteral("clicks-90.wav")) << TestEnv::root() + QStringLiteral("/nowhere/ffmpeg");
        QTest::newRow("missing file") << mediaUrl(QStringLiteral("gone.m4a")) << ffmpeg;
        QTest::newRow("text with an audio name") << mediaUrl(QStringLiteral("notes.m4a")) << ffmpeg;
        QTest::newRow("zero-length file") << mediaUrl(QStringLiteral("empty.wav")) << ffmpeg;
        QTest::newRow("not a local file") << QUrl(QStringLiteral("https://example.com/song.mp3")) << ffmpeg;
    }

    void unusableInputsYieldNothing() {
        QFETCH(QUrl, file);
        QFETCH(QString, tool);
        QCOMPARE(vtest::await(PracticeMode::analyze(file, tool)), Analysis{});
        QVERIFY(!vtest::await(PracticeMode::beatGrid(file, tool)));
    }

    // The decoder's command line, and what happens with what it prints.
    void decoderRuns_data() {
        QTest::addColumn<QByteArray>("pcm");
        QTest::addColumn<QString>("end");
        QTest::addColumn<bool>("expectGrid");
        const auto samples = PracticeMode::readMonoWav16(media(QStringLiteral("clicks-90.wav")));
        QVERIFY(samples);
        QByteArray pcm;
        for (const float s : *samples) {
            const auto v = qint16(std::lround(s * 32768));
            pcm.append(char(v & 0xff)).append(char(v >> 8 & 0xff));
        }
        QTest::newRow("exit 0") << pcm << QStringLiteral("exit 0") << true;
        QTest::newRow("an odd last byte") << pcm + 'x' << QStringLiteral("exit 0") << true;
        QTest::newRow("stopped at the time-out") << pcm << QStringLiteral("exit 15") << false;
        QTest::newRow("killed") << pcm << QStringLiteral("kill -9 $$") << false;
        QTest::newRow("no output") << QByteArray() << QStringLiteral("exit 0") << false;
    }

    void decoderRuns() {
        QFETCH(QByteArray, pcm);
        QFETCH(QString, end);
        QFETCH(bool, expectGrid);
        const QString stub = stubFFmpeg(QStringLiteral("fake-ffmpeg"), pcm, end);
        const QString input = media(QStringLiteral("song.mp3"));

        const std::optional<BeatGrid> grid = vtest::await(PracticeMode::beatGrid(QUrl::fromLocalFile(input), stub));
        QCOMPARE(grid.has_value(), expectGrid);
        if (grid)
            QVERIFY2(std::abs(grid->bpm - 90) <= 1.0, qPrintable(QString::number(grid->bpm)));
        QStringList args = recordedArguments(stub);
        QCOMPARE(args, (QStringList{QStringLiteral("-nostdin"), QStringLiteral("-i"), input, QStringLiteral("-ac"),
                                    QStringLiteral("1"), QStringLiteral("-ar"), QStringLiteral("22050"), QStringLiteral("-t"),
                                    QStringLiteral("90"), QStringLiteral("-f"), QStringLiteral("s16le"), QStringLiteral("pipe:1")}));

        const Analysis analysis = vtest::await(PracticeMode::analyze(QUrl::fromLocalFile(input), stub));
        QCOMPARE(analysis.bpm.has_value(), expectGrid);
        QCOMPARE(recordedArguments(stub).value(8), QStringLiteral("120"));
    }

    // Analysing while decoding gives what the whole decoded file gives, to the last bit.
    void streamedEqualsWholeFile_data() {
        QTest::addColumn<QString>("file");
        QTest::newRow("clicks, AAC") << QStringLiteral("clicks-120.m4a");
        QTest::newRow("song, MP3") << QStringLiteral("song.mp3");
        QTest::newRow("chords") << QStringLiteral("c-major.m4a");
    }

    void streamedEqualsWholeFile() {
        QFETCH(QString, file);
        for (const QString &span : {QStringLiteral("120"), QStringLiteral("90")}) {
            const QString wav = media(QStringLiteral("whole.wav"));
            QVERIFY(TestEnv::runFfmpeg({QStringLiteral("-i"), media(file), QStringLiteral("-ac"), QStringLiteral("1"),
                                        QStringLiteral("-ar"), QStringLiteral("22050"), QStringLiteral("-t"), span, wav}));
            const auto samples = PracticeMode::readMonoWav16(wav);
            QFile::remove(wav);
            QVERIFY(samples);
            const auto onset = PracticeMode::onsetEnvelope(*samples);
            QVERIFY(onset);
            const auto bpm = PracticeMode::estimateBPM(*onset);
            QVERIFY(bpm);
            if (span == QLatin1String("120")) {
                const Analysis whole{bpm, PracticeMode::estimateKey(*samples)};
                QCOMPARE(vtest::await(PracticeMode::analyze(mediaUrl(file))), whole);
            } else {
                const auto grid = vtest::await(PracticeMode::beatGrid(mediaUrl(file)));
                QVERIFY(grid);
                const BeatGrid expected = PracticeMode::alignBeatGrid(*onset, *bpm);
                QVERIFY(grid->bpm == expected.bpm && grid->firstBeat == expected.firstBeat);
            }
        }
    }

    // No shared state: analyses started together each answer for their own file.
    void concurrentAnalysesKeepTheirOwnResults() {
        const QStringList files{QStringLiteral("clicks-90.wav"), QStringLiteral("a-minor.wav"),
                                QStringLiteral("clicks-150.wav"), QStringLiteral("c-major.m4a")};
        std::vector<Analysis> alone;
        for (const QString &f : files)
            alone.push_back(vtest::await(PracticeMode::analyze(mediaUrl(f))));
        std::vector<QCoro::Task<Analysis>> together;
        for (const QString &f : files)
            together.push_back(PracticeMode::analyze(mediaUrl(f)));
        for (size_t i = 0; i < together.size(); ++i)
            QCOMPARE(vtest::await(std::move(together[i])), alone[i]);
    }
};

VORLIX_TEST_SUITE(PracticeModeTest)
#include "PracticeModeTest.moc"

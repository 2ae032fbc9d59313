#include "Await.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "analysis_music.h"

#include "analysis/Summarizer.h"
#include "analysis/TranscriptSearch.h"
#include "analysis/Transcriber.h"
#include "core/AppSettings.h"
#include "engine/Tools.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <memory>

using TranscriptSearch::Hit;

namespace {

QByteArray cue(int index, double start, double end, const QString &text) {
    const auto stamp = [](double seconds) {
        const int ms = int(std::lround(seconds * 1000));
        return QString::asprintf("%02d:%02d:%02d,%03d", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000);
    };
    return QStringLiteral("%1\n%2 --> %3\n%4\n\n").arg(index).arg(stamp(start), stamp(end), text).toUtf8();
}

QStringList described(const QList<Hit> &hits) {
    QStringList out;
    for (const Hit &hit : hits)
        out << QStringLiteral("%1@%2-%3 %4").arg(hit.videoName).arg(hit.start).arg(hit.end).arg(hit.text);
    return out;
}


// n sentences that each carry content words of their own, so every one of them gets a score.
QString distinctSentences(int n) {
    QString text;
    for (int i = 0; i < n; ++i)
        text += QStringLiteral("Speaker mentions topic%1 and detail%1 here. ").arg(i);
    return text;
}

QStringList list(std::initializer_list<const char *> items) {
    QStringList out;
    for (const char *item : items)
        out << QString::fromUtf8(item);
    return out;
}


// Answers every request with the same bytes and hangs up: the model host's redirect, a dropped connection.
class OneAnswer : public QTcpServer {
public:
    explicit OneAnswer(const QByteArray &answer) {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this, answer] {
            QTcpSocket *socket = nextPendingConnection();
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QTcpSocket::readyRead, socket, [socket, answer, request = std::make_shared<QByteArray>()] {
                if ((*request += socket->readAll()).contains("\r\n\r\n") && socket->write(answer) > 0)
                    socket->disconnectFromHost();
            });
        });
    }
};

const QString modelFailure = QStringLiteral("Couldn't download the transcription model.");

} // namespace

class TranscriptsTest : public QObject {
    Q_OBJECT

    std::unique_ptr<FixtureSite> m_site;
    QByteArray m_model; // the tiny random-weights model the site serves as "ggml-tiny.bin"
    QString m_speech;   // a few seconds of synthetic speech (AAC in .m4a)

    struct Fixture {
        std::unique_ptr<QTemporaryDir> dir;
        std::unique_ptr<AppSettings> settings;
        std::unique_ptr<Transcriber> transcriber;
        QString modelsDir() const { return dir->path() + QStringLiteral("/models"); }
        QString media(const QString &name, const QString &speech) const { return QFile::copy(speech, dir->filePath(name)) ? dir->filePath(name) : QString(); }
        // A model already on disk, so nothing is downloaded.
        bool haveModel() const { return TestEnv::writeFile(transcriber->modelURL(), "model"); }
    };

    // A transcriber of its own: fresh models folder, whisperModel "tiny", the given repository and tools.
    Fixture make(const QString &repository, const QString &whisper, const QString &ffmpeg = TestEnv::ffmpeg()) {
        Fixture f;
        f.dir = std::make_unique<QTemporaryDir>(TestEnv::root() + QStringLiteral("/transcriber-XXXXXX"));
        f.settings = std::make_unique<AppSettings>(f.dir->path() + QStringLiteral("/settings.ini"));
        f.settings->setWhisperModel(QStringLiteral("tiny"));
        Transcriber::Setup setup;
        setup.settings = f.settings.get();
        setup.modelsDir = f.modelsDir();
        setup.modelRepository = QUrl(repository);
        setup.whisperURL = [whisper] { return whisper; };
        setup.ffmpegURL = [ffmpeg] { return ffmpeg; };
        f.transcriber = std::make_unique<Transcriber>(setup);
        return f;
    }

    QString repository() const { return m_site->url(QStringLiteral("/hf/resolve/main/")); }
    int modelRequests() const { return int(m_site->requests().filter(QStringLiteral("ggml-tiny.bin")).size()); }

    // A recording whisper-cli stand-in that runs `tail`.
    static QString stubWhisper(const QString &tail) { return TestEnv::standIn(QStringLiteral("whisper-cli"), QStringLiteral("base=\"$8\"\n") + tail); }
    static QStringList whisperArgs() { return TestEnv::standInArgs(QStringLiteral("whisper-cli")); }

private Q_SLOTS:
    void cuesAreParsedAndMatched() {
        const QByteArray two = cue(1, 1, 4, QStringLiteral("Let's talk about\nchord voicing")) + cue(2, 5, 7, QStringLiteral("and rhythm")) +
                               cue(3, 3725.25, 3726, QStringLiteral("more Chord shapes"));
        const QStringList both{QStringLiteral("Talk@1-4 Let's talk about chord voicing"), QStringLiteral("Talk@3725.25-3726 more Chord shapes")};
        const std::tuple<QByteArray, QString, QStringList> rows[] = {
            {two, QStringLiteral("Chord"), both}, // case ignored, lines joined
            {QByteArray(two).replace("\n", "\r\n"), QStringLiteral("chord"), both},
            {QByteArray("1\nchord without a time line\n\n2\n00:00:02,000 --> \nchord\n\n3\n00:00:xx --> 00:00:04,000\nchord\n\n"
                        "chord alone\n\n4\n00:00:01 --> 00:00:02 --> 00:00:03\nchord\n\n") + cue(5, 9, 10, QStringLiteral("  the good chord  ")),
             QStringLiteral("chord"), {QStringLiteral("Talk@9-10 the good chord")}}, // malformed cues skipped
            // Case folding maps the Kelvin sign onto an ASCII k.
            {cue(1, 2, 3, QStringLiteral("20 \u212Aelvin")), QStringLiteral("kelvin"), {QStringLiteral("Talk@2-3 20 \u212Aelvin")}},
            {QByteArray("\xff\xfe\x00\x01chord\x80\x81\n\n\xc3\x28", 14), QStringLiteral("chord"), {}}};
        QTemporaryDir dir;
        const QString srt = dir.filePath(QStringLiteral("Talk.srt"));
        for (const auto &[content, query, expected] : rows) {
            QVERIFY(TestEnv::writeFile(srt, content));
            const QList<Hit> hits = TranscriptSearch::matches(query, srt);
            QCOMPARE(described(hits), expected);
            QVERIFY(std::all_of(hits.begin(), hits.end(), [&](const Hit &hit) { return hit.srtFile == srt && !hit.videoFile; }));
        }
    }

    void searchWalksTheFolder() {
        QTemporaryDir dir;
        // B may come first in directory order; the result is sorted by video name, then time.
        QVERIFY(TestEnv::writeFile(dir.filePath(QStringLiteral("z/B.srt")), cue(1, 5, 6, QStringLiteral("the phrase")) + cue(2, 1, 2, QStringLiteral("the phrase"))));
        QVERIFY(TestEnv::writeFile(dir.filePath(QStringLiteral("a/A.srt")), cue(1, 30, 31, QStringLiteral("THE PHRASE")) + cue(2, 10, 11, QStringLiteral("the phrase"))));
        const QByteArray other = cue(1, 1, 2, QStringLiteral("the phrase"));
        for (const char *skipped : {".hidden.srt", ".cache/inside.srt", "notes.txt"})
            QVERIFY(TestEnv::writeFile(dir.filePath(QString::fromUtf8(skipped)), other));
        QDir().mkpath(dir.filePath(QStringLiteral("folder.srt"))); // a folder, not a file
        // Exactly at the size cap is read; one byte more is not.
        const QByteArray atCap = cue(1, 3, 4, QStringLiteral("the phrase")).leftJustified(8'000'000, ' ');
        QVERIFY(TestEnv::writeFile(dir.filePath(QStringLiteral("deep/er/CAP.SRT")), atCap));
        QVERIFY(TestEnv::writeFile(dir.filePath(QStringLiteral("over.srt")), atCap + ' '));
        QCOMPARE(described(TranscriptSearch::search(QStringLiteral(" \tphrase\t "), dir.path())),
                 (QStringList{QStringLiteral("A@10-11 the phrase"), QStringLiteral("A@30-31 THE PHRASE"), QStringLiteral("B@1-2 the phrase"),
                              QStringLiteral("B@5-6 the phrase"), QStringLiteral("CAP@3-4 the phrase")}));
        QVERIFY(TranscriptSearch::search(QStringLiteral("e"), dir.path()).isEmpty()); // one character is no query
        QVERIFY(TranscriptSearch::search(QStringLiteral("phrase"), QStringLiteral("/nonexistent/vorlix-nowhere")).isEmpty());
    }

    void clipNamesAndWindows() {
        Hit hit;
        hit.videoName = QStringLiteral("Guitar Talk");
        const std::tuple<QString, double, QString> names[] = {
            {QStringLiteral("AC/DC: live"), 5.9, QStringLiteral("Guitar Talk — “AC-DC- live” @ 0m05s.mp4")},
            {QStringLiteral("late"), 3725.0, QStringLiteral("Guitar Talk — “late” @ 1m02m05s.mp4")},
            // Cut at 32 characters, never inside a surrogate pair.
            {QStringLiteral("0123456789012345678901234567890🎸🎸"), 0.0, QStringLiteral("Guitar Talk — “0123456789012345678901234567890🎸” @ 0m00s.mp4")}};
        for (const auto &[text, start, expected] : names) {
            std::tie(hit.text, hit.start) = std::tie(text, start);
            QCOMPARE(TranscriptSearch::clipFileName(hit), expected);
        }
        // cue start, cue end → clip start, clip length: 0.8 s lead-in (not before 0), 2 s after the
        // cue, 2 s at least and 15 s at most.
        for (const auto &[start, end, clipStart, length] : {std::tuple{3.0, 4.5, 2.2, 3.5}, {0.5, 1.5, 0.0, 3.0}, {30.0, 50.0, 29.2, 15.0}, {4.0, 3.0, 3.2, 2.0}}) {
            std::tie(hit.start, hit.end) = std::tie(start, end);
            const TranscriptSearch::ClipWindow window = TranscriptSearch::clipWindow(hit);
            QVERIFY2(qFuzzyCompare(window.start + 1, clipStart + 1) && qFuzzyCompare(window.length, length),
                     qPrintable(QStringLiteral("%1 → %2 + %3").arg(start).arg(window.start).arg(window.length)));
        }
    }

    void clipExport() {
        QTemporaryDir dir;
        const QString media = AnalysisMusic::copyOfRamp(dir.filePath(QStringLiteral("Guitar Talk [abcd1234].mp4")));
        const QString srt = dir.filePath(QStringLiteral("Guitar Talk [abcd1234].srt"));
        // The video is cut, not the audio beside it: the clip's picture shows it.
        QVERIFY(!media.isEmpty() && TestEnv::writeFile(srt, cue(1, 3.0, 3.5, QStringLiteral("chord: voicing"))) &&
                TestEnv::writeFile(dir.filePath(QStringLiteral("Guitar Talk [abcd1234].mp3")), "x"));
        const auto clip = vtest::await(TranscriptSearch::exportClip(TranscriptSearch::matches(QStringLiteral("chord"), srt).value(0)));
        QCOMPARE(clip, dir.filePath(QStringLiteral("Guitar Talk — Quotes/Guitar Talk — “chord- voicing” @ 0m03s.mp4")));
        QVERIFY2(std::abs(AnalysisMusic::duration(*clip) - 2.5) < 0.1, qPrintable(QString::number(AnalysisMusic::duration(*clip))));
        // The picture brightens with time: the clip opens on the frame 0.8 s before the cue.
        const double opening = AnalysisMusic::brightness(*clip);
        QVERIFY2(std::abs(opening - AnalysisMusic::brightness(media, 2.2)) < 3.0, qPrintable(QString::number(opening)));
        QVERIFY(TestEnv::filesContaining(TestEnv::root(), QStringLiteral("vorlix-")).isEmpty());

        // No media of ours beside the subtitles (.avi is not one), or media that is not media: no clip, nothing claimed.
        const QString gone = dir.filePath(QStringLiteral("Gone.srt"));
        QVERIFY(TestEnv::writeFile(gone, cue(1, 1, 2, QStringLiteral("hello"))) && TestEnv::writeFile(dir.filePath(QStringLiteral("Gone.avi")), "x"));
        Hit broken = TranscriptSearch::matches(QStringLiteral("hello"), gone).value(0);
        QCOMPARE(vtest::await(TranscriptSearch::exportClip(broken)), std::nullopt);
        broken.videoFile = dir.filePath(QStringLiteral("Gone.mp4"));
        QVERIFY(TestEnv::writeFile(*broken.videoFile, "not a video at all"));
        QCOMPARE(vtest::await(TranscriptSearch::exportClip(broken)), std::nullopt);
        QVERIFY(QDir(dir.filePath(QStringLiteral("Gone — Quotes"))).entryList(QDir::Files).isEmpty());
    }

    void splitAndTokenize() {
        const std::pair<const char *, QStringList> rows[] = {
            {"Hello world. Hello worlds.", list({"Hello worlds."})}, // 12 characters are dropped, 13 kept
            {"Is this working now? Yes it works fine!", list({"Is this working now?", "Yes it works fine!"})},
            {"One sentence here\r\ncontinues fine.", list({"One sentence here continues fine."})},
            {"A real sentence here. Tail is long", list({"A real sentence here."})},
            {"A real sentence here. And the tail goes on", list({"A real sentence here.", "And the tail goes on"})},
            {"Hello wo\u0301rld. Voila\u0300 re\u0301sume\u0301.", list({"Voila\u0300 re\u0301sume\u0301."})}, // marks are not characters
            {"...!?. \n .", {}},
        };
        for (const auto &[text, expected] : rows)
            QCOMPARE(Summarizer::splitSentences(QString::fromUtf8(text)), expected);
        QCOMPARE(Summarizer::tokenize(QStringLiteral("Don't STOP—the 2nd cafe\u0301's über-fast x")),
                 list({"don", "stop", "the", "2nd", "cafe\u0301", "über", "fast"}));
    }

    void numberOfPoints() {
        // sentences, limit (-1: none), points
        const int rows[][3] = {{2, -1, 2}, {2, 1, 2}, {19, -1, 3}, {20, -1, 4}, {40, -1, 7}, {40, 2, 2}, {19, 10, 10}, {10, 0, 0}};
        for (const auto &row : rows) {
            const auto limit = row[1] < 0 ? std::nullopt : std::optional<int>(row[1]);
            QVERIFY2(Summarizer::summarize(distinctSentences(row[0]), limit).size() == row[2],
                     qPrintable(QStringLiteral("%1 sentences, limit %2").arg(row[0]).arg(row[1])));
        }
    }

    void chosenPoints() {
        const std::pair<QString, QStringList> rows[] = {
            // The "tempo" sentences share the most frequent words; they win and keep their order.
            {QStringLiteral("Tempo practice builds steady tempo control. Weather tomorrow looks cloudy overall. Lunch options include soup. "
                            "Metronome tempo practice keeps tempo honest. Parking downtown costs extra. Slow tempo practice first, then raise the tempo."),
             list({"Tempo practice builds steady tempo control.", "Metronome tempo practice keeps tempo honest.", "Slow tempo practice first, then raise the tempo."})},
            // Only two sentences carry content: the limit of three is not filled with stop-word lines.
            {QStringLiteral("I was there and so were you. Amber basil cedar dune. We would not have been here. Ember fern grove heath."),
             list({"Amber basil cedar dune.", "Ember fern grove heath."})},
            // The last sentence scores 1.0, the four others tie at 0.5: the earliest two of them join it.
            {QStringLiteral("Amber basil cedar dune. Ember fern grove heath. Iris jade kelp lotus. Maple nutmeg olive pine. Guitar guitar chord chord."),
             list({"Amber basil cedar dune.", "Ember fern grove heath.", "Guitar guitar chord chord."})},
            // Four content words of frequency 1 beat one alone: the divisor is at least four.
            {QStringLiteral("And so it was, zebra. Amber basil cedar dune. It was what it was, yak. Ember fern grove heath. Iris jade kelp lotus. So it is, then, xylophone."),
             list({"Amber basil cedar dune.", "Ember fern grove heath.", "Iris jade kelp lotus."})},
            // Stop words only ("don't" splits into two of them): the first three stand in.
            {QStringLiteral("I don't, you don't. I was there and so were you. We would not have been here. Yeah, okay, it is what it is."),
             list({"I don't, you don't.", "I was there and so were you.", "We would not have been here."})}};
        for (const auto &[text, expected] : rows)
            QCOMPARE(Summarizer::summarize(text), expected);
    }

    void summaries() {
        QTemporaryDir dir(TestEnv::root() + QStringLiteral("/summary-XXXXXX"));
        const QString transcript = dir.filePath(QStringLiteral("v1.2 Lesson.final.txt")), output = dir.filePath(QStringLiteral("v1.2 Lesson.final.summary.txt"));
        QVERIFY(TestEnv::writeFile(transcript, QByteArrayLiteral(" First chosen sentence.\n Second chosen sentence.\n")) &&
                TestEnv::writeFile(output, QByteArrayLiteral("an older summary that must be replaced")));
        QCOMPARE(Summarizer::writeSummary(transcript, QStringLiteral("Guitar Lesson")), output);
        QCOMPARE(TestEnv::readFile(output), QStringLiteral("SUMMARY — Guitar Lesson\n───────────────────────\n\n"
                                                           "• First chosen sentence.\n\n• Second chosen sentence.\n\n"
                                                           "(2 key points, generated on-device by Vorlix)").toUtf8());
        // Empty, a NUL inside text, and sentences too short to keep: no summary, nothing left behind.
        for (const QByteArray &content : {QByteArray(), QByteArrayLiteral("A perfectly fine sentence.\0 And more text here."), QByteArrayLiteral("Hi. Okay. Yes. Sure thing.")})
            QVERIFY(TestEnv::writeFile(transcript, content) && !Summarizer::writeSummary(transcript, QStringLiteral("Talk")));
        QDir(dir.path()).mkdir(QStringLiteral("folder.txt"));
        for (const QString &odd : {dir.filePath(QStringLiteral("absent.txt")), dir.filePath(QStringLiteral("folder.txt")), QString()})
            QCOMPARE(Summarizer::writeSummary(odd, QStringLiteral("x")), std::nullopt);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name), (QStringList{QFileInfo(output).fileName(), QFileInfo(transcript).fileName()}));
    }

    void initTestCase() {
        m_site = std::make_unique<FixtureSite>();
        QVERIFY(m_site->isRunning());
        const QString modelPath = m_site->put(QStringLiteral("hf/resolve/main/ggml-tiny.bin"), {});
        QVERIFY(TestEnv::runTool(QStringLiteral("python3"), {QStringLiteral(VORLIX_FIXTURES_DIR "/analysis_make_ggml_model.py"), modelPath}));
        m_model = TestEnv::readFile(modelPath);
        const QString wav = TestEnv::root() + QStringLiteral("/speech.wav");
        m_speech = TestEnv::root() + QStringLiteral("/speech.m4a");
        QVERIFY(TestEnv::runTool(QStringLiteral("espeak-ng"), {QStringLiteral("-w"), wav, QStringLiteral("Welcome to the lesson.")}));
        QVERIFY(TestEnv::runFfmpeg({QStringLiteral("-i"), wav, QStringLiteral("-c:a"), QStringLiteral("aac"), m_speech}));
    }

    void cleanup() { QCOMPARE(TestEnv::filesContaining(QDir::tempPath(), QStringLiteral("vorlix-whisper-")), QStringList()); } // every way out

    void staleDownloadsAreSwept() {
        // A killed model download of an earlier run is swept; a current one and the user's files stay.
        QTemporaryDir dir(TestEnv::root() + QStringLiteral("/models-XXXXXX"));
        const QStringList names{QStringLiteral(".vorlix-OLD"), QStringLiteral(".vorlix-NOW"), QStringLiteral("ggml-tiny.bin"), QStringLiteral("notes.vorlix-OLD")};
        for (const QString &name : names) {
            QFile file(dir.filePath(name));
            QVERIFY(file.open(QIODevice::WriteOnly) && (name == names[1] || file.setFileTime(QDateTime::currentDateTimeUtc().addDays(-2), QFileDevice::FileModificationTime)));
        }
        Transcriber::Setup setup;
        setup.modelsDir = dir.path();
        Transcriber sweeping(setup);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name), names.mid(1));
    }

    void ensureModel_data() {
        QTest::addColumn<QString>("repository"); // a path on the fixture site, or the one answer of a server of its own
        QTest::addColumn<bool>("lands");
        QTest::newRow("200") << QStringLiteral("/hf/resolve/main/") << true;
        QTest::newRow("404") << QStringLiteral("/nothing/resolve/main/") << false;
        QTest::newRow("success status other than 200") << QStringLiteral("/status-206/resolve/main/") << false;
        QTest::newRow("redirect to the file") << QStringLiteral("HTTP/1.1 302 Found\r\nLocation: %SITE%/hf/resolve/main/ggml-tiny.bin\r\nContent-Length: 0\r\n\r\n") << true;
        QTest::newRow("connection drops mid-body") << QStringLiteral("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n") + QString(5000, u'g') << false;
    }

    void ensureModel() {
        QFETCH(QString, repository);
        QFETCH(bool, lands);
        std::unique_ptr<OneAnswer> server;
        if (repository.startsWith(QStringLiteral("HTTP"))) {
            server = std::make_unique<OneAnswer>(repository.replace(QStringLiteral("%SITE%"), m_site->url(QString())).toUtf8());
            repository = QStringLiteral("/owner/repo/resolve/main/");
        }
        Fixture f = make(server ? QStringLiteral("http://127.0.0.1:%1%2").arg(server->serverPort()).arg(repository) : m_site->url(repository), QStringLiteral("/bin/true"));
        QSignalSpy downloading(f.transcriber.get(), &Transcriber::isDownloadingModelChanged);
        // Two downloads at once share the flag.
        QCoro::Task<> first = f.transcriber->ensureModel();
        QCoro::Task<> second = f.transcriber->ensureModel();
        QCOMPARE(f.transcriber->isDownloadingModel(), true);
        QCOMPARE(vtest::failure(std::move(first)) + vtest::failure(std::move(second)), lands ? QString() : modelFailure + modelFailure);
        QCOMPARE(downloading.size(), 2); // on, then off
        // Nothing half-written is left beside the model, whatever happened.
        QCOMPARE(QDir(f.modelsDir()).entryList(QDir::Files | QDir::Hidden), lands ? QStringList{QStringLiteral("ggml-tiny.bin")} : QStringList());
        QCOMPARE(f.transcriber->modelDownloadProgress(), lands ? 1.0 : 0.0);
        if (!lands)
            return;
        QVERIFY(TestEnv::readFile(f.transcriber->modelURL()) == m_model);
        // A model on disk means no network; an empty file is no model and is fetched again.
        QCOMPARE(vtest::failure(f.transcriber->ensureModel()), QString());
        QCOMPARE(downloading.size(), 2);
        if (server)
            return; // it answers once
        QVERIFY(TestEnv::writeFile(f.transcriber->modelURL(), QByteArray()));
        QCOMPARE(vtest::failure(f.transcriber->ensureModel()), QString());
        QCOMPARE(downloading.size(), 4);
    }

    void realRecognizerWritesSubtitlesAndText() {
        QVERIFY2(!Tools::whisperURL().isEmpty(), "the packaged whisper-cli is missing");
        Fixture f = make(repository(), Tools::whisperURL());
        // Only the last extension goes from the output name.
        const QString media = f.media(QStringLiteral("Live 1.5 Talk.final.m4a"), m_speech), base = f.dir->filePath(QStringLiteral("Live 1.5 Talk.final"));
        QVERIFY(TestEnv::writeFile(base + QStringLiteral(".srt"), "stale subtitles"));
        const int before = modelRequests();
        QCOMPARE(vtest::await(f.transcriber->transcribe(media)), base + QStringLiteral(".srt"));
        QCOMPARE(modelRequests(), before + 1);
        // A random-weights model recognizes nothing useful; the files and their shape are what count.
        QVERIFY(TestEnv::readFile(base + QStringLiteral(".srt")).contains(" --> "));
        QVERIFY(QFileInfo::exists(base + QStringLiteral(".txt")));
    }

    // What the recognizer said last is the message: at most 200 characters, never half a character.
    void recognizerFailures() {
        const QString digits = QStringLiteral("0123456789").repeated(20);
        const std::pair<QString, QString> rows[] = {
            {QStringLiteral("printf 'HEAD%1%2' >&2; exit 3").arg(QString(96, u'x'), digits), digits},
            {QStringLiteral("echo text > \"$base.txt\"; printf 'no srt' >&2"), QStringLiteral("no srt")}, // exit 0 without subtitles
            {QStringLiteral("printf 'bye' >&2; kill -9 $$"), QStringLiteral("bye")},
            {QStringLiteral("printf '%1' >&2; exit 1").arg(QStringLiteral("\U0001F3B5").repeated(250)), QStringLiteral("\U0001F3B5").repeated(200)}};
        for (const auto &[behaviour, expected] : rows) {
            Fixture f = make(repository(), stubWhisper(behaviour));
            QVERIFY(f.haveModel());
            QCOMPARE(vtest::failure(f.transcriber->transcribe(f.media(QStringLiteral("Talk.m4a"), m_speech))), QStringLiteral("Transcription failed: ") + expected);
        }
    }

    // Failures before the recognizer runs: it never sees a call, and no recognizer at all downloads nothing.
    void stopsBeforeRecognizing() {
        const QString conversion = QStringLiteral("Couldn't convert audio for transcription.");
        const QString notExecutable = TestEnv::root() + QStringLiteral("/stubs/not-executable");
        QVERIFY(TestEnv::writeFile(notExecutable, "#!/bin/sh\nexit 0\n") && TestEnv::writeFile(TestEnv::root() + QStringLiteral("/Talk.mp4"), "not a video"));
        const QString whisper = stubWhisper({}), site = repository(), nothing = m_site->url(QStringLiteral("/nothing/resolve/main/"));
        // repository, recognizer, ffmpeg, a model on disk, media, message
        const std::tuple<QString, QString, QString, bool, QString, QString> rows[] = {
            {site, whisper, QString(), true, m_speech, conversion},
            {site, whisper, TestEnv::ffmpeg(), true, TestEnv::root() + QStringLiteral("/Talk.mp4"), conversion},
            {nothing, whisper, TestEnv::ffmpeg(), false, m_speech, modelFailure}, // before any conversion starts
            {site, QString(), TestEnv::ffmpeg(), false, m_speech, QStringLiteral("whisper-cli not found (brew install whisper-cpp).")},
            {site, notExecutable, TestEnv::ffmpeg(), true, m_speech, QStringLiteral("Permission denied")}};
        for (const auto &[repo, recognizer, ffmpeg, model, media, expected] : rows) {
            Fixture f = make(repo, recognizer, ffmpeg);
            QVERIFY(!model || f.haveModel());
            const int before = modelRequests();
            QCOMPARE(vtest::failure(f.transcriber->transcribe(media)), expected);
            QVERIFY(whisperArgs().isEmpty());
            QCOMPARE(modelRequests(), before + int(repo == nothing));
        }
    }
};

VORLIX_TEST_SUITE(TranscriptsTest)
#include "TranscriptsTest.moc"

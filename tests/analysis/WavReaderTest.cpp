#include "TestEnv.h"
#include "TestMain.h"

#include "analysis/PracticeMode.h"

#include <QTest>
#include <QtEndian>

namespace {

QByteArray le32(quint32 v) {
    QByteArray b(4, '\0');
    qToLittleEndian(v, b.data());
    return b;
}

// A chunk claiming `claimed` bytes (its real size by default), padded to even length unless told not to.
QByteArray chunk(const char *id, const QByteArray &payload, qint64 claimed = -1, bool pad = true) {
    QByteArray c = QByteArray(id, 4) + le32(quint32(claimed < 0 ? payload.size() : claimed)) + payload;
    return pad && payload.size() % 2 ? c + '\0' : c;
}

QByteArray riff(const QByteArray &chunks) {
    const QByteArray fmt = QByteArray::fromHex("01000100") + le32(22050) + le32(44100) + QByteArray::fromHex("02001000");
    return "RIFF" + le32(quint32(4 + chunks.size())) + "WAVE" + chunk("fmt ", fmt) + chunks;
}

QByteArray pcm(const QList<qint16> &values) {
    QByteArray b;
    for (qint16 v : values)
        b.append(char(quint16(v) & 0xff)).append(char(quint16(v) >> 8));
    return b;
}

} // namespace

class WavReaderTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void chunkLayouts() {
        const QList<qint16> extremes{0, 1, -1, 16384, 32767, -32768}, none;
        // bytes, samples (none with present false: no result), present
        const std::tuple<QByteArray, QList<qint16>, bool> rows[] = {
            {riff(chunk("data", pcm(extremes))), extremes, true},
            {riff(chunk("LIST", "INFOx") + chunk("data", pcm({100, -200}))), {100, -200}, true}, // an odd chunk is padded
            {riff(chunk("data", pcm({5, 6, 7}), 100000)), {5, 6, 7}, true},                     // a data size past the end is clipped
            {riff(chunk("data", pcm({5, 6}) + 'x', -1, false)), {5, 6}, true},                  // a trailing odd byte is ignored
            {riff(chunk("data", {})), none, false},                                              // 44 bytes: empty data
            {riff(chunk("data", "x", -1, false)), none, true},                                   // 45 bytes: one odd data byte
            {riff(chunk("LIST", "abcd", 0xFFFFFFF0u) + chunk("data", pcm({1, 2}))), none, false}, // a chunk size far past the end
            {riff(chunk("LIST", "ab", 0xFFFFFFFFu) + chunk("data", pcm({1, 2}))), none, false},   // the largest chunk size does not wrap
            {QByteArray(), none, false},
            {QByteArray("just some words, nothing like a RIFF header at all, really"), none, false}};
        const QString path = TestEnv::root() + QStringLiteral("/wav/case.wav");
        for (const auto &[bytes, samples, present] : rows) {
            QVERIFY(TestEnv::writeFile(path, bytes));
            const auto read = PracticeMode::readMonoWav16(path);
            QList<float> expected;
            for (qint16 v : samples)
                expected << float(v) / 32768.0f;
            QVERIFY2(read.has_value() == present && (read ? QList<float>(read->begin(), read->end()) : QList<float>()) == expected, bytes.left(60).toHex().constData());
        }
        QVERIFY(!PracticeMode::readMonoWav16(TestEnv::root())); // a folder
    }
};

VORLIX_TEST_SUITE(WavReaderTest)
#include "WavReaderTest.moc"

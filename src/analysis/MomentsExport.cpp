#include "analysis/MomentsExport.h"

#include <QFile>
#include <QFileInfo>
#include <QPointer>

#include <QCoroTask>

struct MomentsExportRunner {
    // Runs on the main thread; the export object may be deleted while ffmpeg works, so it is
    // re-checked after every step and the run simply stops when it is gone.
    static QCoro::Task<> run(QPointer<MomentsExport> self, MomentsExport::Choices choices,
                             Tools::CancellationPtr cancellation, bool clips, bool stills, bool gifs) {
        int saved = 0;
        // A product cut short by a cancel is half a file: it goes, and the run ends there.
        const auto stopped = [&](const QString &out) {
            if (!cancellation->isCancelled())
                return !self;
            QFile::remove(out);
            return true;
        };
        try {
            const QString folder = MomentsEngine::exportFolder(choices.video);
            const QString base = MomentsEngine::shortName(choices.video, 42);
            if (!self)
                co_return;
            self->m_folder = folder;
            const auto total = choices.moments.size();
            for (qsizetype i = 0; i < total; ++i) {
                const Moment &moment = choices.moments[i];
                const int number = int(i + 1);
                self->setStatusText(QStringLiteral("Saving %1 of %2\u2026").arg(number).arg(total));
                const QString stem = folder + u'/' + MomentsExport::productName(base, number, choices.aspect);
                // On the beat, clips start on a beat and last whole beats; stills keep the exact time.
                const double start = choices.beatGrid ? choices.beatGrid->snap(moment.time) : moment.time;
                const double length =
                    choices.beatGrid ? choices.beatGrid->snapLength(choices.clipLength) : choices.clipLength;
                if (clips) {
                    const QString out = stem + QStringLiteral(".mp4");
                    if (co_await MomentsEngine::exportClip(choices.video, start, length, choices.aspect, out,
                                                           cancellation))
                        ++saved;
                    if (stopped(out))
                        co_return;
                }
                if (gifs) {
                    const QString out = stem + QStringLiteral(".gif");
                    if (co_await MomentsEngine::exportGif(choices.video, start, length, choices.aspect, out,
                                                          cancellation))
                        ++saved;
                    if (stopped(out))
                        co_return;
                }
                if (stills) {
                    const QString out = stem + QStringLiteral(".png");
                    if (co_await MomentsEngine::exportStill(choices.video, moment.time, out, cancellation))
                        ++saved;
                    if (stopped(out))
                        co_return;
                }
            }
            // Only a finished clip export may replace the full video.
            if (clips && choices.deleteVideoAfter && saved >= 1)
                QFile::remove(choices.video);
        } catch (const std::exception &) {
            // Exports report through their count only; whatever was saved stays saved.
        }
        if (self && !cancellation->isCancelled())
            self->finish(saved);
    }
};

MomentsExport::MomentsExport(Choices choices, QObject *parent) : QObject(parent), m_choices(std::move(choices)) {}

MomentsExport::~MomentsExport() { cancel(); }

void MomentsExport::cancel() { m_cancellation->cancel(); }

void MomentsExport::start(bool clips, bool stills, bool gifs) {
    if (m_exporting || m_cancellation->isCancelled())
        return;
    m_exporting = true;
    m_saved = 0;
    Q_EMIT exportingChanged(true);
    MomentsExportRunner::run(QPointer<MomentsExport>(this), m_choices, m_cancellation, clips, stills, gifs);
}

QString MomentsExport::savedMessage(int saved, const QString &folder) {
    return QStringLiteral("Saved %1 file%2 to %3")
        .arg(saved)
        .arg(saved == 1 ? QString() : QStringLiteral("s"), QFileInfo(folder).fileName());
}

QString MomentsExport::productName(const QString &base, int number, MomentsEngine::Aspect aspect) {
    return base + QStringLiteral(" \u2014 Moment ") + QStringLiteral("%1").arg(number, 2, 10, QLatin1Char('0')) +
           MomentsEngine::fileNameSuffix(aspect);
}

void MomentsExport::setStatusText(const QString &text) {
    if (text == m_statusText)
        return;
    m_statusText = text;
    Q_EMIT statusTextChanged(text);
}

void MomentsExport::finish(int saved) {
    m_saved = saved;
    m_exporting = false;
    setStatusText(QString());
    Q_EMIT exportingChanged(false);
    Q_EMIT finished(savedMessage(saved, m_folder), m_folder);
}

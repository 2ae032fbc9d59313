#include "ui/Symbols.h"

#include <QGuiApplication>
#include <QHash>
#include <QPainter>
#include <QPainterPath>
#include <QtMath>

#include <cmath>

namespace Symbols {
namespace {
const QHash<QString, QString> &table() {
    static const QHash<QString, QString> map{
        {QStringLiteral("arrow.down.circle"), QStringLiteral("folder-download-symbolic")},
        {QStringLiteral("arrow.down.circle.fill"), QStringLiteral("folder-download-symbolic")},
        {QStringLiteral("arrow.down.to.line"), QStringLiteral("go-bottom-symbolic")},
        {QStringLiteral("square.stack.3d.down.right"), QStringLiteral("edit-select-all-symbolic")},
        {QStringLiteral("folder"), QStringLiteral("folder-symbolic")},
        {QStringLiteral("doc.on.clipboard"), QStringLiteral("edit-paste-symbolic")},
        {QStringLiteral("sparkles"), QStringLiteral("starred-symbolic")},
        {QStringLiteral("film"), QStringLiteral("video-x-generic-symbolic")},
        {QStringLiteral("video.slash"), QStringLiteral("camera-disabled-symbolic")},
        {QStringLiteral("music.note"), QStringLiteral("audio-x-generic-symbolic")},
        {QStringLiteral("scissors"), QStringLiteral("edit-cut-symbolic")},
        {QStringLiteral("metronome"), QStringLiteral("alarm-symbolic")},
        {QStringLiteral("pianokeys"), QStringLiteral("media-playlist-consecutive-symbolic")},
        {QStringLiteral("bandage"), QStringLiteral("emblem-synchronizing-symbolic")},
        {QStringLiteral("clock"), QStringLiteral("document-open-recent-symbolic")},
        {QStringLiteral("checkmark"), QStringLiteral("object-select-symbolic")},
        {QStringLiteral("checkmark.circle.fill"), QStringLiteral("emblem-ok-symbolic")},
        {QStringLiteral("text.quote"), QStringLiteral("text-x-generic-symbolic")},
        {QStringLiteral("list.bullet.rectangle"), QStringLiteral("view-list-symbolic")},
        {QStringLiteral("exclamationmark.triangle.fill"), QStringLiteral("dialog-warning-symbolic")},
        {QStringLiteral("xmark.circle"), QStringLiteral("process-stop-symbolic")},
        {QStringLiteral("xmark.circle.fill"), QStringLiteral("process-stop-symbolic")},
        {QStringLiteral("magnifyingglass"), QStringLiteral("system-search-symbolic")},
        {QStringLiteral("magnifyingglass.circle"), QStringLiteral("edit-find-symbolic")},
        {QStringLiteral("trash"), QStringLiteral("user-trash-symbolic")},
        {QStringLiteral("photo"), QStringLiteral("image-x-generic-symbolic")},
        {QStringLiteral("photo.stack"), QStringLiteral("folder-pictures-symbolic")},
        {QStringLiteral("wifi.exclamationmark"), QStringLiteral("network-wireless-offline-symbolic")},
        {QStringLiteral("sparkle.magnifyingglass"), QStringLiteral("system-search-symbolic")},
        {QStringLiteral("play.fill"), QStringLiteral("media-playback-start-symbolic")},
        {QStringLiteral("gearshape"), QStringLiteral("preferences-system-symbolic")},
    };
    return map;
}

QPixmap tinted(const QPixmap &source, const QColor &tint) {
    QPixmap out = source;
    QPainter p(&out);
    p.setCompositionMode(QPainter::CompositionMode_SourceIn);
    p.fillRect(out.rect(), tint);
    return out;
}

qreal deviceRatio() { return qGuiApp ? qGuiApp->devicePixelRatio() : 1.0; }
} // namespace

QString themeName(const QString &symbol) { return table().value(symbol); }

QPixmap pixmap(const QString &symbol, const QColor &tint, int size) {
    const QString name = themeName(symbol);
    if (!name.isEmpty() && QIcon::hasThemeIcon(name)) {
        const QPixmap themed = QIcon::fromTheme(name).pixmap(QSize(size, size), deviceRatio());
        if (!themed.isNull())
            return tinted(themed, tint);
    }
    return drawn(symbol, tint, size);
}

QIcon icon(const QString &symbol, const QColor &tint, int size) {
    QIcon result;
    result.addPixmap(pixmap(symbol, tint, size));
    result.addPixmap(pixmap(symbol, tint.darker(170), size), QIcon::Disabled);
    return result;
}

QPixmap drawn(const QString &symbol, const QColor &tint, int size) {
    const qreal ratio = deviceRatio();
    QPixmap pm(QSize(size, size) * ratio);
    pm.setDevicePixelRatio(ratio);
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(size / 16.0, size / 16.0); // drawn on a 16-unit grid
    QPen pen(tint, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(pen);
    const bool filled = symbol.endsWith(QLatin1String(".fill"));
    const QRectF ring(1.5, 1.5, 13, 13);

    if (symbol.startsWith(QLatin1String("arrow.down"))) {
        if (symbol.contains(QLatin1String("circle"))) {
            if (filled) {
                p.setBrush(tint);
                p.drawEllipse(ring);
                p.setPen(QPen(Qt::transparent));
                p.setCompositionMode(QPainter::CompositionMode_Clear);
                pen.setColor(Qt::black);
            }
            p.setPen(pen);
            p.setBrush(Qt::NoBrush);
            if (!filled)
                p.drawEllipse(ring);
        }
        p.drawLine(QPointF(8, 4.5), QPointF(8, 11));
        p.drawPolyline(QPolygonF({QPointF(5, 8.5), QPointF(8, 11.5), QPointF(11, 8.5)}));
        if (symbol.endsWith(QLatin1String("to.line")))
            p.drawLine(QPointF(4, 14), QPointF(12, 14));
    } else if (symbol.startsWith(QLatin1String("xmark"))) {
        p.drawEllipse(ring);
        p.drawLine(QPointF(5.5, 5.5), QPointF(10.5, 10.5));
        p.drawLine(QPointF(10.5, 5.5), QPointF(5.5, 10.5));
    } else if (symbol.startsWith(QLatin1String("checkmark"))) {
        p.drawEllipse(ring);
        p.drawPolyline(QPolygonF({QPointF(5, 8.3), QPointF(7.2, 10.5), QPointF(11, 5.8)}));
    } else if (symbol.startsWith(QLatin1String("exclamationmark.triangle"))) {
        p.drawPolygon(QPolygonF({QPointF(8, 1.8), QPointF(14.8, 14), QPointF(1.2, 14)}));
        p.drawLine(QPointF(8, 6), QPointF(8, 9.5));
        p.drawPoint(QPointF(8, 12));
    } else if (symbol == QLatin1String("slider.horizontal.3")) {
        // Three rails, each with its knob at a different place; themes have no such icon.
        const qreal knobs[] = {10.5, 5, 8.5};
        for (int i = 0; i < 3; ++i) {
            const qreal y = 3.5 + i * 4.5;
            p.drawLine(QPointF(1.5, y), QPointF(14.5, y));
            p.setBrush(tint);
            p.drawEllipse(QPointF(knobs[i], y), 1.8, 1.8);
        }
    } else if (symbol == QLatin1String("folder")) {
        QPainterPath path;
        path.moveTo(1.5, 4);
        path.lineTo(6, 4);
        path.lineTo(7.5, 5.5);
        path.lineTo(14.5, 5.5);
        path.lineTo(14.5, 13);
        path.lineTo(1.5, 13);
        path.closeSubpath();
        p.drawPath(path);
    } else if (symbol == QLatin1String("clock.arrow.circlepath")) {
        // History: a clock face inside an arrow turning back; themes draw only the clock.
        const QPointF centre(8.6, 8);
        const qreal radius = 5.9;
        const qreal start = 165; // degrees, counter-clockwise from three o'clock
        QPainterPath arc;
        arc.arcMoveTo(QRectF(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius), start);
        arc.arcTo(QRectF(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius), start, -295);
        p.drawPath(arc);
        const qreal a = qDegreesToRadians(start);
        const QPointF tip(centre.x() + radius * std::cos(a), centre.y() - radius * std::sin(a));
        const QPointF back(std::sin(a), std::cos(a)); // against the arrow's travel
        const auto arm = [&](qreal degrees) {
            const qreal r = qDegreesToRadians(degrees);
            return tip + 2.6 * QPointF(back.x() * std::cos(r) - back.y() * std::sin(r),
                                       back.x() * std::sin(r) + back.y() * std::cos(r));
        };
        p.drawPolyline(QPolygonF({arm(-45), tip, arm(45)}));
        p.drawPolyline(QPolygonF({QPointF(8.6, 4.9), QPointF(8.6, 8), QPointF(10.8, 9.4)}));
    } else if (symbol.startsWith(QLatin1String("archivebox"))) {
        // A lidded box with a handle slot; themes have no archive box.
        const QRectF lid(1.5, 2.5, 13, 3.5);
        QPainterPath body;
        body.moveTo(2.5, 6);
        body.lineTo(2.5, 13.5);
        body.lineTo(13.5, 13.5);
        body.lineTo(13.5, 6);
        if (filled) {
            p.setBrush(tint);
            p.drawRoundedRect(lid, 1, 1);
            body.closeSubpath();
            p.drawPath(body);
            p.setPen(QPen(Qt::black, 1.5, Qt::SolidLine, Qt::RoundCap));
            p.setCompositionMode(QPainter::CompositionMode_Clear);
        } else {
            p.drawRoundedRect(lid, 1, 1);
            p.drawPath(body);
        }
        p.drawLine(QPointF(6.5, 8.8), QPointF(9.5, 8.8));
    } else if (symbol.endsWith(QLatin1String(".magnifyingglass"))) {
        // A lens with what is searched inside it: a waveform or lines of text.
        p.drawEllipse(QPointF(6.5, 6.5), 5.2, 5.2);
        p.drawLine(QPointF(10.4, 10.4), QPointF(14.5, 14.5));
        QPen thin = pen;
        thin.setWidthF(1.1);
        p.setPen(thin);
        if (symbol.startsWith(QLatin1String("waveform"))) {
            // Three bars, far enough apart to stay apart at 16 pixels.
            const qreal heights[] = {2.2, 4.8, 3.0};
            for (int i = 0; i < 3; ++i) {
                const qreal x = 4.3 + i * 2.2;
                p.drawLine(QPointF(x, 6.5 - heights[i] / 2), QPointF(x, 6.5 + heights[i] / 2));
            }
        } else {
            p.drawLine(QPointF(4.3, 5), QPointF(8.7, 5));
            p.drawLine(QPointF(4.3, 6.9), QPointF(8.7, 6.9));
            p.drawLine(QPointF(4.3, 8.8), QPointF(7.2, 8.8));
        }
    } else {
        // A neutral mark for symbols without their own drawing.
        p.setBrush(tint);
        p.drawEllipse(QRectF(5, 5, 6, 6));
    }
    return pm;
}
} // namespace Symbols

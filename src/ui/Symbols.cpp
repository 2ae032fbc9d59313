#include "ui/Symbols.h"

#include <QGuiApplication>
#include <QHash>
#include <QPainter>
#include <QPainterPath>

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
    } else {
        // A neutral mark for symbols without their own drawing.
        p.setBrush(tint);
        p.drawEllipse(QRectF(5, 5, 6, 6));
    }
    return pm;
}
} // namespace Symbols

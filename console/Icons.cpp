#include "console/Icons.h"

#include <QHash>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <functional>

namespace vq {
namespace {

using Drawing = std::function<void(QPainter&)>;

const QColor kGreen(46, 139, 87), kRed(200, 48, 48), kBlue(40, 96, 176), kAmber(214, 150, 20),
    kGrey(96, 104, 112), kPaper(250, 250, 246);

// Every drawing is made on a 16 by 16 grid and scaled to the size asked for.
QPixmap Paint(const Drawing& draw, int size) {
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(size / 16.0, size / 16.0);
    draw(painter);
    return pixmap;
}

void Triangle(QPainter& p, const QColor& color, QPointF a, QPointF b, QPointF c) {
    QPainterPath path;
    path.moveTo(a);
    path.lineTo(b);
    path.lineTo(c);
    path.closeSubpath();
    p.setPen(QPen(color.darker(130), 0.8));
    p.setBrush(color);
    p.drawPath(path);
}

void Block(QPainter& p, const QColor& color, QRectF rect, double radius = 1.0) {
    p.setPen(QPen(color.darker(130), 0.8));
    p.setBrush(color);
    p.drawRoundedRect(rect, radius, radius);
}

void Disc(QPainter& p, const QColor& color, QPointF centre, double radius) {
    p.setPen(QPen(color.darker(130), 0.8));
    p.setBrush(color);
    p.drawEllipse(centre, radius, radius);
}

void Stroke(QPainter& p, const QColor& color, double width, const QPainterPath& path) {
    p.setPen(QPen(color, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);
    p.drawPath(path);
}

// Three lines of a queue, behind the queue buttons' signs.
void QueueLines(QPainter& p) {
    for (double y : {3.0, 7.0, 11.0}) Block(p, kGrey, QRectF(1.5, y, 8, 2), 0.5);
}

void Cross(QPainter& p, QPointF centre, double half) {
    QPainterPath path;
    path.moveTo(centre + QPointF(-half, -half));
    path.lineTo(centre + QPointF(half, half));
    path.moveTo(centre + QPointF(half, -half));
    path.lineTo(centre + QPointF(-half, half));
    Stroke(p, Qt::white, 1.8, path);
}

void Tick(QPainter& p, const QColor& color, double width) {
    QPainterPath path;
    path.moveTo(4, 8.5);
    path.lineTo(7, 11.5);
    path.lineTo(12.5, 4.5);
    Stroke(p, color, width, path);
}

void Sheet(QPainter& p) {
    p.setPen(QPen(kGrey, 0.8));
    p.setBrush(kPaper);
    p.drawRect(QRectF(3, 1.5, 10, 13));
    for (double y : {4.5, 7.0, 9.5, 12.0}) {
        p.setPen(QPen(kBlue, 1.0));
        p.drawLine(QPointF(5, y), QPointF(11, y));
    }
}

const QHash<QString, Drawing>& Drawings() {
    static const QHash<QString, Drawing> drawings = {
        {QStringLiteral("run"), [](QPainter& p) { Triangle(p, kGreen, {4, 2}, {14, 8}, {4, 14}); }},
        {QStringLiteral("hold"),
         [](QPainter& p) {
             Block(p, kAmber, QRectF(3, 2, 3.5, 12));
             Block(p, kAmber, QRectF(9.5, 2, 3.5, 12));
         }},
        {QStringLiteral("stop"),
         [](QPainter& p) {
             Disc(p, kRed, {8, 8}, 6.5);
             Cross(p, {8, 8}, 2.8);
         }},
        {QStringLiteral("prev"),
         [](QPainter& p) {
             Triangle(p, kBlue, {2, 8}, {9, 2}, {9, 14});
             Block(p, kBlue, QRectF(9, 5.5, 5, 5), 0.5);
         }},
        {QStringLiteral("next"),
         [](QPainter& p) {
             Triangle(p, kBlue, {14, 8}, {7, 2}, {7, 14});
             Block(p, kBlue, QRectF(2, 5.5, 5, 5), 0.5);
         }},
        {QStringLiteral("prop"), [](QPainter& p) { Sheet(p); }},
        {QStringLiteral("ref"),
         [](QPainter& p) {
             QPainterPath arc;
             arc.arcMoveTo(QRectF(2.5, 2.5, 11, 11), 60);
             arc.arcTo(QRectF(2.5, 2.5, 11, 11), 60, 280);
             Stroke(p, kGreen, 2.0, arc);
             Triangle(p, kGreen, {9.5, 0.5}, {14.5, 3.5}, {9.5, 6.5});
         }},
        {QStringLiteral("runq"),
         [](QPainter& p) {
             QueueLines(p);
             Triangle(p, kGreen, {8, 6}, {15, 10.5}, {8, 15});
         }},
        {QStringLiteral("stopq"),
         [](QPainter& p) {
             QueueLines(p);
             Block(p, kRed, QRectF(8.5, 7.5, 6.5, 6.5));
         }},
        {QStringLiteral("Jobs"),
         [](QPainter& p) {
             Block(p, QColor(120, 150, 200), QRectF(1.5, 4, 13, 10.5));
             Block(p, QColor(170, 195, 235), QRectF(1.5, 2, 6, 3), 0.8);
             for (double y : {7.0, 9.5, 12.0}) {
                 p.setPen(QPen(Qt::white, 1.0));
                 p.drawLine(QPointF(4, y), QPointF(12, y));
             }
         }},
        {QStringLiteral("Running"),
         [](QPainter& p) {
             Disc(p, kGreen, {8, 8}, 6.5);
             Triangle(p, Qt::white, {6, 4.5}, {11.5, 8}, {6, 11.5});
         }},
        {QStringLiteral("Ready"),
         [](QPainter& p) {
             Disc(p, kBlue, {8, 8}, 6.5);
             QPainterPath arrow;
             arrow.moveTo(4.5, 8);
             arrow.lineTo(11, 8);
             arrow.moveTo(8.5, 5);
             arrow.lineTo(11.5, 8);
             arrow.lineTo(8.5, 11);
             Stroke(p, Qt::white, 1.6, arrow);
         }},
        {QStringLiteral("Waiting"),
         [](QPainter& p) {
             Disc(p, kAmber, {8, 8}, 6.5);
             QPainterPath hands;
             hands.moveTo(8, 3.8);
             hands.lineTo(8, 8);
             hands.lineTo(11, 10);
             Stroke(p, Qt::white, 1.6, hands);
         }},
        {QStringLiteral("Complete"),
         [](QPainter& p) {
             Disc(p, kGrey, {8, 8}, 6.5);
             Tick(p, Qt::white, 1.8);
         }},
        {QStringLiteral("Domain"),
         [](QPainter& p) {
             Disc(p, QColor(90, 150, 190), {8, 8}, 6.5);
             p.setPen(QPen(Qt::white, 0.9));
             p.setBrush(Qt::NoBrush);
             p.drawEllipse(QPointF(8, 8), 2.8, 6.5);
             p.drawLine(QPointF(1.5, 8), QPointF(14.5, 8));
         }},
        {QStringLiteral("User"),
         [](QPainter& p) {
             Disc(p, QColor(150, 110, 70), {8, 5}, 3.2);
             QPainterPath body;
             body.moveTo(2, 15);
             body.cubicTo(2, 8.5, 14, 8.5, 14, 15);
             body.closeSubpath();
             p.setPen(QPen(QColor(60, 80, 120), 0.8));
             p.setBrush(QColor(90, 120, 170));
             p.drawPath(body);
         }},
    };
    return drawings;
}

}  // namespace

QIcon ImageIcon(const QString& key) {
    static QHash<QString, QIcon> made;
    if (const auto found = made.constFind(key); found != made.constEnd()) return *found;
    const auto drawing = Drawings().constFind(key);
    if (drawing == Drawings().constEnd()) return {};
    QIcon icon;
    for (int size : {16, 24, 32}) icon.addPixmap(Paint(*drawing, size));
    made.insert(key, icon);
    return icon;
}

}  // namespace vq

#pragma once

#include <QIcon>
#include <QRectF>

class QPainter;

namespace skylet {

/// The program's own icon: a green light over the horizon of a night sky. Drawn anew at whatever size is asked for, so
/// that it is sharp everywhere and no picture of it stays in memory.
QIcon applicationIcon();

/// Paints the icon into the largest square in the middle of `area`. Small squares get fewer details.
void paintApplicationIcon(QPainter& painter, const QRectF& area);

} // namespace skylet

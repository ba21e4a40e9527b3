#pragma once

#include <QByteArray>
#include <QImage>

namespace skylet {

/// The image as a PNG file; empty if it cannot be encoded. QImage::save does the same, but first loads every plug-in
/// for pictures that is installed, with the libraries behind it, and keeps them.
QByteArray toPng(const QImage& image);

} // namespace skylet

#include "platform/linux/statusitem/drawing/Png.h"

#include <png.h>

namespace skylet {

QByteArray toPng(const QImage& image) {
    const QImage pixels = image.convertToFormat(QImage::Format_RGBA8888);
    png_image description = {};
    description.version = PNG_IMAGE_VERSION;
    description.width = static_cast<png_uint_32>(pixels.width());
    description.height = static_cast<png_uint_32>(pixels.height());
    description.format = PNG_FORMAT_RGBA;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(description);
    QByteArray png(static_cast<qsizetype>(size), Qt::Uninitialized);
    const int written = png_image_write_to_memory(&description, png.data(), &size, 0, pixels.constBits(),
                                                  static_cast<png_int_32>(pixels.bytesPerLine()), nullptr);
    png.truncate(written == 0 ? 0 : static_cast<qsizetype>(size));
    return png;
}

} // namespace skylet

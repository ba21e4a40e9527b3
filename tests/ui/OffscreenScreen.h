#pragma once

#include "support/RuntimeFolder.h"

#include <QFile>

namespace skylet::test {

/// Makes Qt draw on a screen that nobody sees, with room for every window at scale 2: its own has 800 x 800 pixels. To
/// be called before there is an application.
inline void useOffscreenScreen(const RuntimeFolder& folder) {
    const QString path = folder.filePath(QStringLiteral("screen.json"));
    QFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(R"({"screens": [{"name": "screen", "x": 0, "y": 0, "width": 4000, "height": 3000,)"
                   R"("logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 1}]})");
    }
    qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + path.toUtf8());
}

} // namespace skylet::test

#include "ui/Strings.h"

#include <QCoreApplication>

#include <cstdio>

/// Ends with 0 when the language in force is the one named on the command line ("he" or "en") and "Offline" reads so.
int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    const bool wantsHebrew = QCoreApplication::arguments().value(1) == QStringLiteral("he");
    const QString text = skylet::L(QStringLiteral("Offline"));
    std::puts(qUtf8Printable(text));
    const QString wanted = wantsHebrew ? QStringLiteral("אין רשת") : QStringLiteral("Offline");
    return skylet::isHebrew() == wantsHebrew && text == wanted ? 0 : 1;
}

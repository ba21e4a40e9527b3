#include "ui/Strings.h"

#include <QCoreApplication>

#include <cstdio>

/// Ends with 0 when the language in force is the one whose code stands on the command line ("en" for English).
int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    const QString code = QCoreApplication::arguments().value(1);
    const QString key = QStringLiteral("Offline");
    QString wanted = key;
    for (const skylet::Language& language : skylet::Strings::languages()) {
        if (code == QLatin1String(language.code)) {
            wanted = language.texts()[key];
        }
    }
    const QString text = skylet::L(key);
    std::puts(qUtf8Printable(text));
    return text == wanted && skylet::isHebrew() == (code == u"he") ? 0 : 1;
}

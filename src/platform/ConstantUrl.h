#pragma once

#include <QString>
#include <QUrl>

namespace skylet {

/// `text`, a constant of the build, as a URL. Stops the program where it is none.
inline QUrl constantUrl(const QString& text) {
    QUrl url(text, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty()) {
        qFatal("\"%s\" is not a URL", qUtf8Printable(text));
    }
    return url;
}

} // namespace skylet

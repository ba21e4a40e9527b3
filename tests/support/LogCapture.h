#pragma once

#include <QLoggingCategory>
#include <QString>
#include <QStringList>
#include <QtGlobal>

namespace skylet::test {

/// Collects what is logged while it lives, each message as "category: text", by these rules (QLoggingCategory); empty:
/// what is logged by default. One at a time.
class LogCapture {
  public:
    explicit LogCapture(const QString& rules = {}) {
        messages().clear();
        QLoggingCategory::setFilterRules(rules);
        previous_ =
            qInstallMessageHandler([](QtMsgType /*type*/, const QMessageLogContext& context, const QString& text) {
                messages() << QString::fromUtf8(context.category) + QStringLiteral(": ") + text;
            });
    }
    ~LogCapture() {
        qInstallMessageHandler(previous_);
        QLoggingCategory::setFilterRules({});
    }

    static QString text() { return messages().join(u'\n'); }

  private:
    Q_DISABLE_COPY_MOVE(LogCapture)

    static QStringList& messages() {
        static QStringList collected;
        return collected;
    }

    QtMessageHandler previous_;
};

} // namespace skylet::test

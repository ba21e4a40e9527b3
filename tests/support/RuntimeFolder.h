#pragma once

#include <QTemporaryDir>

namespace skylet::test {

/// A runtime folder of the test's own while this lives. A process that has none before there is an application leaves
/// one behind that Qt makes.
class RuntimeFolder {
  public:
    RuntimeFolder() { qputenv(variable, folder_.path().toUtf8()); }
    RuntimeFolder(const RuntimeFolder&) = delete;
    RuntimeFolder& operator=(const RuntimeFolder&) = delete;
    RuntimeFolder(RuntimeFolder&&) = delete;
    RuntimeFolder& operator=(RuntimeFolder&&) = delete;
    ~RuntimeFolder() { qputenv(variable, before_); }

    QString path() const { return folder_.path(); }
    QString filePath(const QString& name) const { return folder_.filePath(name); }

  private:
    static constexpr auto variable = "XDG_RUNTIME_DIR";
    const QByteArray before_ = qgetenv(variable);
    const QTemporaryDir folder_;
};

} // namespace skylet::test

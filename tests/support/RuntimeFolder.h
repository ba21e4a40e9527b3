#pragma once

#include <QTemporaryDir>

namespace skylet::test {

/// A runtime folder of the test's own, from before there is an application: Qt would make one that stays behind.
class RuntimeFolder {
  public:
    RuntimeFolder() { qputenv("XDG_RUNTIME_DIR", folder_.path().toUtf8()); }

  private:
    const QTemporaryDir folder_;
};

} // namespace skylet::test

#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace skylet::test {

/// Moves this process into network and mount namespaces of its own, where nothing but a loopback exists and files under
/// /etc can be replaced. The move is for the rest of the process's life.
class PrivateSystem {
  public:
    /// Empty on success; otherwise why it cannot be had here. Harmless when repeated.
    static std::optional<QString> enter();
};

/// A file (or a folder) laid over another one for this process alone, while the object lives.
class Replacement {
  public:
    Replacement(const QString& path, const QString& file);
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;
    Replacement(Replacement&&) = delete;
    Replacement& operator=(Replacement&&) = delete;

    bool isInPlace() const { return inPlace_; }

  private:
    const QByteArray path_;
    const bool inPlace_;
};

} // namespace skylet::test

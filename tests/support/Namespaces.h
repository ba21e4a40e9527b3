#pragma once

#include <QString>

#include <optional>

namespace skylet::test {

/// Moves the process into fresh namespaces of the given kinds, CLONE_NEW* of unshare(2). Without root it takes a user
/// namespace to get there, which the process then stays in. Empty on success; otherwise why it cannot be done here.
std::optional<QString> enterNamespaces(int kinds);

/// Writes `text` into an existing file such as one under /proc. False when the system refused.
bool writeToFile(const QString& path, const QByteArray& text);

} // namespace skylet::test

#pragma once

#include <QString>

#include <optional>

namespace skylet {

/// The user's few stored choices. Errors are ignored: what cannot be read is absent, what cannot be written is not
/// stored.
class UserDefaults {
  public:
    virtual ~UserDefaults() = default;
    /// Absent when nothing is stored under `key`, or something that is not a Bool.
    virtual std::optional<bool> boolForKey(const QString& key) const = 0;
    /// Stored at once, not when the program ends.
    virtual void setBool(bool value, const QString& key) = 0;
};

} // namespace skylet
